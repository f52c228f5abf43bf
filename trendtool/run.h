// trendtool: shows, exports and loads what is in a trend database, by subcommands.
#pragma once

/// The whole program: reads the command line, which `argc` and `argv` hold as for `main`, and does
/// what it asks for. Returns the exit status.
[[nodiscard]] int run_trendtool(int argc, char** argv);

/// Returns whether the program was started as trendload. That name stands for what it did as a
/// program of its own.
[[nodiscard]] bool is_trendload(int argc, char** argv);
