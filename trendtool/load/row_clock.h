// Converts the times of successive rows.
#pragma once

#include <ctime>
#include <string>
#include <string_view>

#include "text/calendar.h"

/// Converts the dates and times of rows, one after another.
///
/// In local time, one hour is repeated when daylight saving time ends. If the rows are sorted by
/// time, ascending or descending, each row in that hour gets the one of the two times that keeps
/// the order.
class RowClock {
 public:
  /// `format` is for strptime.
  RowClock(std::string format, bool use_utc);

  /// Looks at a row before the first one is converted. To be called for the first rows in their
  /// order: if they are in a repeated hour, only later rows show whether the order is ascending.
  /// Returns whether the clock needs to see one more row.
  bool look_ahead(const std::string& text);

  /// Converts `text`, a date and a time separated by a space, to seconds since the epoch. Returns
  /// what is wrong with it, or an empty text.
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
  std::time_t day_start_ = 0;  ///< its first second; 0 if no day is kept
  std::time_t previous_ = 0;   ///< 0 before the first row
  bool rising_ = false;        ///< whether the rows seem to be in ascending order
  std::time_t ahead_ = 0;      ///< the later time of the row that was looked at last
  long rises_ = 0;             ///< rises minus falls among the rows looked at
};
