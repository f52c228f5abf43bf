#include "trendtool/plot/ticks.h"

#include <algorithm>
#include <ctime>
#include <limits>

#include "text/calendar.h"
#include "text/time_text.h"

namespace {

enum class Unit { SECOND, DAY, MONTH };

/// The distance of two ticks.
struct Step {
  Unit unit;
  std::int64_t count;
};

constexpr std::int64_t MINUTE = 60;
constexpr std::int64_t HOUR = 60 * MINUTE;
constexpr std::int64_t DAY = 24 * HOUR;

constexpr Step STEPS[] = {{Unit::SECOND, 1},
                          {Unit::SECOND, 5},
                          {Unit::SECOND, 10},
                          {Unit::SECOND, 30},
                          {Unit::SECOND, MINUTE},
                          {Unit::SECOND, 2 * MINUTE},
                          {Unit::SECOND, 5 * MINUTE},
                          {Unit::SECOND, 10 * MINUTE},
                          {Unit::SECOND, 15 * MINUTE},
                          {Unit::SECOND, 30 * MINUTE},
                          {Unit::SECOND, HOUR},
                          {Unit::SECOND, 2 * HOUR},
                          {Unit::SECOND, 3 * HOUR},
                          {Unit::SECOND, 6 * HOUR},
                          {Unit::SECOND, 12 * HOUR},
                          {Unit::DAY, 1},
                          {Unit::DAY, 2},
                          {Unit::DAY, 7},
                          {Unit::DAY, 14},
                          {Unit::MONTH, 1},
                          {Unit::MONTH, 2},
                          {Unit::MONTH, 3},
                          {Unit::MONTH, 6},
                          {Unit::MONTH, 12},
                          {Unit::MONTH, 24},
                          {Unit::MONTH, 60},
                          {Unit::MONTH, 120},
                          {Unit::MONTH, 240},
                          {Unit::MONTH, 600},
                          {Unit::MONTH, 1200},
                          {Unit::MONTH, 6000},
                          {Unit::MONTH, 12000},
                          {Unit::MONTH, 60000}};

std::int64_t remainder(std::int64_t number, std::int64_t divisor) {
  return ((number % divisor) + divisor) % divisor;
}

/// The calendar of the axis.
class Clock {
 public:
  explicit Clock(bool use_utc) : use_utc_(use_utc) {}

  [[nodiscard]] std::tm fields_at(std::int64_t time) const {
    const auto seconds = static_cast<std::time_t>(std::clamp<std::int64_t>(
        time, std::numeric_limits<std::time_t>::min(), std::numeric_limits<std::time_t>::max()));
    std::tm fields = {};
    use_utc_ ? gmtime_r(&seconds, &fields) : localtime_r(&seconds, &fields);
    return fields;
  }

  /// The first second of the day `day` of a month, which may be beyond the month's end.
  [[nodiscard]] std::int64_t day_start(int year, int month, int day) const {
    std::tm fields = {};
    fields.tm_year = year;
    fields.tm_mon = month;
    fields.tm_mday = day;
    fields.tm_isdst = -1;
    return use_utc_ ? timegm(&fields) : std::mktime(&fields);
  }

 private:
  bool use_utc_;
};

/// The first time from `time` on that is a multiple of `step` seconds on the clock.
std::int64_t round_up_seconds(std::int64_t time, std::int64_t step, const Clock& clock) {
  const auto offset_at = [&](std::int64_t t) { return clock.fields_at(t).tm_gmtoff; };
  const auto past_at = [&](std::int64_t t) {
    return remainder(to_wall_seconds(clock.fields_at(t)), step);
  };
  if (past_at(time) == 0) return time;
  const std::int64_t next = time + step - past_at(time);
  if (past_at(next) == 0) return next;
  // The clock has changed in between.
  const std::int64_t corrected = next + offset_at(time) - offset_at(next);
  return corrected > time && past_at(corrected) == 0 ? corrected : next;
}

/// The first start of a day from `time` on whose number can be divided by `step`.
std::int64_t round_up_days(std::int64_t time, std::int64_t step, const Clock& clock) {
  // The first day is a Monday, so that weeks start on Mondays.
  constexpr std::int64_t FIRST_DAY = 4;
  const std::tm fields = clock.fields_at(time);
  const std::int64_t day = to_wall_seconds(fields) / DAY;
  const auto past = static_cast<int>(remainder(day - FIRST_DAY, step));
  const std::int64_t start = clock.day_start(fields.tm_year, fields.tm_mon, fields.tm_mday - past);
  if (start >= time) return start;
  return clock.day_start(fields.tm_year, fields.tm_mon,
                         fields.tm_mday - past + static_cast<int>(step));
}

/// The first start of a month from `time` on whose number can be divided by `step`, counted from
/// the year 0.
std::int64_t round_up_months(std::int64_t time, std::int64_t step, const Clock& clock) {
  constexpr std::int64_t FIRST_YEAR = 1900;
  constexpr std::int64_t YEAR = 12;
  const std::tm fields = clock.fields_at(time);
  const std::int64_t month = YEAR * (FIRST_YEAR + fields.tm_year) + fields.tm_mon;
  const auto past = static_cast<int>(remainder(month, step));
  const std::int64_t start = clock.day_start(fields.tm_year, fields.tm_mon - past, 1);
  if (start >= time) return start;
  return clock.day_start(fields.tm_year, fields.tm_mon - past + static_cast<int>(step), 1);
}

std::int64_t round_up(std::int64_t time, const Step& step, const Clock& clock) {
  if (step.unit == Unit::SECOND) return round_up_seconds(time, step.count, clock);
  if (step.unit == Unit::DAY) return round_up_days(time, step.count, clock);
  return round_up_months(time, step.count, clock);
}

std::string format(const char* pattern, const std::tm& fields) {
  char text[MAX_TIME_TEXT];
  return {text, format_time(pattern, fields, text)};
}

Tick make_tick(std::int64_t time, const Step& step, const Clock& clock) {
  const std::tm fields = clock.fields_at(time);
  if (step.unit == Unit::SECOND) {
    return {time, format(step.count < MINUTE ? "%H:%M:%S" : "%H:%M", fields),
            format("%-d %b %Y", fields)};
  }
  if (step.unit == Unit::DAY) return {time, format("%-d %b", fields), format("%Y", fields)};
  if (step.count < 12) return {time, format("%b", fields), format("%Y", fields)};
  return {time, format("%Y", fields), ""};
}

/// The length of a step, or a little less.
std::int64_t step_seconds(const Step& step) {
  constexpr std::int64_t SHORTEST_MONTH = 28 * DAY;
  if (step.unit == Unit::SECOND) return step.count;
  if (step.unit == Unit::DAY) return step.count * DAY - HOUR;
  return step.count * SHORTEST_MONTH;
}

}  // namespace

std::vector<Tick> make_ticks(std::int64_t start, std::int64_t end, std::size_t most, bool use_utc) {
  const Clock clock(use_utc);
  std::vector<Tick> ticks;
  for (const Step& step : STEPS) {
    ticks.clear();
    // At first a quick look: there may be millions of seconds.
    if ((end - start) / step_seconds(step) > 2 * static_cast<std::int64_t>(most)) continue;
    for (std::int64_t time = round_up(start, step, clock); time <= end && ticks.size() <= most;
         time = round_up(time + 1, step, clock)) {
      ticks.push_back(make_tick(time, step, clock));
    }
    if (ticks.size() <= most) break;
  }
  if (ticks.size() > most) ticks.clear();
  // The date stands at the first of the ticks that have it in common.
  for (std::size_t i = ticks.size(); i-- > 1;) {
    if (ticks[i].date_text == ticks[i - 1].date_text) ticks[i].date_text.clear();
  }
  return ticks;
}

std::string zone_name(std::int64_t start, std::int64_t end, bool use_utc) {
  if (use_utc) return "UTC";
  // The clock of most zones changes twice a year. Steps of a third of a year see both names.
  constexpr std::int64_t LONGEST_STEP = 120 * DAY;
  const Clock clock(use_utc);
  std::string first = clock.fields_at(start).tm_zone;
  for (std::int64_t time = start; time < end;) {
    time = std::min(time + LONGEST_STEP, end);
    const std::string name = clock.fields_at(time).tm_zone;
    if (name == first) continue;
    std::string both = first;
    both += "/";
    both += name;
    return both;
  }
  return first;
}
