#include "text/calendar.h"

#include <cstdlib>
#include <cstring>
#include <limits>

namespace {

constexpr std::time_t DAY_LENGTH = 86400;

std::tm ask_library(std::time_t time, bool use_utc) {
  std::tm fields = {};
  if (use_utc) {
    gmtime_r(&time, &fields);
  } else {
    localtime_r(&time, &fields);
  }
  return fields;
}

bool has_same_offset(const std::tm& a, const std::tm& b) {
  return a.tm_gmtoff == b.tm_gmtoff && a.tm_isdst == b.tm_isdst && a.tm_zone == b.tm_zone;
}

}  // namespace

Calendar::Calendar() {
  const char* zone = std::getenv("TZ");
  has_spelled_out_zone_ = zone != nullptr && std::strchr(zone, ',') != nullptr;
}

std::tm Calendar::fields_at(std::time_t time, bool use_utc) {
  const bool is_kept =
      day_ != Day::NONE && use_utc == use_utc_ && time >= begin_ && time - begin_ < DAY_LENGTH;
  if (is_kept && day_ == Day::BEGIN) {
    // The second time on this day, so that more may follow. A day that has the same offset at both
    // its ends has it throughout: no zone of the time zone database changes twice within three
    // days. One that is spelled out with its rules might.
    const bool is_even = (use_utc || !has_spelled_out_zone_) &&
                         has_same_offset(fields_, ask_library(begin_, use_utc)) &&
                         has_same_offset(fields_, ask_library(begin_ + DAY_LENGTH - 1, use_utc));
    day_ = is_even ? Day::EVEN : Day::NONE;
  }
  if (is_kept && day_ == Day::EVEN) {
    const auto seconds = static_cast<int>(time - begin_);
    std::tm fields = fields_;
    fields.tm_hour = seconds / 3600;
    fields.tm_min = seconds / 60 % 60;
    fields.tm_sec = seconds % 60;
    return fields;
  }
  const std::tm fields = ask_library(time, use_utc);
  constexpr std::time_t LATEST = std::numeric_limits<std::time_t>::max() - DAY_LENGTH;
  day_ = time >= DAY_LENGTH && time <= LATEST ? Day::BEGIN : Day::NONE;
  const int time_of_day = 3600 * fields.tm_hour + 60 * fields.tm_min + fields.tm_sec;
  begin_ = day_ == Day::NONE ? 0 : time - time_of_day;
  fields_ = fields;
  use_utc_ = use_utc;
  return fields;
}
