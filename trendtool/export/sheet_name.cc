#include "trendtool/export/sheet_name.h"

#include <cctype>
#include <cstddef>

namespace {

constexpr std::size_t MAX_CHARACTERS = 31;

bool is_continuation(char c) { return (static_cast<unsigned char>(c) & 0xC0U) == 0x80; }

/// The first characters of `text`, in UTF-8: at most `count`.
std::string cut(const std::string& text, std::size_t count) {
  std::size_t end = 0;
  for (; end < text.size(); ++end) {
    if (is_continuation(text[end])) continue;
    if (count == 0) break;
    --count;
  }
  return text.substr(0, end);
}

std::string to_lower(std::string text) {
  for (char& c : text) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return text;
}

/// Replaces what a name must not have, and removes it at the ends.
std::string clean(std::string text) {
  for (char& c : text) {
    const bool is_control = static_cast<unsigned char>(c) < 0x20;
    if (is_control || std::string("[]:*?/\\'").find(c) != std::string::npos) c = ' ';
  }
  const std::size_t start = text.find_first_not_of(' ');
  if (start == std::string::npos) return "sheet";
  return text.substr(start, text.find_last_not_of(' ') + 1 - start);
}

}  // namespace

std::string SheetNames::make(const std::string& wanted) {
  const std::string base = clean(wanted);
  std::string name = cut(base, MAX_CHARACTERS);
  for (int number = 2; !used_.insert(to_lower(name)).second; ++number) {
    const std::string suffix = " (" + std::to_string(number) + ")";
    name = cut(base, MAX_CHARACTERS - suffix.size()) + suffix;
  }
  return name;
}
