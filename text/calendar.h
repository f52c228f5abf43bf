// Times as dates and times of day.
#pragma once

#include <cstdint>
#include <ctime>

/// Returns the seconds from the start of 1970 to the date and time that `fields` show, as if no day
/// had a leap second. The 61st second of a minute counts as the first one of the next. Uses the day
/// of the year, not month and day.
[[nodiscard]] std::int64_t to_wall_seconds(const std::tm& fields);

/// Converts times to calendar fields. The time zone of the process must not change while a calendar
/// is in use.
///
/// Rows that follow one another are often on the same day. A calendar keeps the date of the last
/// row, so that only the time of day is to be calculated.
class Calendar {
 public:
  Calendar();

  /// Returns the fields of `time`, which is in seconds since the epoch: those of gmtime_r with
  /// `use_utc`, and those of localtime_r without.
  [[nodiscard]] std::tm fields_at(std::time_t time, bool use_utc);

  /// Returns the first second of the day that is kept, if the time of day is all that is to be
  /// calculated on it, otherwise 0. A day is kept so after two calls for times on it.
  [[nodiscard]] std::time_t even_day_start() const { return day_ == Day::EVEN ? start_ : 0; }

 private:
  /// What is known of the day that is kept: no day is, one time on it was asked for, or the day is
  /// known to have 86,400 seconds and one offset from UTC.
  enum class Day { NONE, STARTED, EVEN };

  bool has_spelled_out_zone_;
  std::time_t start_ = 0;  ///< the first second of the day
  std::tm fields_ = {};    ///< of a time on the day
  bool use_utc_ = false;   ///< whether these are fields in UTC
  Day day_ = Day::NONE;    ///< of the day that starts at `start_`
};
