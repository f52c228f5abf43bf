// The checks that need the whole command line.
#pragma once

#include "trendlog/dump_options.h"

/// Checks the required options, puts the lists of parameters and intervals in order, fills in
/// default formats and converts the start and end time. Returns 0, or -1 after a message on
/// standard error.
[[nodiscard]] int validate_options(DumpOptions& options);
