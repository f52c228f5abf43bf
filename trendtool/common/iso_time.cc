#include "trendtool/common/iso_time.h"

#include <array>
#include <cstdlib>

namespace {

char* write_two_digits(long number, char* text) {
  *text++ = static_cast<char>('0' + number / 10);
  *text++ = static_cast<char>('0' + number % 10);
  return text;
}

}  // namespace

char* IsoClock::write(std::time_t time, char* text) {
  static const std::string FORMAT = "%FT%T";
  std::tm fields = calendar_.fields_at(time, use_utc_);
  const bool is_in_minutes = fields.tm_gmtoff % 60 == 0;
  if (!is_in_minutes) fields = calendar_.fields_at(time, true);
  text = format_time(FORMAT, fields, text);
  if (use_utc_ || !is_in_minutes) {
    *text = 'Z';
    return text + 1;
  }
  const long minutes = std::labs(fields.tm_gmtoff) / 60;
  *text = fields.tm_gmtoff < 0 ? '-' : '+';
  text = write_two_digits(minutes / 60, text + 1);
  *text = ':';
  return write_two_digits(minutes % 60, text + 1);
}

std::string IsoClock::text_of(std::time_t time) {
  std::array<char, MAX_TIME_TEXT> text;
  return {text.data(), write(time, text.data())};
}
