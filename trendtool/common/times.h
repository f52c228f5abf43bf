// The times that users of trendtool type.
#pragma once

#include <ctime>
#include <string>
#include <string_view>
#include <utility>

/// Which end of a range of times is read.
enum class Bound { START, END };

/// Sets `time` to the time, in seconds since the epoch, that `text` stands for: a date like
/// "2010-11-01", which is its first second; a date and a time of day like "2010-11-01T12:30" or
/// "2010-11-01 12:30:15", also with "Z" or an offset like "+01:00"; seconds since the epoch like
/// "@1288612800"; "now"; or a time before `now` like "-7d" (units: s, m, h, d, w).
///
/// Times without "Z" or an offset are in UTC with `use_utc`, and otherwise in the time zone of the
/// process. A time that a clock shows twice is the earlier one for a start and the later one for an
/// end. Returns what is wrong with `text`, or an empty text.
[[nodiscard]] std::string read_time(std::string_view text, Bound bound, bool use_utc,
                                    std::time_t now, std::time_t& time);

/// Sets `range` to the range of times from `start` to `end` for `CLog::get_trend_data`. An empty
/// text stands for no bound. Returns what is wrong with a text, or an empty text.
[[nodiscard]] std::string read_range(const std::string& start, const std::string& end, bool use_utc,
                                     std::pair<long, long>& range);
