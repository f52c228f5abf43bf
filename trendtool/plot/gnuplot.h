// The program gnuplot.
#pragma once

#include <string>

/// Starts gnuplot, which it finds by PATH, has it run `script`, and sets `output` to what that
/// writes to its standard output. No shell takes part, and no settings of the user. Returns what is
/// wrong, for a message, or an empty text.
[[nodiscard]] std::string run_gnuplot(const std::string& script, std::string& output);
