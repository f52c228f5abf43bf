#include "text/utf8.h"

#include <array>
#include <cstdio>

namespace {

constexpr unsigned char FIRST_NOT_ASCII = 0x80;

unsigned byte_at(std::string_view text, std::size_t place) {
  return static_cast<unsigned char>(text[place]);
}

void append_code(const char* format, unsigned code, std::string& text) {
  std::array<char, 8> escape;
  std::snprintf(escape.data(), escape.size(), format, code);
  text += escape.data();
}

void append_control(std::string_view character, std::string& text) {
  const char first = character[0];
  if (first == '\n') {
    text += "\\n";
  } else if (first == '\r') {
    text += "\\r";
  } else if (first == '\t') {
    text += "\\t";
  } else if (character.size() == 1) {
    append_code("\\x%02x", byte_at(character, 0), text);
  } else {
    append_code("\\u%04x", byte_at(character, 1), text);
  }
}

}  // namespace

std::size_t get_character_size(std::string_view text) {
  const unsigned first = byte_at(text, 0);
  if (first < FIRST_NOT_ASCII) return 1;
  const std::size_t size = first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : 2;
  if (first < 0xC2 || first > 0xF4 || text.size() < size) return 0;
  for (std::size_t i = 1; i < size; ++i) {
    if ((byte_at(text, i) & 0xC0U) != 0x80) return 0;
  }
  // Longer forms than needed, surrogates, and what is beyond U+10FFFF.
  const unsigned second = byte_at(text, 1);
  const bool is_wrong = (first == 0xE0 && second < 0xA0) || (first == 0xED && second > 0x9F) ||
                        (first == 0xF0 && second < 0x90) || (first == 0xF4 && second > 0x8F);
  return is_wrong ? 0 : size;
}

bool is_control(std::string_view character) {
  const unsigned first = byte_at(character, 0);
  return first < ' ' || first == 0x7F || (first == 0xC2 && byte_at(character, 1) < 0xA0);
}

std::string show_controls(std::string_view text) {
  std::string shown;
  while (!text.empty()) {
    const std::size_t size = get_character_size(text);
    if (size == 0) {
      append_code("\\x%02x", byte_at(text, 0), shown);
    } else if (is_control(text.substr(0, size))) {
      append_control(text.substr(0, size), shown);
    } else {
      shown += text.substr(0, size);
    }
    text.remove_prefix(size == 0 ? 1 : size);
  }
  return shown;
}
