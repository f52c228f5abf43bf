// The checks that need the whole command line.
#pragma once

#include "trendlog/dump_options.h"

/// Checks that the required options are there, sorts the lists of parameters and intervals, sets
/// the default formats, and converts the start and the end time. Changes `options` accordingly.
/// Returns 0, or -1 after a message on standard error; what was changed before stays changed.
[[nodiscard]] int validate_options(DumpOptions& options);
