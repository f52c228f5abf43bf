// Names and numbers in a script for gnuplot.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

/// Returns `text` as a string constant of gnuplot, which shows it character by character if the
/// terminal is set to "noenhanced". Nothing in it is a command, whatever it holds. Control
/// characters become blanks, and bytes that are not UTF-8 become question marks.
[[nodiscard]] std::string gnuplot_string(std::string_view text);

/// Appends the shortest text that stands for `value`, which must be finite.
void append_number(std::string& script, double value);
void append_number(std::string& script, std::int64_t value);
