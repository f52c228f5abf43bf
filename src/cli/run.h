// The run sequence: what one dump does, in order.
#pragma once

#include "trendlog/dump_context.h"
#include "trendlog/dump_options.h"

/// Dumps what `options` ask for. Returns 0 on success and 1 on failure, after a message on standard
/// error, and also, without a message, after a complete dump that the end of the data ended; see
/// `dump_rows`. On failure the log and the output are left to the context's end.
[[nodiscard]] int run_dump(DumpContext& context, const DumpOptions& options);

/// The whole program: reads the command line and dumps. Returns the exit status.
[[nodiscard]] int run_program(int argc, const char* const* argv);
