#include "trendtool/common/escape.h"

#include <array>
#include <cstddef>
#include <cstdio>

#include "text/utf8.h"

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
