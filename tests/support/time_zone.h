// The time zone of this process.
#pragma once

#include <cstdlib>
#include <ctime>
#include <optional>
#include <string>

/// Sets the time zone while the object exists. The zones here contain their rules, so that no time
/// zone files are needed.
class TimeZone {
 public:
  explicit TimeZone(const char* zone) {
    if (const char* before = std::getenv("TZ")) before_ = before;
    set(zone);
  }
  ~TimeZone() { set(before_ ? before_->c_str() : nullptr); }
  TimeZone(const TimeZone&) = delete;
  TimeZone& operator=(const TimeZone&) = delete;

  static constexpr const char* UTC = "UTC0";
  static constexpr const char* CENTRAL_EUROPE = "CET-1CEST,M3.5.0,M10.5.0/3";
  static constexpr const char* INDIA = "<+0530>-5:30";

 private:
  static void set(const char* zone) {
    if (zone != nullptr) {
      setenv("TZ", zone, 1);
    } else {
      unsetenv("TZ");
    }
    tzset();
  }

  std::optional<std::string> before_;
};
