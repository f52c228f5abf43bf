// Messages of trendtool, and the exit statuses that go with them.
#pragma once

#include <string_view>

inline constexpr int SUCCESS = 0;
inline constexpr int FAILURE = 1;      ///< the work could not be done, or not all of it
inline constexpr int WRONG_USAGE = 2;  ///< the command line is wrong; nothing was done

/// Prints `program`, ": ", `text` and a line feed on standard error. Names and values in `text` may
/// come from anywhere: control characters are shown by `show_controls`.
void print_message(std::string_view text, std::string_view program = "trendtool");

/// Prints a message and returns FAILURE.
[[nodiscard]] int fail(std::string_view text);

/// Prints a message and returns WRONG_USAGE.
[[nodiscard]] int refuse_usage(std::string_view text);
