#include "trendtool/common/times.h"

#include <algorithm>
#include <charconv>
#include <chrono>
#include <cstdint>
#include <limits>
#include <optional>
#include <system_error>
#include <utility>

#include "text/calendar.h"
#include "text/csv.h"

namespace {

constexpr std::int64_t MINUTE = 60;
constexpr std::int64_t HOUR = 60 * MINUTE;
constexpr std::int64_t DAY = 24 * HOUR;

constexpr const char* NOT_A_TIME =
    " is not a time; use 2010-11-01, 2010-11-01T12:30, 2010-11-01T12:30:00Z, @1288614600, -7d, "
    "-12h "
    "or now";
constexpr const char* CANNOT_REPRESENT = " is a time that this system can't represent";

/// What is left of a text that is read from its start.
class Rest {
 public:
  explicit Rest(std::string_view text) : text_(text) {}

  [[nodiscard]] bool is_empty() const { return text_.empty(); }
  /// Takes one character of `wanted`. Returns it, or 0 if the text does not start with one.
  char take(std::string_view wanted) {
    if (text_.empty() || wanted.find(text_.front()) == wanted.npos) return 0;
    const char c = text_.front();
    text_.remove_prefix(1);
    return c;
  }
  /// Takes a number of exactly `size` digits. Returns false if there is none.
  bool take_number(std::size_t size, int& number) {
    if (text_.size() < size) return false;
    const auto is_digit = [](char c) { return c >= '0' && c <= '9'; };
    if (!std::all_of(text_.begin(), text_.begin() + static_cast<std::ptrdiff_t>(size), is_digit)) {
      return false;
    }
    std::from_chars(text_.data(), text_.data() + size, number);
    text_.remove_prefix(size);
    return true;
  }

 private:
  std::string_view text_;
};

/// A date and time of day as a clock shows it.
struct WallTime {
  std::int64_t seconds = 0;            ///< since the epoch, for a clock in UTC without leap seconds
  bool is_leap_second = false;         ///< the 61st of a minute; `seconds` is then the next second
  std::optional<std::int64_t> offset;  ///< of the clock from UTC, where the text says it
};

bool read_date(Rest& rest, WallTime& wall) {
  int year = 0;
  int month = 0;
  int day = 0;
  if (!rest.take_number(4, year) || rest.take("-") == 0 || !rest.take_number(2, month) ||
      rest.take("-") == 0 || !rest.take_number(2, day)) {
    return false;
  }
  const std::chrono::year_month_day date(std::chrono::year(year),
                                         std::chrono::month(static_cast<unsigned>(month)),
                                         std::chrono::day(static_cast<unsigned>(day)));
  wall.seconds = DAY * std::chrono::sys_days(date).time_since_epoch().count();
  return date.ok();
}

bool read_time_of_day(Rest& rest, WallTime& wall) {
  int hour = 0;
  int minute = 0;
  int second = 0;
  if (!rest.take_number(2, hour) || rest.take(":") == 0 || !rest.take_number(2, minute) ||
      (rest.take(":") != 0 && !rest.take_number(2, second))) {
    return false;
  }
  wall.seconds += HOUR * hour + MINUTE * minute + second;
  wall.is_leap_second = second == 60;
  return hour < 24 && minute < 60 && second <= 60;
}

bool read_offset(Rest& rest, WallTime& wall) {
  if (rest.is_empty()) return true;
  if (rest.take("Zz") != 0) {
    wall.offset = 0;
    return true;
  }
  const char sign = rest.take("+-");
  int hour = 0;
  int minute = 0;
  if (sign == 0 || !rest.take_number(2, hour)) return false;
  rest.take(":");
  if (!rest.is_empty() && !rest.take_number(2, minute)) return false;
  wall.offset = (sign == '-' ? -1 : 1) * (HOUR * hour + MINUTE * minute);
  return hour < 24 && minute < 60;
}

bool read_iso_8601(std::string_view text, WallTime& wall) {
  Rest rest(text);
  if (!read_date(rest, wall)) return false;
  if (rest.is_empty()) return true;
  return rest.take("Tt ") != 0 && read_time_of_day(rest, wall) && read_offset(rest, wall) &&
         rest.is_empty();
}

bool read_whole_number(std::string_view text, std::int64_t& number) {
  const auto [stop, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  return error == std::errc() && stop == text.data() + text.size();
}

/// Reads the part of "-7d" after the sign: how many seconds before now.
bool read_age(std::string_view text, std::int64_t& age) {
  constexpr std::int64_t LONGEST = std::int64_t{1} << 40;
  if (text.size() < 2 || text.front() == '-') return false;
  std::int64_t unit = 0;
  switch (text.back()) {
    case 's':
      unit = 1;
      break;
    case 'm':
      unit = MINUTE;
      break;
    case 'h':
      unit = HOUR;
      break;
    case 'd':
      unit = DAY;
      break;
    case 'w':
      unit = 7 * DAY;
      break;
    default:
      return false;
  }
  if (!read_whole_number(text.substr(0, text.size() - 1), age) || age > LONGEST) return false;
  age *= unit;
  return true;
}

/// What a clock shows at `time`. Where time_t has 32 bits, it shows no other times than those.
std::tm fields_at(std::int64_t time, bool use_utc) {
  const auto seconds = static_cast<std::time_t>(std::clamp<std::int64_t>(
      time, std::numeric_limits<std::time_t>::min(), std::numeric_limits<std::time_t>::max()));
  std::tm fields = {};
  use_utc ? gmtime_r(&seconds, &fields) : localtime_r(&seconds, &fields);
  return fields;
}

/// Finds the time at which a clock in UTC shows `wall`. It is `wall` itself, except in time zones
/// that count leap seconds, in which the C library counts them in UTC, too.
std::int64_t find_utc_time(std::int64_t wall) {
  std::int64_t time = wall;
  // From the first step to the second, there is at most one leap second more.
  for (int step = 0; step < 2; ++step) time += wall - to_wall_seconds(fields_at(time, true));
  // A leap second has the number of the second after it.
  return fields_at(time, true).tm_sec == 60 ? time + 1 : time;
}

/// Finds the time at which a local clock shows `wall`. Returns nothing if none does.
std::optional<std::int64_t> find_local_time(std::int64_t wall, Bound bound) {
  std::optional<std::int64_t> found;
  // The offsets a day before and a day after are those before and after a change of the clock.
  for (const std::int64_t near : {wall - DAY, wall + DAY}) {
    const std::int64_t time = find_utc_time(wall - fields_at(near, false).tm_gmtoff);
    if (to_wall_seconds(fields_at(time, false)) != wall) continue;
    const bool is_better = !found || (bound == Bound::START ? time < *found : time > *found);
    if (is_better) found = time;
  }
  return found;
}

/// Finds the time that `wall` shows. Returns what is wrong with `text`, from which it was read, or
/// an empty text.
std::string find_time(std::string_view text, const WallTime& wall, bool use_utc, Bound bound,
                      std::int64_t& time) {
  const bool is_local = !use_utc && !wall.offset;
  const std::optional<std::int64_t> found =
      is_local ? find_local_time(wall.seconds, bound)
               : find_utc_time(wall.seconds - wall.offset.value_or(0));
  if (!found) return quote(text) + " does not exist in this time zone; the clock skips it";
  time = *found;
  if (!wall.is_leap_second) return "";
  --time;
  return fields_at(time, true).tm_sec == 60 ? "" : quote(text) + NOT_A_TIME;
}

}  // namespace

std::string read_time(std::string_view text, Bound bound, bool use_utc, std::time_t now,
                      std::time_t& time) {
  std::int64_t seconds = 0;
  std::int64_t age = 0;
  WallTime wall;
  if (text == "now") {
    seconds = now;
  } else if (text.starts_with('@') && read_whole_number(text.substr(1), seconds)) {
    // That is the time.
  } else if (text.starts_with('-') && read_age(text.substr(1), age)) {
    seconds = now - age;
  } else if (!read_iso_8601(text, wall)) {
    return quote(text) + NOT_A_TIME;
  } else if (std::string wrong = find_time(text, wall, use_utc, bound, seconds); !wrong.empty()) {
    return wrong;
  }
  // Where time_t has 64 bits, it holds whatever can be written so.
  if (!std::in_range<std::time_t>(seconds)) return quote(text) + CANNOT_REPRESENT;
  time = static_cast<std::time_t>(seconds);
  return "";
}

std::string read_range(const std::string& start, const std::string& end, bool use_utc,
                       std::pair<long, long>& range) {
  const std::time_t now = std::time(nullptr);
  const auto read = [&](const std::string& text, Bound bound, long& time) -> std::string {
    constexpr long NO_BOUND = -1;
    time = NO_BOUND;
    if (text.empty()) return "";
    std::time_t seconds = 0;
    std::string wrong = read_time(text, bound, use_utc, now, seconds);
    // No row is earlier than the epoch, and -1 stands for no bound.
    if (wrong.empty()) time = std::max(static_cast<long>(seconds), 0L);
    return wrong;
  };
  std::string wrong = read(start, Bound::START, range.first);
  if (wrong.empty()) wrong = read(end, Bound::END, range.second);
  if (wrong.empty() && !start.empty() && !end.empty() && range.second < range.first) {
    wrong = "the end " + quote(end) + " is before the start " + quote(start);
  }
  return wrong;
}
