// Times as dates and times of day.
#pragma once

#include <ctime>

/// Breaks times down into calendar fields. The process's time zone must stay the same for as long
/// as a calendar is in use.
///
/// Rows that follow one another often lie in the same hour. A calendar keeps the hour of the last
/// ones, so that minutes and seconds are all that is left to work out.
class Calendar {
 public:
  /// The fields of `time`, in seconds since the epoch, as gmtime_r gives them for `use_utc`, and
  /// otherwise localtime_r.
  [[nodiscard]] std::tm fields_at(std::time_t time, bool use_utc);

 private:
  /// How much is known of the hour that is kept.
  enum class Hour { NONE, BEGIN, EVEN };

  std::time_t begin_ = 0;   ///< when the hour began
  std::tm fields_ = {};     ///< of a time in the hour
  bool use_utc_ = false;    ///< what they were asked for
  Hour hour_ = Hour::NONE;  ///< EVEN where all of it has the same offset from UTC
};
