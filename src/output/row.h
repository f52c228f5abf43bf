// The data rows.
#pragma once

#include "libtrend/log.h"
#include "trendlog/dump_context.h"
#include "trendlog/dump_options.h"

/// Writes one row: date, time, the percentage of valid data where it is wanted, and one field per
/// statistic that the parameters carry, in the order of the header. A NaN is an empty field. A
/// snapshot with fewer samples than there are parameters makes a shorter row. Returns what the last
/// write to the output stream did.
int print_row(DumpContext& context, const DumpOptions& options,
              const toolkit::trend::CSnapshot& snapshot);

/// Writes the text that `format_value` makes of `v` to the output stream. Rows contain the same
/// texts, but are collected and written as a whole, so they do not call this. Returns the number of
/// characters, or a negative number where the write failed.
int print_value(DumpContext& context, double v);

/// Whether `v` is a value at all, that is no NaN.
[[nodiscard]] bool has_value(const double& v);
