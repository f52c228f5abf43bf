// The first and last times that 32 bits can hold, on machines whose time_t has 32 bits or more.
#include <gtest/gtest.h>

#include <algorithm>
#include <ctime>

#include "tests/support/model.h"

namespace {

constexpr bool HAS_NARROW_TIMES = sizeof(std::time_t) == 4;

constexpr std::int64_t LAST_NARROW = 2147483647;
constexpr std::int64_t LAST_RECORDABLE = (std::int64_t{1} << 40) - 1;

constexpr const char* HEADER = "Date,Time,a:Value\n";

class TimeLimits : public testing::Test {
 protected:
  void SetUp() override {
    ModelLog log;
    log.params = {{"a", ACTUAL}};
    log.minutes = {1};
    double value = 0;
    // If the later times were cut to 32 bits, they would be between the earlier ones.
    for (const std::int64_t time : {std::int64_t{1}, LAST_NARROW - 1, LAST_NARROW, LAST_NARROW + 1,
                                    2 * LAST_NARROW + 1, 2 * LAST_NARROW + 62, LAST_RECORDABLE}) {
      log.rows.push_back({1, time, 1, {++value}});
    }
    record(log, db_);
    rows_ = {"1970-01-01,00:00:01,1\n", "2038-01-19,03:14:06,2\n", "2038-01-19,03:14:07,3\n"};
    if (HAS_NARROW_TIMES) return;
    rows_.insert(rows_.end(), {"2038-01-19,03:14:08,4\n", "2106-02-07,06:28:15,5\n",
                               "2106-02-07,06:29:16,6\n", "36812-02-20,00:36:15,7\n"});
  }

  /// Of the rows whose times fit into a time_t, those with an index from `first` to below `end`.
  [[nodiscard]] std::string rows(std::size_t first, std::size_t end, bool oldest_first) const {
    std::string text;
    for (std::size_t i = first; i < std::min(end, rows_.size()); ++i) {
      text = oldest_first ? text + rows_[i] : rows_[i] + text;
    }
    return text;
  }

  [[nodiscard]] ProcessResult dump(std::vector<std::string> arguments,
                                   const std::string& zone = "UTC0") const {
    arguments.insert(arguments.begin(), {"-x", db_, "-d", "/plant", "-y", "%T", "-t", "%F %T"});
    return run_tool("trendcsv", arguments, "", {{"TZ", zone}});
  }

  void expect_dump(const std::vector<std::string>& arguments, const std::string& text,
                   int exit_status = 1) const {
    const ProcessResult result = dump(arguments);
    EXPECT_EQ(result.out, HEADER + text);
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(result.exit_status, exit_status);
  }

  void expect_refused(const std::vector<std::string>& arguments, const std::string& message,
                      const std::string& zone = "UTC0") const {
    const ProcessResult result = dump(arguments, zone);
    EXPECT_EQ(result.err, message);
    EXPECT_EQ(result.out.substr(0, 7), "Usage: ");
    EXPECT_EQ(result.exit_status, 1);
  }

  static constexpr std::size_t ALL = 100;

  TemporaryFolder folder_;
  std::string db_ = folder_.file("trend.db");
  std::vector<std::string> rows_;  ///< those whose times fit into a time_t
};

TEST_F(TimeLimits, LeaveOutTimesThatDoNotFit) {
  ASSERT_EQ(rows_.size(), HAS_NARROW_TIMES ? 3U : 7U);
  for (const char* chunk_size : {"1", "2", "3", "4", "7", "512", "2147483647"}) {
    SCOPED_TRACE(chunk_size);
    expect_dump({"-c", chunk_size}, rows(0, ALL, false));
    expect_dump({"-c", chunk_size, "-a"}, rows(0, ALL, true));
    expect_dump({"-c", chunk_size, "-r"}, rows(0, ALL, true));
    expect_dump({"-c", chunk_size, "-a", "-r"}, rows(0, ALL, false));
  }
}

TEST_F(TimeLimits, LeaveSuchTimesOutOfTheCount) {
  const std::size_t size = rows_.size();
  for (const char* chunk_size : {"0", "1", "2", "512"}) {
    SCOPED_TRACE(chunk_size);
    expect_dump({"-c", chunk_size, "-m", "1"}, rows_.back(), 0);
    expect_dump({"-c", chunk_size, "-m", "1", "-o", "1"}, rows_[size - 2], 0);
    expect_dump({"-c", chunk_size, "-m", "2", "-o", "1", "-a"}, rows(1, 3, true), 0);
    expect_dump({"-c", chunk_size, "-m", "3", "-a"}, rows(0, 3, true), 0);
    expect_dump({"-c", chunk_size, "-m", "100", "-a"}, rows(0, ALL, true));
    expect_dump({"-c", chunk_size, "-m", std::to_string(size + 1)}, rows(0, ALL, false));
    expect_dump({"-c", chunk_size, "-m", "1", "-o", std::to_string(size)}, "");
  }
}

TEST_F(TimeLimits, IncludeTheLastTimeOf32BitsInLocalTimeToo) {
  const std::vector<std::string> arguments = {"-a", "-m", "2", "-o", "1", "-b"};
  EXPECT_EQ(dump(arguments, "IST-5:30").out,
            std::string(HEADER) + "2038-01-19,08:43:06,2\n2038-01-19,08:43:07,3\n");
  EXPECT_EQ(dump(arguments, "EST5EDT,M3.2.0,M11.1.0").out,
            std::string(HEADER) + "2038-01-18,22:13:06,2\n2038-01-18,22:13:07,3\n");
}

TEST_F(TimeLimits, AcceptTheLastTimeOf32BitsAsABound) {
  expect_dump({"-u", "-a", "-s", "2038-01-19 03:14:07"}, rows(2, ALL, true));
  expect_dump({"-u", "-a", "-e", "2038-01-19 03:14:07"}, rows(0, 3, true));
  expect_dump({"-u", "-s", "2038-01-19 03:14:07", "-e", "2038-01-19 03:14:07"}, rows(2, 3, true));
  expect_dump({"-u", "-e", "2038-01-19 03:14:06"}, rows(0, 2, false));
  const ProcessResult local =
      dump({"-u", "-t", "%F %R", "-s", "2038-01-19 03:14", "-m", "1", "-a"}, "IST-5:30");
  EXPECT_EQ(local.out, HEADER + rows_[1]);
  const std::vector<std::string> last_minute = {"-s", "2038-01-18 22:14:07", "-m", "1", "-a"};
  EXPECT_EQ(dump(last_minute, "EST5").out, std::string(HEADER) + "2038-01-18,22:14:07,3\n");
}

TEST_F(TimeLimits, RefuseLaterBoundsThatDoNotFit) {
  struct Bound {
    const char* time;
    std::size_t rows_before;
    std::size_t rows_up_to;
  };
  for (const auto& [time, rows_before, rows_up_to] :
       {Bound{"2038-01-19 03:14:08", 3, 4}, Bound{"2038-01-19 03:14:09", 4, 4},
        Bound{"2100-01-01 00:00:00", 4, 4}, Bound{"9999-12-31 23:59:59", 6, 6}}) {
    SCOPED_TRACE(time);
    if (HAS_NARROW_TIMES) {
      expect_refused({"-u", "-s", time}, "Error: can't convert start time\n");
      expect_refused({"-u", "-e", time}, "Error: can't convert end time\n");
      expect_refused({"-s", time}, "Error: can't convert start time\n");
      expect_refused({"-e", time}, "Error: can't convert end time\n");
    } else {
      expect_dump({"-u", "-a", "-s", time}, rows(rows_before, ALL, true));
      expect_dump({"-u", "-a", "-e", time}, rows(0, rows_up_to, true));
      expect_dump({"-a", "-s", time}, rows(rows_before, ALL, true));
      expect_dump({"-a", "-e", time}, rows(0, rows_up_to, true));
    }
  }
}

TEST_F(TimeLimits, RefuseLaterBoundsInLocalTime) {
  const std::vector<std::string> start = {"-m", "1", "-a", "-s", "2038-01-18 22:14:08"};
  const std::vector<std::string> end = {"-m", "1", "-e", "2038-01-18 22:14:08"};
  if (HAS_NARROW_TIMES) {
    expect_refused(start, "Error: can't convert start time\n", "EST5");
    expect_refused(end, "Error: can't convert end time\n", "EST5");
  } else {
    EXPECT_EQ(dump(start, "EST5").out, std::string(HEADER) + "2038-01-18,22:14:08,4\n");
    EXPECT_EQ(dump(end, "EST5").out, std::string(HEADER) + "2038-01-18,22:14:08,4\n");
  }
}

TEST_F(TimeLimits, AcceptBoundsFromTheFirstTimeOf32Bits) {
  for (const std::string time : {"1901-12-13 20:45:52", "1901-12-13 20:45:53",
                                 "1969-12-31 23:59:58", "1970-01-01 00:00:00"}) {
    SCOPED_TRACE(time);
    expect_dump({"-u", "-a", "-s", time}, rows(0, ALL, true));
    expect_dump({"-u", "-e", time}, "");
    expect_dump({"-u", "-e", time, "-s", time, "-m", "3", "-o", "2"}, "");
  }
}

TEST_F(TimeLimits, RefuseEarlierBoundsThatDoNotFit) {
  for (const std::string time : {"1901-12-13 20:45:51", "1900-01-01 00:00:00"}) {
    SCOPED_TRACE(time);
    if (HAS_NARROW_TIMES) {
      expect_refused({"-u", "-s", time}, "Error: can't convert start time\n");
      expect_refused({"-u", "-e", time}, "Error: can't convert end time\n");
    } else {
      expect_dump({"-u", "-a", "-s", time}, rows(0, ALL, true));
      expect_dump({"-u", "-e", time}, "");
    }
  }
}

TEST_F(TimeLimits, LetTheLoaderAcceptTheLastTimeOf32Bits) {
  const std::string db = folder_.file("loaded.db");
  const std::string text = std::string(HEADER) + "2038-01-19,03:14:07,1\n";
  const std::vector<std::string> arguments = {"-x", db,   "-d", "/plant", "-i",
                                              "1",  "-u", "-t", "%F %T"};
  const ProcessResult load = run_tool("trendload", arguments, text);
  EXPECT_EQ(load.err, "");
  EXPECT_EQ(load.exit_status, 0);
  EXPECT_EQ(run_tool("trendcsv", {"-x", db, "-d", "/plant", "-u", "-y", "%T"}).out, text);

  const std::string later = std::string(HEADER) + "2038-01-19,03:14:08,2\n";
  const ProcessResult late = run_tool("trendload", arguments, later);
  EXPECT_EQ(late.err, HAS_NARROW_TIMES ? "trendload: -:2: '2038-01-19 03:14:08' is later than the "
                                         "last time that this system can represent\n"
                                       : "");
  EXPECT_EQ(late.exit_status, HAS_NARROW_TIMES ? 1 : 0);
}

}  // namespace
