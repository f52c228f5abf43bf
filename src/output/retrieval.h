// The walk through the data, chunk by chunk.
#pragma once

#include <utility>

#include "trendlog/dump_context.h"
#include "trendlog/dump_options.h"

/// The earliest and the latest time wanted, inclusive, in seconds since the epoch; -1 no bound.
using TimeRange = std::pair<long, long>;

/// Fetches and prints all rows that are wanted. Returns 0 when the limit was reached in full
/// chunks, 1 when a chunk came back short because the data ran out, and -1 after a failed query and
/// its message on standard error.
[[nodiscard]] int dump_rows(DumpContext& context, const DumpOptions& options);

/// Turns the rows to skip and the limit into bounds of `range`, so that the chunks need not count.
/// Without chunks it does nothing. Returns 0, or -1 after a failed query and its message.
[[nodiscard]] int bound_range(DumpContext& context, const DumpOptions& options, TimeRange& range);

/// Fetches at most `count` rows of `range`, all for 0, prints them, flushes the output, and makes
/// `range` start behind the last of them. Returns 0 when it found exactly `count` rows, 1 when not,
/// and -1 after a failed query and its message.
[[nodiscard]] int fetch_chunk(DumpContext& context, const DumpOptions& options, TimeRange& range,
                              unsigned count);
