#include "text/calendar.h"

#include <cstdlib>
#include <cstring>
#include <limits>

namespace {

constexpr std::int64_t DAY_LENGTH = 86400;

std::tm ask_library(std::time_t time, bool use_utc) {
  std::tm fields = {};
  if (use_utc) {
    gmtime_r(&time, &fields);
  } else {
    localtime_r(&time, &fields);
  }
  return fields;
}

/// Whether `fields` show this time of day, on the date and with the offset from UTC that `day`
/// shows.
bool is_on_day(const std::tm& fields, const std::tm& day, int hour, int minute, int second) {
  return fields.tm_hour == hour && fields.tm_min == minute && fields.tm_sec == second &&
         fields.tm_yday == day.tm_yday && fields.tm_year == day.tm_year &&
         fields.tm_gmtoff == day.tm_gmtoff && fields.tm_isdst == day.tm_isdst &&
         fields.tm_zone == day.tm_zone;
}

}  // namespace

std::int64_t to_wall_seconds(const std::tm& fields) {
  // Rounded down, for the years before 1 too.
  const auto divide = [](std::int64_t a, std::int64_t b) { return a / b - (a % b < 0 ? 1 : 0); };
  constexpr std::int64_t LEAP_DAYS_BEFORE_1970 = 477;
  const std::int64_t year = std::int64_t{fields.tm_year} + 1900;
  const std::int64_t leap_days =
      divide(year - 1, 4) - divide(year - 1, 100) + divide(year - 1, 400) - LEAP_DAYS_BEFORE_1970;
  const std::int64_t days = 365 * (year - 1970) + leap_days + fields.tm_yday;
  const int time_of_day = 3600 * fields.tm_hour + 60 * fields.tm_min + fields.tm_sec;
  return DAY_LENGTH * days + time_of_day;
}

Calendar::Calendar() {
  const char* zone = std::getenv("TZ");
  has_spelled_out_zone_ = zone != nullptr && std::strchr(zone, ',') != nullptr;
}

std::tm Calendar::fields_at(std::time_t time, bool use_utc) {
  const bool is_kept =
      day_ != Day::NONE && use_utc == use_utc_ && time >= start_ && time - start_ < DAY_LENGTH;
  if (is_kept && day_ == Day::STARTED) {
    // The second time on this day, so more may follow. Its first second has to show 00:00:00 and
    // its 86,400th 23:59:59, with the same offset. Then there is no leap second before its end, and
    // no change of the offset: no zone of the time zone database changes it twice in one day. A
    // zone that is given by its rules might.
    const bool is_even =
        (use_utc || !has_spelled_out_zone_) &&
        is_on_day(ask_library(start_, use_utc), fields_, 0, 0, 0) &&
        is_on_day(ask_library(start_ + DAY_LENGTH - 1, use_utc), fields_, 23, 59, 59);
    day_ = is_even ? Day::EVEN : Day::NONE;
  }
  if (is_kept && day_ == Day::EVEN) {
    const auto seconds = static_cast<int>(time - start_);
    std::tm fields = fields_;
    fields.tm_hour = seconds / 3600;
    fields.tm_min = seconds / 60 % 60;
    fields.tm_sec = seconds % 60;
    return fields;
  }
  const std::tm fields = ask_library(time, use_utc);
  constexpr std::time_t LATEST = std::numeric_limits<std::time_t>::max() - DAY_LENGTH;
  day_ = time >= DAY_LENGTH && time <= LATEST ? Day::STARTED : Day::NONE;
  const int time_of_day = 3600 * fields.tm_hour + 60 * fields.tm_min + fields.tm_sec;
  start_ = day_ == Day::NONE ? 0 : time - time_of_day;
  fields_ = fields;
  use_utc_ = use_utc;
  return fields;
}
