// Times as ISO 8601 has them.
#pragma once

#include <ctime>
#include <string>

#include "text/calendar.h"
#include "text/time_text.h"

/// Writes times, one after another, in UTC or in the time zone of the process. That zone must not
/// change meanwhile.
class IsoClock {
 public:
  explicit IsoClock(bool use_utc) : use_utc_(use_utc) {}

  /// Writes `time` like "2010-11-01T12:30:00+01:00" into `text`, a buffer of MAX_TIME_TEXT bytes.
  /// Returns the end of the text. In UTC there is a "Z" in the place of the offset, also where the
  /// local offset is not a whole number of minutes: the text always stands for exactly this time.
  char* write(std::time_t time, char* text);

  /// Returns the same as a text.
  [[nodiscard]] std::string text_of(std::time_t time);

 private:
  bool use_utc_;
  Calendar calendar_;
};
