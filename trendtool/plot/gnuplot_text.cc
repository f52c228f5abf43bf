#include "trendtool/plot/gnuplot_text.h"

#include <charconv>
#include <cstddef>

#include "text/utf8.h"

namespace {

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
    const std::size_t size = get_character_size(text);
    const char first = text.front();
    if (size == 0) {
      result += '?';
    } else if (is_control(text.substr(0, size))) {
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
