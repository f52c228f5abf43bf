// Texts in UTF-8 from outside, which may hold anything.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

/// Returns the length in bytes of the character at the start of `text`, which is not empty, or 0 if
/// there is none in UTF-8.
[[nodiscard]] std::size_t get_character_size(std::string_view text);

/// Returns whether `character`, one character of UTF-8, is one of the control characters U+0000 to
/// U+001F and U+007F to U+009F, to which a terminal may react.
[[nodiscard]] bool is_control(std::string_view character);

/// Returns `text` as people may see it on a terminal, whatever it holds: control characters become
/// \n, \r, \t, \xHH or \u00HH, and bytes that are not UTF-8 become \xHH. A backslash stays as it
/// is.
[[nodiscard]] std::string show_controls(std::string_view text);
