#include "trendtool/common/escape.h"

#include <array>
#include <cstddef>
#include <cstdio>

namespace {

bool is_continuation(char c) { return (static_cast<unsigned char>(c) & 0xC0U) == 0x80; }

/// Returns the length of the character at the start of `text`, which is not empty, or 0 if there is
/// none in UTF-8.
std::size_t get_character_size(std::string_view text) {
  const auto first = static_cast<unsigned char>(text[0]);
  if (first < 0x80) return 1;
  const std::size_t size = first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : 2;
  if (first < 0xC2 || first > 0xF4 || text.size() < size) return 0;
  for (std::size_t i = 1; i < size; ++i) {
    if (!is_continuation(text[i])) return 0;
  }
  // Longer forms than needed, surrogates, and what is beyond U+10FFFF.
  const auto second = static_cast<unsigned char>(text[1]);
  const bool is_wrong = (first == 0xE0 && second < 0xA0) || (first == 0xED && second > 0x9F) ||
                        (first == 0xF0 && second < 0x90) || (first == 0xF4 && second > 0x8F);
  return is_wrong ? 0 : size;
}

}  // namespace

void append_csv_field(std::string_view field, char separator, std::string& text) {
  const bool needs_quotes = field.find_first_of("\"\r\n") != field.npos ||
                            field.find(separator) != field.npos ||
                            (!field.empty() && (field.front() == ' ' || field.back() == ' '));
  if (!needs_quotes) {
    text += field;
    return;
  }
  text += '"';
  for (const char c : field) text.append(c == '"' ? 2 : 1, c);
  text += '"';
}

void append_json_string(std::string_view value, std::string& text) {
  text += '"';
  while (!value.empty()) {
    const char c = value.front();
    const std::size_t size = get_character_size(value);
    if (size == 0) {
      text += "\\ufffd";
    } else if (c == '"' || c == '\\') {
      text += {'\\', c};
    } else if (static_cast<unsigned char>(c) < 0x20 || c == 0x7F) {
      std::array<char, 8> escape;
      std::snprintf(escape.data(), escape.size(), "\\u%04x", static_cast<unsigned>(c));
      text += escape.data();
    } else {
      text += value.substr(0, size);
    }
    value.remove_prefix(size == 0 ? 1 : size);
  }
  text += '"';
}
