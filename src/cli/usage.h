// The fixed texts of the command line.
#pragma once

#include "trendlog/dump_options.h"

/// Prints the usage text to standard output. `program` is the program's name as the user typed it.
/// Of `options` only the chunk size is shown. Write errors are ignored.
void print_usage(const DumpOptions& options, const char* program);

/// Prints the version text to standard output, with `program` as above. Write errors are ignored.
void print_version(const char* program);
