// trendload reads what trendcsv prints, and a dump of the result has the same bytes.
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <sstream>

#include "tests/support/model.h"

namespace {

constexpr const char* STATION = "/station";

std::string example(const std::string& name) {
  return std::string(TRENDCSV_EXAMPLES) + "/" + name + ".csv";
}

std::vector<std::string> lines_of(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) lines.push_back(line);
  return lines;
}

class RoundTrip : public testing::Test {
 protected:
  /// Loads the CSV in `file` into `db`.
  static void load_file(const std::string& db, const std::string& file,
                        const std::string& minutes) {
    const ProcessResult result =
        run_tool("trendload", {"-x", db, "-d", STATION, "-i", minutes, "-u", file});
    ASSERT_EQ(result.exit_status, 0) << result.err;
  }

  static std::string dump(const std::string& db, std::vector<std::string> more) {
    std::vector<std::string> arguments = {"-x", db, "-d", STATION, "-u", "-pv"};
    arguments.insert(arguments.end(), more.begin(), more.end());
    ProcessResult result = run_tool("trendcsv", arguments);
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(result.exit_status, 1);
    return std::move(result.out);
  }

  TemporaryFolder folder_;
  std::string db_ = folder_.file("trend.db");
};

TEST_F(RoundTrip, DumpsTheHourlyExampleUnchanged) {
  load_file(db_, example("seattle-normals-60"), "60");
  const std::string wanted = read_file(example("seattle-normals-60"));
  ASSERT_EQ(lines_of(wanted).size(), 1440U);
  EXPECT_EQ(dump(db_, {"-a", "-i", "60", "-p", "pressure", "-p", "outdoor/wind", "-p",
                       "outdoor/temperature"}),
            wanted);
}

TEST_F(RoundTrip, DumpsTheDailyExampleUnchanged) {
  load_file(db_, example("seattle-normals-1440"), "1440");
  const std::string wanted = read_file(example("seattle-normals-1440"));
  EXPECT_EQ(dump(db_, {"-a", "-i", "1440", "-p", "pressure", "-p", "outdoor/wind", "-p",
                       "outdoor/temperature"}),
            wanted);
}

TEST_F(RoundTrip, DumpsTheObservedExampleUnchanged) {
  load_file(db_, example("seattle-observed-1440"), "1440");
  const std::string wanted = read_file(example("seattle-observed-1440"));
  EXPECT_EQ(dump(db_, {"-a", "-p", "wind", "-p", "rain", "-p", "air/temperature"}), wanted);
}

TEST_F(RoundTrip, PrintsHoursInsteadOfDaysIfHoursAreKept) {
  load_file(db_, example("seattle-normals-1440"), "1440");
  load_file(db_, example("seattle-normals-60"), "60");
  const std::vector<std::string> days = lines_of(read_file(example("seattle-normals-1440")));
  const std::vector<std::string> hours = lines_of(read_file(example("seattle-normals-60")));
  // Dates and times sort as text. A daily row covers the 24 hours up to its timestamp.
  const auto time_of = [](const std::string& line) { return line.substr(0, 16); };
  std::vector<std::string> wanted(hours.begin() + 1, hours.end());
  for (std::size_t i = 1; i < days.size(); ++i) {
    const bool is_hidden = std::any_of(hours.begin() + 1, hours.end(), [&](const auto& hour) {
      return i > 1 && time_of(hour) > time_of(days[i - 1]) && time_of(hour) <= time_of(days[i]);
    });
    if (!is_hidden) wanted.push_back(days[i]);
  }
  std::sort(wanted.begin(), wanted.end(), std::greater<>());
  ASSERT_GT(wanted.size(), 1440U);
  ASSERT_LT(wanted.size(), hours.size() + days.size() - 50);

  const std::vector<std::string> dumped =
      lines_of(dump(db_, {"-p", "outdoor/temperature", "-p", "outdoor/wind", "-p", "pressure"}));
  ASSERT_EQ(dumped.size(), wanted.size() + 1);
  EXPECT_EQ(dumped.front(), hours.front());
  for (std::size_t i = 0; i < wanted.size(); ++i) ASSERT_EQ(dumped[i + 1], wanted[i]);
}

TEST_F(RoundTrip, KeepsTheExamplesThroughAMergedDump) {
  load_file(db_, example("seattle-normals-1440"), "1440");
  load_file(db_, example("seattle-normals-60"), "60");
  const std::string first = dump(db_, {});
  write_file(folder_.file("first.csv"), first);
  const std::string again = folder_.file("again.db");
  load_file(again, folder_.file("first.csv"), "60");
  EXPECT_EQ(dump(again, {}), first);
}

/// Dumps a log, loads that into a new database, dumps this, and compares the two.
void expect_round_trip(const ModelLog& log, const DumpRequest& request) {
  const TemporaryFolder folder;
  record(log, folder.file("first.db"));
  const ProcessResult first = run_dump_tool(folder.file("first.db"), log.device, request);
  ASSERT_EQ(first.err, "");
  ASSERT_EQ(first.out, expected_dump(log, request).first);

  std::vector<std::string> arguments = {"-x", folder.file("second.db"), "-d", log.device, "-i",
                                        "1"};
  if (!request.time_format.empty()) {
    arguments.insert(arguments.end(), {"-t", request.date_format + " " + request.time_format});
  }
  if (request.use_utc) arguments.emplace_back("-u");
  const ProcessResult load =
      run_tool("trendload", arguments, first.out, {{"TZ", request.zone.name}});
  ASSERT_EQ(load.exit_status, 0) << load.err << first.out;

  const ProcessResult second = run_dump_tool(folder.file("second.db"), log.device, request);
  EXPECT_EQ(second.err, "");
  ASSERT_EQ(second.out, first.out);
}

TEST_F(RoundTrip, KeepsRandomLogsInUtc) {
  Random random(1);
  for (int i = 0; i < random_rounds(60); ++i) {
    DumpRequest request;
    request.use_utc = true;
    request.zone = ZONES[pick(random, 4)];
    request.ascending = pick(random, 2) == 0;
    request.percent_valid = pick(random, 2) == 0;
    request.date_format = "%d.%m.%Y";
    request.time_format = "%T";
    SCOPED_TRACE(i);
    ASSERT_NO_FATAL_FAILURE(expect_round_trip(random_log(random, false), request));
  }
}

TEST_F(RoundTrip, KeepsRandomLogsInLocalTime) {
  Random random(2);
  for (int i = 0; i < random_rounds(120); ++i) {
    DumpRequest request;
    request.zone = ZONES[i % 4];
    request.ascending = pick(random, 2) == 0;
    request.percent_valid = true;
    SCOPED_TRACE(i);
    ASSERT_NO_FATAL_FAILURE(expect_round_trip(random_log(random, true), request));
  }
}

/// A log with a row every few minutes of some hours around `change`.
ModelLog log_around(std::int64_t change, std::uint32_t minutes) {
  ModelLog log;
  log.params = {{"a", ACTUAL}};
  log.minutes = {minutes};
  double value = 0;
  for (std::int64_t time = change - 3 * 3600; time <= change + 3 * 3600; time += 60 * minutes) {
    log.rows.push_back({minutes, time, 1, {++value}});
  }
  return log;
}

TEST_F(RoundTrip, KeepsTheHoursAroundEveryChangeOfTheClocks) {
  const std::pair<Zone, std::int64_t> changes[] = {
      {NEW_YORK, utc(2023, 3, 12, 7)},
      {NEW_YORK, utc(2023, 11, 5, 6)},
      {LORD_HOWE, utc(2023, 4, 1, 15)},
      {LORD_HOWE, utc(2023, 9, 30, 15, 30)},
  };
  for (const auto& [zone, change] : changes) {
    for (const std::uint32_t minutes : {1U, 20U, 30U}) {
      if (is_emulated() && minutes == 1) continue;
      for (const bool ascending : {false, true}) {
        DumpRequest request;
        request.zone = zone;
        request.ascending = ascending;
        SCOPED_TRACE(zone.name);
        ASSERT_NO_FATAL_FAILURE(expect_round_trip(log_around(change, minutes), request));
      }
    }
  }
}

TEST_F(RoundTrip, KeepsRowsThatStartOrEndInTheRepeatedHour) {
  for (std::int64_t cut = -60; cut <= 60; cut += is_emulated() ? 30 : 10) {
    for (const bool keeps_end : {false, true}) {
      for (const bool ascending : {false, true}) {
        DumpRequest request;
        request.zone = NEW_YORK;
        request.ascending = ascending;
        ModelLog log = log_around(utc(2023, 11, 5, 6), 10);
        const std::int64_t limit = utc(2023, 11, 5, 6) + 60 * cut;
        std::erase_if(log.rows, [&](const ModelRow& row) {
          return keeps_end ? row.time < limit : row.time > limit;
        });
        SCOPED_TRACE(cut);
        ASSERT_NO_FATAL_FAILURE(expect_round_trip(log, request));
      }
    }
  }
}

}  // namespace
