// Fetching and printing the data, chunk by chunk.
#pragma once

#include <utility>

#include "trendlog/dump_context.h"
#include "trendlog/dump_options.h"

/// The earliest and the latest time wanted, both inclusive, in seconds since the epoch. -1 means
/// that there is no bound.
using TimeRange = std::pair<long, long>;

/// Fetches all rows that are wanted and prints them to `context.out`. Returns 0 if as many rows
/// were printed as "-m" allows, 1 if a chunk had fewer rows than asked for because the data ended,
/// and -1 after a failed query and its message on standard error. Deliberate: if the library
/// returns a value above 0 for the query that looks for the limit, so does this, and prints no row.
[[nodiscard]] int dump_rows(DumpContext& context, const DumpOptions& options);

/// Changes `range` so that the rows to skip and the rows beyond the limit are outside of it, and
/// sets `context.skip` to 0. After that the chunks need not count rows. If all rows are to be
/// skipped, and without chunks, it changes nothing. Returns 0 or what the library returned for the
/// query that looks for the limit, or -1 after a failed query and its message on standard error.
[[nodiscard]] int bound_range(DumpContext& context, const DumpOptions& options, TimeRange& range);

/// Fetches at most `count` rows of `range`, or all of them if `count` is 0, prints them, and
/// flushes the output. Then it moves the start or the end of `range` past the last row, so that the
/// next chunk continues there. Returns 0 if there were exactly `count` rows, 1 if not, and -1 after
/// a failed query and its message on standard error.
[[nodiscard]] int fetch_chunk(DumpContext& context, const DumpOptions& options, TimeRange& range,
                              unsigned count);
