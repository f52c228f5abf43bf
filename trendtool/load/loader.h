// Records the rows of one CSV file.
#pragma once

#include "trendtool/load/options.h"

/// Loads the whole input into the database, or none of its rows. Returns the exit status: 0, or 1
/// after a message on standard error that says what is wrong and where.
[[nodiscard]] int run_load(const LoadOptions& options);

/// Runs the program under the name trendload, which has a command line of its own. Returns the exit
/// status.
[[nodiscard]] int run_trendload(int argc, char** argv);
