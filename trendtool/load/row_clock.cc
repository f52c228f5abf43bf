#include "trendtool/load/row_clock.h"

#include <algorithm>
#include <limits>
#include <utility>

#include "text/csv.h"
#include "text/input_time.h"
#include "text/time_formats.h"

namespace {

/// The two times at which a clock shows the same date and time. They are equal if there is only
/// one.
struct Times {
  std::time_t first = 0;
  std::time_t second = 0;
};

bool shows(std::time_t time, const std::tm& fields, bool use_utc) {
  // A time that no calendar can show leaves the day of the month 0, which no time is shown with.
  std::tm shown = {};
  use_utc ? gmtime_r(&time, &shown) : localtime_r(&time, &shown);
  return shown.tm_sec == fields.tm_sec && shown.tm_min == fields.tm_min &&
         shown.tm_hour == fields.tm_hour && shown.tm_mday == fields.tm_mday;
}

Times times_of(const std::tm& fields, bool use_utc) {
  const std::time_t time = to_epoch(fields, use_utc);
  Times times = {time, time};
  constexpr std::time_t DAY = 86400;
  if (use_utc || fields.tm_isdst >= 0 || time <= 0) return times;
  // The C library chose the UTC offset from before or after a clock change; try both.
  const std::time_t wall = to_epoch(fields, true);
  constexpr std::time_t LAST = std::numeric_limits<std::time_t>::max();
  for (const std::time_t near : {time - DAY, std::min(time, LAST - DAY) + DAY}) {
    std::tm there = {};
    localtime_r(&near, &there);
    const std::time_t other = wall - there.tm_gmtoff;
    if (!shows(other, fields, false)) continue;
    times = {std::min(times.first, other), std::max(times.second, other)};
  }
  return times;
}

}  // namespace

RowClock::RowClock(std::string format, bool use_utc)
    : format_(std::move(format)), use_utc_(use_utc) {}

bool RowClock::look_ahead(const std::string& text) {
  std::tm fields;
  if (!parse_time(text, format_, fields)) return false;
  const Times times = times_of(fields, use_utc_);
  if (ahead_ != 0) rises_ += times.second > ahead_ ? 1 : -1;
  rising_ = rises_ > 0;
  if (times.first != times.second) {
    ahead_ = times.second;
    return true;
  }
  // A row outside the repeated hour shows the order for certain.
  if (ahead_ != 0) rising_ = times.second > ahead_;
  return false;
}

/// Converts a time on the day that is kept, on which the time of day is all that counts. Returns
/// false for any other, and where the library has to read the text.
bool RowClock::convert_on_kept_day(std::string_view text, std::time_t& time) const {
  constexpr std::size_t SIZE = std::string_view("2010-11-02 03:00").size();
  if (day_start_ == 0 || text.size() != SIZE || !text.starts_with(date_)) return false;
  const auto is_digit = [&](std::size_t i) { return text[i] >= '0' && text[i] <= '9'; };
  const auto number_at = [&](std::size_t i) -> std::time_t {
    return 10 * (text[i] - '0') + text[i + 1] - '0';
  };
  if (text[10] != ' ' || !is_digit(11) || !is_digit(12) || text[13] != ':' || !is_digit(14) ||
      !is_digit(15) || number_at(11) > 23 || number_at(14) > 59) {
    return false;
  }
  time = day_start_ + 3600 * number_at(11) + 60 * number_at(14);
  return true;
}

/// Keeps the day of a row, whose time is `time`, if it is one of 86,400 seconds without a change of
/// the clock.
void RowClock::keep_day(std::string_view text, std::time_t time) {
  constexpr std::size_t DATE_SIZE = std::string_view("2010-11-02").size();
  if (format_ != DEFAULT_INPUT_TIME_FORMAT || text.find(' ') != DATE_SIZE) return;
  static_cast<void>(calendar_.fields_at(time, use_utc_));
  static_cast<void>(calendar_.fields_at(time, use_utc_));
  date_ = text.substr(0, DATE_SIZE);
  day_start_ = calendar_.even_day_start();
}

std::string RowClock::convert(const std::string& text, std::time_t& time) {
  if (convert_on_kept_day(text, time)) {
    follow(time);
    return "";
  }
  std::tm fields;
  if (!parse_time(text, format_, fields)) {
    return quote(text) + " does not match the format " + quote(format_);
  }
  const Times times = times_of(fields, use_utc_);
  time = resolve(times.first, times.second);
  if (time <= 0) {
    // Where time_t has 64 bits, no text is too late.
    const bool is_too_late = fields.tm_year > 1970 - 1900;
    return quote(text) + (is_too_late
                              ? " is later than the last time that this system can represent"
                              : " is not after the epoch");
  }
  if (!shows(time, fields, use_utc_)) return quote(text) + " is a time that does not exist";
  follow(time);
  keep_day(text, time);
  return "";
}

void RowClock::follow(std::time_t time) {
  if (previous_ != 0) rising_ = time > previous_;
  previous_ = time;
}

std::time_t RowClock::resolve(std::time_t first, std::time_t second) const {
  if (previous_ == 0) return rising_ ? first : second;
  if (rising_ || first > previous_) return first > previous_ ? first : second;
  return second < previous_ ? second : first;
}
