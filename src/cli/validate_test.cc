#include "cli/validate.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/support/streams.h"
#include "tests/support/time_zone.h"

namespace {

constexpr long HOUR = 3600;
/// 2024-01-01 00:00 in UTC.
constexpr long NEW_YEAR = 1704067200;
/// 2024-03-31 01:00 in UTC, when Central Europe goes from 2:00 to 3:00.
constexpr long SPRING = 1711846800;
/// 2024-10-27 01:00 in UTC, when Central Europe goes from 3:00 to 2:00.
constexpr long AUTUMN = 1729990800;

using Names = std::vector<std::string>;
using Numbers = std::vector<unsigned long>;

DumpOptions make_options() {
  DumpOptions options;
  options.db_path = "db";
  options.device = "dev";
  return options;
}

void expect_accepted(DumpOptions& options) {
  const ProcessResult result = capture([&] { return validate_options(options); });
  EXPECT_EQ(result.exit_status, 0);
  EXPECT_EQ(result.out + result.err, "");
}

void expect_refused(DumpOptions& options, const std::string& message) {
  const ProcessResult result = capture([&] { return validate_options(options); });
  EXPECT_EQ(result.exit_status, -1);
  EXPECT_EQ(result.err, message);
  EXPECT_EQ(result.out, "");
}

Names validated(const Names& params) {
  DumpOptions options = make_options();
  options.params = params;
  expect_accepted(options);
  return options.params;
}

Numbers validated(const Numbers& intervals) {
  DumpOptions options = make_options();
  options.intervals = intervals;
  expect_accepted(options);
  return options.intervals;
}

/// The start time that `text` is converted to with `format`.
long start_time(const std::string& text, const std::string& format = "", bool use_utc = false) {
  DumpOptions options = make_options();
  options.start_text = text;
  options.input_time_format = format;
  options.use_utc = use_utc;
  expect_accepted(options);
  EXPECT_EQ(options.end_time, -1);
  return options.start_time;
}

TEST(ValidateOptions, RequiresADatabaseBeforeADevice) {
  DumpOptions options;
  expect_refused(options, "Error: must supply a database name\n");
  options.device = "dev";
  expect_refused(options, "Error: must supply a database name\n");
}

TEST(ValidateOptions, RequiresADevice) {
  DumpOptions options;
  options.db_path = "db";
  expect_refused(options, "Error: must supply a device name\n");
}

TEST(ValidateOptions, SortsParametersByTheirBytes) {
  EXPECT_EQ(validated(Names{"b", "a/z", "B", "\xC3\xA4", "a"}),
            (Names{"B", "a", "a/z", "b", "\xC3\xA4"}));
}

TEST(ValidateOptions, KeepsDuplicateParametersAtTheEnd) {
  EXPECT_EQ(validated(Names{"b", "a", "b"}), (Names{"a", "b", "b"}));
  EXPECT_EQ(validated(Names{"a", "a", "b"}), (Names{"a", "b", "a"}));
  EXPECT_EQ(validated(Names{"a", "a", "a"}), (Names{"a", "a", "a"}));
  EXPECT_EQ(validated(Names{"a", "a", "b", "c"}), (Names{"a", "b", "c", "a"}));
  EXPECT_EQ(validated(Names{"a", "a", "b", "b", "c"}), (Names{"a", "b", "c", "b", "a"}));
  EXPECT_EQ(validated(Names{"a"}), (Names{"a"}));
}

TEST(ValidateOptions, SortsIntervalsByNumber) {
  EXPECT_EQ(validated(Numbers{60, 0}), (Numbers{0, 60}));
  EXPECT_EQ(validated(Numbers{1440, 60, 5}), (Numbers{5, 60, 1440}));
}

TEST(ValidateOptions, KeepsDuplicateIntervalsAtTheEnd) {
  EXPECT_EQ(validated(Numbers{300, 3600, 300}), (Numbers{300, 3600, 3600}));
  EXPECT_EQ(validated(Numbers{5, 5, 5, 60}), (Numbers{5, 60, 5, 60}));
  EXPECT_EQ(validated(Numbers{5, 60, 60}), (Numbers{5, 60, 60}));
  EXPECT_EQ(validated(Numbers{0, 0}), (Numbers{0, 0}));
}

TEST(ValidateOptions, FillsInTheDefaultFormats) {
  DumpOptions options = make_options();
  expect_accepted(options);
  EXPECT_EQ(options.input_time_format, "%F %R");
  EXPECT_EQ(options.output_date_format, "%F");
  EXPECT_EQ(options.output_time_format, "%R");
  EXPECT_EQ(options.start_time, -1);
  EXPECT_EQ(options.end_time, -1);
}

TEST(ValidateOptions, KeepsFormatsThatWereGiven) {
  DumpOptions options = make_options();
  options.input_time_format = "%d.%m.%Y";
  options.output_date_format = "no format at all";
  options.output_time_format = "%s";
  expect_accepted(options);
  EXPECT_EQ(options.input_time_format, "%d.%m.%Y");
  EXPECT_EQ(options.output_date_format, "no format at all");
  EXPECT_EQ(options.output_time_format, "%s");
}

TEST(ValidateOptions, ConvertsTimesInTheLocalZone) {
  const TimeZone zone(TimeZone::INDIA);
  EXPECT_EQ(start_time("2024-01-01 05:30"), NEW_YEAR);
}

TEST(ValidateOptions, ConvertsTimesInUtc) {
  const TimeZone zone(TimeZone::INDIA);
  EXPECT_EQ(start_time("2024-01-01 00:00", "", true), NEW_YEAR);
}

TEST(ValidateOptions, FindsOutIfDaylightSavingApplies) {
  const TimeZone zone(TimeZone::CENTRAL_EUROPE);
  EXPECT_EQ(start_time("2024-01-01 01:00"), NEW_YEAR);
  EXPECT_EQ(start_time("2024-03-31 01:59"), SPRING - 60);
  EXPECT_EQ(start_time("2024-03-31 03:00"), SPRING);
  EXPECT_EQ(start_time("2024-10-27 01:59"), AUTUMN - HOUR - 60);
  EXPECT_EQ(start_time("2024-10-27 03:00"), AUTUMN + HOUR);
}

TEST(ValidateOptions, LetsTheFormatSayIfDaylightSavingApplies) {
  const TimeZone zone(TimeZone::CENTRAL_EUROPE);
  // The same local time, before and after the clocks go back.
  EXPECT_EQ(start_time(std::to_string(AUTUMN - 60), "%s"), AUTUMN - 60);
  EXPECT_EQ(start_time(std::to_string(AUTUMN + HOUR - 60), "%s"), AUTUMN + HOUR - 60);
}

TEST(ValidateOptions, AcceptsSecondsIfTheFormatHasThem) {
  EXPECT_EQ(start_time("01.01.2024 00:00:07", "%d.%m.%Y %T", true), NEW_YEAR + 7);
}

TEST(ValidateOptions, AcceptsTimesBeforeTheEpoch) {
  EXPECT_EQ(start_time("1969-12-31 00:00", "", true), -86400);
}

TEST(ValidateOptions, ConvertsTheEndAlone) {
  DumpOptions options = make_options();
  options.use_utc = true;
  options.end_text = "2024-01-01 00:00";
  expect_accepted(options);
  EXPECT_EQ(options.start_time, -1);
  EXPECT_EQ(options.end_time, NEW_YEAR);
}

TEST(ValidateOptions, AcceptsAStartAfterTheEnd) {
  DumpOptions options = make_options();
  options.use_utc = true;
  options.start_text = "2024-01-01 01:00";
  options.end_text = "2024-01-01 00:00";
  expect_accepted(options);
  EXPECT_EQ(options.start_time, NEW_YEAR + HOUR);
  EXPECT_EQ(options.end_time, NEW_YEAR);
}

TEST(ValidateOptions, RefusesTimesThatDoNotMatchTheFormat) {
  for (const char* text : {"2024-01-01", "2024-01-01 00:00x", "2024-01-01 00:00 ", "yesterday",
                           "2024-13-01 00:00", "%s"}) {
    SCOPED_TRACE(text);
    DumpOptions options = make_options();
    options.start_text = text;
    expect_refused(options, "Error: can't convert start time '" + std::string(text) +
                                "' using input format '%F %R'\n");
    EXPECT_EQ(options.start_time, -1);
    options.start_text.clear();
    options.end_text = text;
    expect_refused(options, "Error: can't convert end time '" + std::string(text) +
                                "' using input format '%F %R'\n");
    EXPECT_EQ(options.end_time, -1);
  }
}

TEST(ValidateOptions, NamesTheFormatThatATimeDoesNotMatch) {
  DumpOptions options = make_options();
  options.input_time_format = "%d.%m.%Y";
  options.start_text = "2024-01-01 00:00";
  expect_refused(
      options,
      "Error: can't convert start time '2024-01-01 00:00' using input format '%d.%m.%Y'\n");
}

TEST(ValidateOptions, RefusesTheSecondBeforeTheEpoch) {
  DumpOptions options = make_options();
  options.use_utc = true;
  options.input_time_format = "%F %T";
  options.start_text = "1969-12-31 23:59:59";
  expect_refused(options, "Error: can't convert start time\n");
  options.start_text = "1970-01-01 00:00:00";
  options.end_text = "1969-12-31 23:59:59";
  expect_refused(options, "Error: can't convert end time\n");
  EXPECT_EQ(options.start_time, 0);
}

TEST(ValidateOptions, RefusesTimesThatTheCLibraryCannotHold) {
  if constexpr (sizeof(std::time_t) == 4) {
    DumpOptions options = make_options();
    options.start_text = "2100-01-01 00:00";
    expect_refused(options, "Error: can't convert start time\n");
  } else {
    EXPECT_EQ(start_time("2100-01-01 00:00", "", true), static_cast<long>(4102444800));
  }
}

TEST(ValidateOptions, KeepsChangesMadeBeforeABadTime) {
  DumpOptions options = make_options();
  options.use_utc = true;
  options.params = {"b", "a"};
  options.intervals = {60, 5};
  options.start_text = "2024-01-01 00:00";
  options.end_text = "never";
  expect_refused(options, "Error: can't convert end time 'never' using input format '%F %R'\n");
  EXPECT_EQ(options.params, (Names{"a", "b"}));
  EXPECT_EQ(options.intervals, (Numbers{5, 60}));
  EXPECT_EQ(options.output_date_format, "%F");
  EXPECT_EQ(options.start_time, NEW_YEAR);
}

TEST(ValidateOptions, ReportsABadStartBeforeABadEnd) {
  DumpOptions options = make_options();
  options.start_text = "a";
  options.end_text = "b";
  expect_refused(options, "Error: can't convert start time 'a' using input format '%F %R'\n");
}

}  // namespace
