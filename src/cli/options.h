// The command line.
#pragma once

#include "trendlog/dump_options.h"

/// Reads the arguments behind the first, which is the program's name, into `options`, and checks
/// them. Returns 0 to run, a value below 0 to print the usage text, after a message on standard
/// error where one fits, and a value above 0 to print the version. What was stored before a bad
/// argument stays.
[[nodiscard]] int parse_args(DumpOptions& options, int argc, const char* const* argv);
