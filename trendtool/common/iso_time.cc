#include "trendtool/common/iso_time.h"

#include <array>
#include <cstdlib>

#include "text/time_text.h"

static_assert(MAX_ISO_TIME <= MAX_TIME_TEXT);

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
  std::array<char, MAX_TIME_TEXT> buffer;
  const char* end = format_time(FORMAT, fields, buffer.data());
  for (const char* c = buffer.data(); c != end; ++c) *text++ = *c;
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
  std::array<char, MAX_ISO_TIME> text;
  return {text.data(), write(time, text.data())};
}
