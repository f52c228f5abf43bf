#include "trendtool/load/row_clock.h"

#include <algorithm>
#include <limits>
#include <utility>

#include "text/csv.h"
#include "text/input_time.h"

namespace {

/// The two times at which a clock shows the same date and time. They are equal if there is only
/// one.
struct Times {
  std::time_t first = 0;
  std::time_t second = 0;
};

bool shows(std::time_t time, const std::tm& fields, bool use_utc) {
  std::tm shown = {};
  if ((use_utc ? gmtime_r(&time, &shown) : localtime_r(&time, &shown)) == nullptr) return false;
  return shown.tm_sec == fields.tm_sec && shown.tm_min == fields.tm_min &&
         shown.tm_hour == fields.tm_hour && shown.tm_mday == fields.tm_mday;
}

Times times_of(const std::tm& fields, bool use_utc) {
  const std::time_t time = to_epoch(fields, use_utc);
  Times times = {time, time};
  constexpr std::time_t DAY = 86400;
  const bool has_days_around = time > 0 && time <= std::numeric_limits<std::time_t>::max() - DAY;
  if (use_utc || fields.tm_isdst >= 0 || !has_days_around) return times;
  // The C library chose the UTC offset from before or after a clock change; try both.
  const std::time_t wall = to_epoch(fields, true);
  for (const std::time_t near : {time - DAY, time + DAY}) {
    std::tm there = {};
    if (localtime_r(&near, &there) == nullptr) continue;
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

std::string RowClock::convert(const std::string& text, std::time_t& time) {
  std::tm fields;
  if (!parse_time(text, format_, fields)) {
    return quote(text) + " does not match the format " + quote(format_);
  }
  const Times times = times_of(fields, use_utc_);
  time = resolve(times.first, times.second);
  if (time <= 0) {
    const bool is_too_late = fields.tm_year > 1970 - 1900;
    return quote(text) + (is_too_late
                              ? " is later than the last time that this system can represent"
                              : " is not after the epoch");
  }
  if (!shows(time, fields, use_utc_)) return quote(text) + " is a time that does not exist";
  if (previous_ != 0) rising_ = time > previous_;
  previous_ = time;
  return "";
}

std::time_t RowClock::resolve(std::time_t first, std::time_t second) const {
  if (previous_ == 0) return rising_ ? first : second;
  if (rising_ || first > previous_) return first > previous_ ? first : second;
  return second < previous_ ? second : first;
}
