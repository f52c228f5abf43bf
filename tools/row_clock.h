// The times of rows that follow one another.
#pragma once

#include <ctime>
#include <string>

/// Converts the dates and times of rows, one after another.
///
/// In local time, the hour in which daylight saving ends comes twice. As long as the rows stand in
/// order of time, either way, each of them gets the one of the two times that keeps the order.
class RowClock {
 public:
  /// `format` is for strptime.
  RowClock(std::string format, bool use_utc);

  /// Converts `text`, a date and a time joined by a blank, to seconds since the epoch. Returns what
  /// is wrong with it, nothing for a good one.
  [[nodiscard]] std::string convert(const std::string& text, std::time_t& time);

 private:
  [[nodiscard]] std::time_t resolve(const std::tm& fields) const;

  std::string format_;
  bool use_utc_;
  std::time_t previous_ = 0;  ///< 0 before the first row
  bool rising_ = false;       ///< whether the last two rows stood oldest first
};
