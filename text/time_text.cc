#include "text/time_text.h"

#include <array>
#include <cstring>

namespace {

/// The numbers from 0 to 99, each with two digits.
constexpr auto TWO_DIGITS = [] {
  std::array<char, 200> digits{};
  for (std::size_t i = 0; i < 100; ++i) {
    digits[2 * i] = static_cast<char>('0' + i / 10);
    digits[2 * i + 1] = static_cast<char>('0' + i % 10);
  }
  return digits;
}();

char* write_two_digits(int number, char* text) {
  std::memcpy(text, &TWO_DIGITS[2 * static_cast<std::size_t>(number)], 2);
  return text + 2;
}

char* write_year(const std::tm& fields, char* text) {
  const int year = fields.tm_year + 1900;
  return write_two_digits(year % 100, write_two_digits(year / 100, text));
}

char* write_date(const std::tm& fields, char* text) {
  text = write_year(fields, text);
  *text = '-';
  text = write_two_digits(fields.tm_mon + 1, text + 1);
  *text = '-';
  return write_two_digits(fields.tm_mday, text + 1);
}

char* write_hour_and_minute(const std::tm& fields, char* text) {
  text = write_two_digits(fields.tm_hour, text);
  *text = ':';
  return write_two_digits(fields.tm_min, text + 1);
}

/// Writes what strftime writes for "%" and `conversion`, if that consists of numbers. Returns the
/// end of the text, or null for any other conversion.
char* write_field(char conversion, const std::tm& fields, char* text) {
  switch (conversion) {
    case 'F':
      return write_date(fields, text);
    case 'R':
      return write_hour_and_minute(fields, text);
    case 'T':
      text = write_hour_and_minute(fields, text);
      *text = ':';
      return write_two_digits(fields.tm_sec, text + 1);
    case 'Y':
      return write_year(fields, text);
    case 'm':
      return write_two_digits(fields.tm_mon + 1, text);
    case 'd':
      return write_two_digits(fields.tm_mday, text);
    case 'H':
      return write_two_digits(fields.tm_hour, text);
    case 'M':
      return write_two_digits(fields.tm_min, text);
    case 'S':
      return write_two_digits(fields.tm_sec, text);
    default:
      return nullptr;
  }
}

/// Does what strftime does, but only for short formats whose conversions are all numbers. Returns
/// the end of the text, or null for another format or a year that does not have four digits.
char* write_digits(const std::string& format, const std::tm& fields, char* text) {
  // A conversion has two characters, and its text has at most ten. So the text of a short format
  // always fits.
  if (format.size() > MAX_TIME_TEXT / 6) return nullptr;
  // Other years do not look the same in all conversions.
  if (fields.tm_year < 1000 - 1900 || fields.tm_year > 9999 - 1900) return nullptr;
  for (std::size_t i = 0; i < format.size(); ++i) {
    if (format[i] != '%') {
      *text++ = format[i];
      continue;
    }
    ++i;
    if (i == format.size()) return nullptr;
    text = write_field(format[i], fields, text);
    if (text == nullptr) return nullptr;
  }
  return text;
}

}  // namespace

char* format_time(const std::string& format, const std::tm& fields, char* text) {
  if (char* end = write_digits(format, fields, text)) return end;
  return text + std::strftime(text, MAX_TIME_TEXT, format.c_str(), &fields);
}
