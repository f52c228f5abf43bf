// The fixed texts of the command line.
#pragma once

#include "trendlog/dump_options.h"

/// Prints the usage text to standard output. `program` is the program's name as invoked.
void print_usage(const DumpOptions& options, const char* program);

/// Prints the version block to standard output.
void print_version(const char* program);
