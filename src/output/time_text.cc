#include "output/time_text.h"

#include <cstring>

namespace {

char* write_two_digits(int number, char* text) {
  text[0] = static_cast<char>('0' + number / 10);
  text[1] = static_cast<char>('0' + number % 10);
  return text + 2;
}

char* write_year(int year, char* text) {
  return write_two_digits(year % 100, write_two_digits(year / 100, text));
}

/// Writes one field of the time as strftime does, with digits alone. Returns null for any other.
char* write_field(char conversion, const std::tm& fields, char* text) {
  switch (conversion) {
    case 'F':
      text = write_field('Y', fields, text);
      *text++ = '-';
      text = write_field('m', fields, text);
      *text++ = '-';
      return write_field('d', fields, text);
    case 'R':
      text = write_field('H', fields, text);
      *text++ = ':';
      return write_field('M', fields, text);
    case 'T':
      text = write_field('R', fields, text);
      *text++ = ':';
      return write_field('S', fields, text);
    case 'Y':
      return write_year(fields.tm_year + 1900, text);
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

/// Does what strftime does for formats of digits in short. Returns null where that is to be asked.
char* write_digits(const std::string& format, const std::tm& fields, char* text) {
  // No conversion is shorter than a fifth of what it makes, so such a format always fits.
  if (format.size() > MAX_TIME_TEXT / 6) return nullptr;
  // How years of other lengths print depends on the conversion.
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
