#include "trendlog/calendar.h"

#include <cstdlib>
#include <cstring>
#include <limits>

namespace {

constexpr std::time_t HOUR = 3600;

std::tm ask_library(std::time_t time, bool use_utc) {
  std::tm fields = {};
  if (use_utc) {
    gmtime_r(&time, &fields);
  } else {
    localtime_r(&time, &fields);
  }
  return fields;
}

/// Whether an hour with the same offset from UTC at its begin and its end has it throughout. No
/// zone of the time zone database changes twice within an hour; one spelled out with rules might.
bool shows_at_its_ends(bool use_utc) {
  const char* zone = std::getenv("TZ");
  return use_utc || zone == nullptr || std::strchr(zone, ',') == nullptr;
}

bool has_same_offset(const std::tm& a, const std::tm& b) {
  return a.tm_gmtoff == b.tm_gmtoff && a.tm_isdst == b.tm_isdst && a.tm_zone == b.tm_zone;
}

}  // namespace

std::tm Calendar::fields_at(std::time_t time, bool use_utc) {
  const bool is_kept =
      hour_ != Hour::NONE && use_utc == use_utc_ && time >= begin_ && time - begin_ < HOUR;
  if (is_kept && hour_ == Hour::BEGIN) {
    // The second time in this hour, so that more may follow.
    const bool is_even = shows_at_its_ends(use_utc) &&
                         has_same_offset(fields_, ask_library(begin_, use_utc)) &&
                         has_same_offset(fields_, ask_library(begin_ + HOUR - 1, use_utc));
    hour_ = is_even ? Hour::EVEN : Hour::NONE;
  }
  if (is_kept && hour_ == Hour::EVEN) {
    const auto seconds = static_cast<int>(time - begin_);
    std::tm fields = fields_;
    fields.tm_min = seconds / 60;
    fields.tm_sec = seconds % 60;
    return fields;
  }
  const std::tm fields = ask_library(time, use_utc);
  constexpr std::time_t LATEST = std::numeric_limits<std::time_t>::max() - HOUR;
  hour_ = time >= HOUR && time <= LATEST ? Hour::BEGIN : Hour::NONE;
  begin_ = hour_ == Hour::NONE ? 0 : time - 60 * fields.tm_min - fields.tm_sec;
  fields_ = fields;
  use_utc_ = use_utc;
  return fields;
}
