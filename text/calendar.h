// Times as dates and times of day.
#pragma once

#include <ctime>

/// Breaks times down into calendar fields. The process's time zone must stay the same for as long
/// as a calendar is in use.
///
/// Rows that follow one another often lie on the same day. A calendar keeps the day of the last
/// ones, so that the time of day is all that is left to work out.
class Calendar {
 public:
  Calendar();

  /// The fields of `time`, in seconds since the epoch, as gmtime_r gives them for `use_utc`, and
  /// otherwise localtime_r.
  [[nodiscard]] std::tm fields_at(std::time_t time, bool use_utc);

 private:
  /// How much is known of the day that is kept.
  enum class Day { NONE, STARTED, EVEN };

  bool has_spelled_out_zone_;
  std::time_t start_ = 0;  ///< the first second of the day
  std::tm fields_ = {};    ///< of a time on the day
  bool use_utc_ = false;   ///< what they were asked for
  Day day_ = Day::NONE;    ///< EVEN where it is known to have 86,400 seconds
};
