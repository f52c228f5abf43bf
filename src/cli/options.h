// The command line.
#pragma once

#include "trendlog/dump_options.h"

/// Reads the command line into `options` and checks it. `argv` has `argc` entries, the first of
/// which is the program's name. Returns 0 if the program is to run, a value below 0 if it is to
/// print the usage text, and a value above 0 if it is to print the version. A bad number or time,
/// and a missing required option, are reported on standard error; other bad arguments are not.
/// Values stored before a bad argument stay in `options`.
[[nodiscard]] int parse_args(DumpOptions& options, int argc, const char* const* argv);
