// Times as text: what is read, printed and kept, against strptime, strftime, mktime and localtime_r
// of the C library.
#include "trendtool/common/times.h"

#include <fuzzer/FuzzedDataProvider.h>

#include <array>
#include <ctime>

#include "tests/fuzz/fuzz.h"
#include "tests/support/time_zone.h"
#include "text/calendar.h"
#include "text/input_time.h"
#include "text/time_text.h"
#include "trendtool/common/iso_time.h"

namespace {

/// Zones with usual and unusual changes of the clock, by their rules and from the database of
/// zones.
constexpr std::array ZONES = {TimeZone::UTC,
                              TimeZone::CENTRAL_EUROPE,
                              TimeZone::INDIA,
                              "EST5EDT,M3.2.0,M11.1.0",
                              "LHST-10:30LHDT-11,M10.1.0,M4.1.0",
                              "Europe/Berlin",
                              "America/St_Johns",
                              "Australia/Lord_Howe",
                              "Pacific/Apia",
                              "Africa/Monrovia",
                              "right/Europe/London"};

std::tm ask_library(std::time_t time, bool use_utc) {
  std::tm fields = {};
  use_utc ? gmtime_r(&time, &fields) : localtime_r(&time, &fields);
  return fields;
}

std::string print(const std::string& format, const std::tm& fields) {
  std::array<char, MAX_TIME_TEXT> text;
  return {text.data(), std::strftime(text.data(), text.size(), format.c_str(), &fields)};
}

/// Whether the year of `fields` has four digits.
bool is_usual(const std::tm& fields) {
  return fields.tm_year >= 1000 - 1900 && fields.tm_year <= 9999 - 1900;
}

/// What the calendar keeps of a day never changes what it returns.
void check_calendar(const std::vector<std::time_t>& times, bool use_utc) {
  Calendar calendar;
  for (const std::time_t time : times) {
    const std::tm kept = calendar.fields_at(time, use_utc);
    const std::tm fields = ask_library(time, use_utc);
    const std::string what = "a calendar is wrong at " + std::to_string(time);
    const std::string format = "%Y-%m-%d %H:%M:%S %j %w %z %Z";
    demand_equal(print(format, kept), print(format, fields), what);
    demand(kept.tm_isdst == fields.tm_isdst, what);
  }
}

/// Any format prints what strftime prints.
void check_format(const std::string& format, const std::tm& fields) {
  std::array<char, MAX_TIME_TEXT> text;
  const char* end = format_time(format, fields, text.data());
  demand_equal({text.data(), static_cast<std::size_t>(end - text.data())}, print(format, fields),
               "strftime prints another time for '" + format + "'");
}

/// A printed time is read as a time that prints the same.
void check_round_trip(std::time_t time, const std::tm& fields, bool use_utc) {
  if (!is_usual(fields)) return;
  const std::string format = "%F %T";
  const std::string text = print(format, fields);
  std::tm parsed;
  demand(parse_time(text, format, parsed), "can't read " + text);
  const std::tm again = ask_library(to_epoch(parsed, use_utc), use_utc);
  demand_equal(print(format, again), text, "a time is read as another one");

  const std::string iso = IsoClock(use_utc).text_of(time);
  std::time_t read = 0;
  const std::string wrong = read_time(iso, Bound::START, false, 0, read);
  demand(wrong.empty(), wrong);
  demand_equal(IsoClock(use_utc).text_of(read), iso, "a time in ISO 8601 is read as another one");
}

/// What a user types is a time if the clock shows that time, and then this time.
void check_typed(const std::string& text, bool use_utc) {
  std::time_t first = 0;
  std::time_t last = 0;
  const bool is_read = read_time(text, Bound::START, use_utc, 1'290'000'000, first).empty();
  demand(is_read == read_time(text, Bound::END, use_utc, 1'290'000'000, last).empty(),
         "a text is a time as a start or as an end only: " + text);
  if (is_read) demand(first <= last, "a start is later than its end: " + text);

  const char* const format = text.size() == 10   ? "%Y-%m-%d"
                             : text.size() == 16 ? "%Y-%m-%dT%H:%M"
                             : text.size() == 19 ? "%Y-%m-%dT%H:%M:%S"
                                                 : nullptr;
  std::tm parsed;
  if (format == nullptr || !parse_time(text, format, parsed)) return;
  const std::time_t expected = to_epoch(parsed, use_utc);
  if (!is_usual(parsed)) return;
  if (print(format, ask_library(expected, use_utc)) == text) {
    demand(is_read, "a time is refused: " + text);
    demand(first <= expected && expected <= last, "a time is read wrong: " + text);
  }
  if (!is_read) return;
  for (const std::time_t time : {first, last}) {
    demand_equal(print(format, ask_library(time, use_utc)), text, "a time is read as another");
  }
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  FuzzedDataProvider input(data, size);
  const char* const name = input.PickValueInArray(ZONES);
  const TimeZone zone(name);
  const bool use_utc = input.ConsumeBool();
  const std::string rest = input.ConsumeRandomLengthString(64);
  const std::string format = rest.c_str();  // an argument ends at its first NUL
  const std::string typed = input.ConsumeRandomLengthString(32);
  std::vector<std::time_t> times = {0};
  while (input.remaining_bytes() > 0 && times.size() < 16) {
    std::time_t time = times.back();
    if (input.ConsumeBool()) {
      time += input.ConsumeIntegralInRange<std::int32_t>(-100'000, 100'000);
    } else {
      // Up to the year 9999, or any that localtime_r can show.
      time = input.ConsumeBool()
                 ? input.ConsumeIntegralInRange<std::int64_t>(0, 253'402'300'799)
                 : input.ConsumeIntegralInRange<std::int64_t>(-1LL << 55, 1LL << 55);
    }
    times.push_back(time);
  }
  check_calendar(times, use_utc);
  for (const std::time_t time : times) {
    const std::tm fields = ask_library(time, use_utc);
    check_format(format, fields);
    check_round_trip(time, fields, use_utc);
  }
  check_typed(typed, use_utc);
  return 0;
}
