// The times of rows that follow one another.
#pragma once

#include <ctime>
#include <string>
#include <string_view>

#include "text/calendar.h"

/// Converts the dates and times of rows, one after another.
///
/// In local time, the hour in which daylight saving ends comes twice. As long as the rows stand in
/// order of time, either way, each of them gets the one of the two times that keeps the order.
class RowClock {
 public:
  /// `format` is for strptime.
  RowClock(std::string format, bool use_utc);

  /// Shows the clock the rows to come, in their order, before any is converted. Where the first
  /// ones lie in an hour that comes twice, only later ones tell which way the rows run. Returns
  /// whether it should see another.
  bool look_ahead(const std::string& text);

  /// Converts `text`, a date and a time joined by a blank, to seconds since the epoch. Returns what
  /// is wrong with it, nothing for a good one.
  [[nodiscard]] std::string convert(const std::string& text, std::time_t& time);

 private:
  [[nodiscard]] bool convert_on_kept_day(std::string_view text, std::time_t& time) const;
  void keep_day(std::string_view text, std::time_t time);
  void follow(std::time_t time);
  [[nodiscard]] std::time_t resolve(std::time_t first, std::time_t second) const;

  std::string format_;
  bool use_utc_;
  Calendar calendar_;
  std::string date_;           ///< of the day that is kept, as it is written in rows
  std::time_t day_start_ = 0;  ///< its first second; 0 where no day is kept
  std::time_t previous_ = 0;   ///< 0 before the first row
  bool rising_ = false;        ///< whether the rows seem to stand oldest first
  std::time_t ahead_ = 0;      ///< the later of the two times of the row looked at last
  long rises_ = 0;             ///< among the rows looked at, how many more rise than fall
};
