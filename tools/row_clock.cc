#include "tools/row_clock.h"

#include <algorithm>
#include <utility>

#include "cli/input_time.h"

namespace {

/// The time that `fields` denote with daylight saving applying (`is_dst` 1) or not (0); -1 where
/// there is no such time.
std::time_t with_daylight_saving(std::tm fields, int is_dst) {
  fields.tm_isdst = is_dst;
  const std::tm wanted = fields;
  const std::time_t time = std::mktime(&fields);
  // Where the other rule is in force at that time, the C library moves the clock.
  const bool is_same = fields.tm_isdst == is_dst && fields.tm_min == wanted.tm_min &&
                       fields.tm_hour == wanted.tm_hour && fields.tm_mday == wanted.tm_mday;
  return is_same ? time : -1;
}

}  // namespace

RowClock::RowClock(std::string format, bool use_utc)
    : format_(std::move(format)), use_utc_(use_utc) {}

std::string RowClock::convert(const std::string& text, std::time_t& time) {
  std::tm fields;
  if (!parse_time(text, format_, fields)) {
    return "'" + text + "' does not match the format '" + format_ + "'";
  }
  time = resolve(fields);
  if (time <= 0) return "'" + text + "' is not after the epoch";
  if (previous_ != 0) rising_ = time > previous_;
  previous_ = time;
  return "";
}

std::time_t RowClock::resolve(const std::tm& fields) const {
  const bool is_open = !use_utc_ && fields.tm_isdst < 0;
  const std::time_t summer = is_open ? with_daylight_saving(fields, 1) : -1;
  const std::time_t winter = is_open ? with_daylight_saving(fields, 0) : -1;
  if (summer == -1 || winter == -1) return to_epoch(fields, use_utc_);
  const auto [first, second] = std::minmax(summer, winter);
  if (previous_ == 0) return second;
  if (rising_ || first > previous_) return first > previous_ ? first : second;
  return second < previous_ ? second : first;
}
