#include "trendtool/plot/gnuplot_text.h"

#include <charconv>
#include <cstddef>

namespace {

/// Returns how many bytes the character at the start of `text` has, or 0 if it is not UTF-8.
std::size_t character_size(std::string_view text) {
  const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
  const unsigned first = byte(0);
  if (first < 0x80) return 1;
  if (first < 0xC2 || first > 0xF4) return 0;
  const std::size_t size = first < 0xE0 ? 2 : first < 0xF0 ? 3 : 4;
  if (text.size() < size) return 0;
  for (std::size_t i = 1; i < size; ++i) {
    if ((byte(i) & 0xC0U) != 0x80) return 0;
  }
  // Longer forms of shorter characters, surrogates, and what is beyond the last character.
  const unsigned second = byte(1);
  const bool is_wrong = (first == 0xE0 && second < 0xA0) || (first == 0xED && second >= 0xA0) ||
                        (first == 0xF0 && second < 0x90) || (first == 0xF4 && second >= 0x90);
  return is_wrong ? 0 : size;
}

template <typename Number>
void append(std::string& script, Number value) {
  char text[32];
  const std::to_chars_result result = std::to_chars(text, text + sizeof text, value);
  script.append(text, result.ptr);
}

}  // namespace

std::string gnuplot_string(std::string_view text) {
  // Between these quotes nothing is special but the quote itself, which is doubled.
  std::string result = "'";
  while (!text.empty()) {
    const std::size_t size = character_size(text);
    const char first = text.front();
    if (size == 0) {
      result += '?';
    } else if (size == 1 && (static_cast<unsigned char>(first) < ' ' || first == '\x7F')) {
      result += ' ';
    } else if (first == '\'') {
      result += "''";
    } else {
      result += text.substr(0, size);
    }
    text.remove_prefix(size == 0 ? 1 : size);
  }
  return result + "'";
}

void append_number(std::string& script, double value) { append(script, value); }
void append_number(std::string& script, std::int64_t value) { append(script, value); }
