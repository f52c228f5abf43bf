// The command line.
#pragma once

#include <string>

#include "trendlog/dump_options.h"

/// The formats of times that stand where the user gives none.
extern const std::string DEFAULT_INPUT_TIME_FORMAT;
extern const std::string DEFAULT_OUTPUT_DATE_FORMAT;
extern const std::string DEFAULT_OUTPUT_TIME_FORMAT;

/// Reads the arguments behind the first, which is the program's name, into `options`, and checks
/// them. Returns 0 to run, a value below 0 to print the usage text, after a message on standard
/// error where one fits, and a value above 0 to print the version. What was stored before a bad
/// argument stays.
[[nodiscard]] int parse_args(DumpOptions& options, int argc, const char* const* argv);
