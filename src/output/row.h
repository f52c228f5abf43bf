// The data rows.
#pragma once

#include "libtrend/log.h"
#include "trendlog/dump_context.h"
#include "trendlog/dump_options.h"

/// Writes one row to `context.out`: date, time, the percentage of valid data if `options` ask for
/// it, and one field per statistic that the parameters carry, in the order of the header. A NaN is
/// an empty field. If the snapshot has fewer samples than there are parameters, the row is shorter.
/// Returns the last character written, or EOF on failure.
int print_row(DumpContext& context, const DumpOptions& options,
              const toolkit::trend::CSnapshot& snapshot);

/// Writes the text that `format_value` makes of `v` to the output stream. Rows contain the same
/// texts, but are collected and written as a whole, so they do not call this. Returns the number of
/// characters, or a negative number where the write failed.
int print_value(DumpContext& context, double v);

/// Returns whether `v` is a value, that is, not a NaN.
[[nodiscard]] bool has_value(const double& v);
