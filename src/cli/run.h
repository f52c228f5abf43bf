// The run sequence: what one dump does, in order.
#pragma once

#include "trendlog/dump_context.h"
#include "trendlog/dump_options.h"

/// Dumps what `options` ask for. Returns 0 on success, and 1 after a failure and its message on
/// standard error. Also returns 1, without a message, after a complete dump that reached the end of
/// the data; see `dump_rows`. If it returns 1, the log and the output stay open until `context` is
/// destroyed.
[[nodiscard]] int run_dump(DumpContext& context, const DumpOptions& options);

/// The whole program: reads the command line, which `argc` and `argv` hold as for `main`, and
/// dumps. Returns the exit status.
[[nodiscard]] int run_program(int argc, const char* const* argv);
