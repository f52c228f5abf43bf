// Where trendcsv writes to, and how locale, time zone and closed descriptors affect its output.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <future>

#include "tests/support/model.h"

namespace {

/// A log of many rows, a minute apart.
ModelLog long_log() {
  ModelLog log;
  log.params = {{"a", ACTUAL | AVG}};
  log.minutes = {1};
  for (std::int64_t i = 1; i <= 20'000; ++i) {
    log.rows.push_back({1, utc(2023, 5, 1) + 60 * i, 1, {0.5, 1.0 * static_cast<double>(i)}});
  }
  return log;
}

class ProgramOutput : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    folder_ = new TemporaryFolder;
    record(long_log(), db());
  }
  static void TearDownTestSuite() {
    delete folder_;
    folder_ = nullptr;
  }

  static std::string db() { return folder_->file("trend.db"); }

  static std::vector<std::string> arguments(std::vector<std::string> more = {}) {
    more.insert(more.begin(), {"-x", db(), "-d", "/plant", "-u"});
    return more;
  }

  static TemporaryFolder* folder_;
};

TemporaryFolder* ProgramOutput::folder_ = nullptr;

TEST_F(ProgramOutput, GoesToTheFileThatIsNamed) {
  const std::string file = folder_->file("rows.csv");
  const ProcessResult plain = run_tool("trendcsv", arguments());
  for (const std::string before : {"", "no file", "a longer text that must disappear"}) {
    if (before == "no file") {
      std::filesystem::remove(file);
    } else {
      write_file(file, before);
    }
    const ProcessResult result = run_tool("trendcsv", arguments({"-f", file}));
    EXPECT_EQ(result.exit_status, plain.exit_status);
    EXPECT_EQ(result.out + result.err, "");
    EXPECT_EQ(read_file(file), plain.out);
  }
}

TEST_F(ProgramOutput, IsEmptyAfterADumpThatFails) {
  const std::string file = folder_->file("failed.csv");
  write_file(file, "something");
  const std::string missing = folder_->file("none.db");
  const ProcessResult result = run_tool("trendcsv", {"-x", missing, "-d", "/plant", "-f", file});
  EXPECT_EQ(result.exit_status, 1);
  EXPECT_EQ(result.err, "Error opening trend db: '" + missing + "'\n");
  EXPECT_TRUE(std::filesystem::exists(file));
  EXPECT_EQ(read_file(file), "");
}

TEST_F(ProgramOutput, MustBeWritable) {
  for (const std::string& file : {folder_->file("none/rows.csv"), folder_->path().string()}) {
    // The database is missing too, but the output is opened first.
    const ProcessResult result =
        run_tool("trendcsv", {"-x", folder_->file("none.db"), "-d", "/plant", "-f", file});
    EXPECT_EQ(result.exit_status, 1);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err, "Error: can't open '" + file + "' for writing\n");
  }
}

/// For `before_start`: closes the standard descriptors whose bits are set in `which`.
std::function<void()> close_standard(unsigned which) {
  return [which] {
    for (int number = 0; number < 3; ++number) {
      if ((which >> number & 1) != 0) close(number);
    }
  };
}

TEST_F(ProgramOutput, MayBeClosed) {
  const ProcessResult result =
      run_tool("trendcsv", arguments(), "", {}, close_standard(1U << STDOUT_FILENO));
  EXPECT_EQ(result.exit_status, 1);
  EXPECT_EQ(result.out + result.err, "");
}

TEST_F(ProgramOutput, HoldsOnlyRowsWhicheverDescriptorIsClosed) {
  const std::string file = folder_->file("closed.csv");
  const std::vector<std::string> request = arguments({"-f", file, "-m", "1", "-n"});
  const std::string message = "Error: can't connect to CDS\n";
  for (unsigned which = 0; which < 8; ++which) {
    SCOPED_TRACE(which);
    const ProcessResult result = run_tool("trendcsv", request, "", {}, close_standard(which));
    EXPECT_EQ(result.exit_status, 0);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err, (which & 1U << STDERR_FILENO) != 0 ? "" : message);
    EXPECT_EQ(read_file(file), "Date,Time,a:.ValueIntAvg,a:Value\n2023-05-14,21:20,0.5,20000\n");
  }
}

TEST_F(ProgramOutput, HoldsNoMessageWhicheverDescriptorIsClosed) {
  const std::string file = folder_->file("failed.csv");
  const std::string missing = folder_->file("none.db");
  for (unsigned which = 0; which < 8; ++which) {
    SCOPED_TRACE(which);
    write_file(file, "something");
    const ProcessResult result = run_tool("trendcsv", {"-x", missing, "-d", "/plant", "-f", file},
                                          "", {}, close_standard(which));
    EXPECT_EQ(result.exit_status, 1);
    EXPECT_EQ(read_file(file), "");
  }
}

TEST_F(ProgramOutput, MayBeADevice) {
  const std::string plain = run_tool("trendcsv", arguments()).out;
  const ProcessResult to_standard_output = run_tool("trendcsv", arguments({"-f", "/dev/stdout"}));
  EXPECT_EQ(to_standard_output.out, plain);
  EXPECT_EQ(to_standard_output.err, "");
  const ProcessResult to_nothing = run_tool("trendcsv", arguments({"-f", "/dev/null"}));
  EXPECT_EQ(to_nothing.exit_status, 1);
  EXPECT_EQ(to_nothing.out + to_nothing.err, "");
}

TEST_F(ProgramOutput, MayBeAFifo) {
  const std::string fifo = folder_->file("fifo");
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  auto reading = std::async(std::launch::async, [&] { return read_file(fifo); });
  const ProcessResult result = run_tool("trendcsv", arguments({"-f", fifo}));
  EXPECT_EQ(result.err, "");
  EXPECT_EQ(reading.get(), run_tool("trendcsv", arguments()).out);
}

TEST_F(ProgramOutput, MayBeFull) {
  const ProcessResult result = run_tool("trendcsv", arguments(), "", {}, [] {
    const int full = open("/dev/full", O_WRONLY);
    if (full >= 0) dup2(full, STDOUT_FILENO);
  });
  EXPECT_EQ(result.exit_status, 1);
  EXPECT_EQ(result.out, "");
  EXPECT_EQ(run_tool("trendcsv", arguments({"-f", "/dev/full"})).exit_status, 1);
}

TEST_F(ProgramOutput, EndsTheProgramSilentlyIfNobodyReadsIt) {
  int ends[2] = {-1, -1};
  ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
  auto running = std::async(std::launch::async, [&] {
    return run_tool("trendcsv", arguments(), "", {}, [&] {
      dup2(ends[1], STDOUT_FILENO);
      std::signal(SIGPIPE, SIG_DFL);
    });
  });
  std::string line;
  for (char c = 0; c != '\n' && read(ends[0], &c, 1) == 1;) line += c;
  close(ends[0]);
  const ProcessResult result = running.get();
  close(ends[1]);
  EXPECT_EQ(line, "Date,Time,a:.ValueIntAvg,a:Value\n");
  EXPECT_EQ(result.exit_status, 128 + SIGPIPE);
  EXPECT_EQ(result.err, "");
}

TEST_F(ProgramOutput, IsTheSameInEveryLocale) {
  const std::vector<std::string> request =
      arguments({"-m", "20", "-pv", "-w", "%A %x", "-y", "%c"});
  const ProcessResult plain = run_tool("trendcsv", request, "", {{"LC_ALL", "C"}});
  EXPECT_NE(plain.out.find("\nSunday 05/14/23,Sun May 14 21:20:00 2023,100.00,0.5,20000\n"),
            std::string::npos);
  for (const char* locale : {"de_DE.UTF-8", "C.UTF-8", "tr_TR", "nonsense"}) {
    const ProcessResult result =
        run_tool("trendcsv", request, "", {{"LC_ALL", locale}, {"LANG", locale}});
    EXPECT_EQ(result.out, plain.out);
    EXPECT_EQ(result.err, "");
  }
}

TEST_F(ProgramOutput, LeavesATimeThatIsTooLongEmpty) {
  const std::string fits = std::string(127, 'x');
  const ProcessResult long_one = run_tool("trendcsv", arguments({"-m", "1", "-nh", "-w", fits}));
  EXPECT_EQ(long_one.out, fits + ",21:20,0.5,20000\n");
  const ProcessResult too_long =
      run_tool("trendcsv", arguments({"-m", "1", "-nh", "-w", fits + "x", "-y", fits + "%F"}));
  EXPECT_EQ(too_long.out, ",,0.5,20000\n");
}

/// A log of four rows half an hour apart, the first of them at `begin`.
ModelLog half_hours(std::int64_t begin) {
  ModelLog log;
  log.params = {{"n", ACTUAL}};
  log.minutes = {30};
  for (std::int64_t i = 0; i < 5; ++i) {
    log.rows.push_back({30, begin + 1800 * i, 1, {static_cast<double>(i)}});
  }
  return log;
}

std::string local_rows(const Zone& zone, std::int64_t begin, bool interval_begin = false) {
  const TemporaryFolder folder;
  record(half_hours(begin), folder.file("trend.db"));
  DumpRequest request;
  request.zone = zone;
  request.ascending = true;
  request.header = false;
  request.interval_begin = interval_begin;
  return run_dump_tool(folder.file("trend.db"), "/plant", request).out;
}

TEST(ProgramTimes, SkipTheHourAtTheStartOfDaylightSaving) {
  EXPECT_EQ(local_rows(NEW_YORK, utc(2023, 3, 12, 6)),
            "2023-03-12,01:00,0\n2023-03-12,01:30,1\n2023-03-12,03:00,2\n2023-03-12,03:30,3\n"
            "2023-03-12,04:00,4\n");
}

TEST(ProgramTimes, RepeatTheHourAtTheEndOfDaylightSaving) {
  EXPECT_EQ(local_rows(NEW_YORK, utc(2023, 11, 5, 5)),
            "2023-11-05,01:00,0\n2023-11-05,01:30,1\n2023-11-05,01:00,2\n2023-11-05,01:30,3\n"
            "2023-11-05,02:00,4\n");
}

TEST(ProgramTimes, RepeatHalfAnHourInAZoneThatShiftsByThat) {
  EXPECT_EQ(local_rows(LORD_HOWE, utc(2023, 4, 1, 14, 30)),
            "2023-04-02,01:30,0\n2023-04-02,01:30,1\n2023-04-02,02:00,2\n2023-04-02,02:30,3\n"
            "2023-04-02,03:00,4\n");
}

TEST(ProgramTimes, FollowAZoneOffByHalfAnHour) {
  EXPECT_EQ(local_rows(KOLKATA, utc(2023, 12, 31, 18)),
            "2023-12-31,23:30,0\n2024-01-01,00:00,1\n2024-01-01,00:30,2\n2024-01-01,01:00,3\n"
            "2024-01-01,01:30,4\n");
}

TEST(ProgramTimes, ShowTheStartOfIntervalsAcrossAChange) {
  EXPECT_EQ(local_rows(NEW_YORK, utc(2023, 3, 12, 6), true),
            "2023-03-12,00:30,0\n2023-03-12,01:00,1\n2023-03-12,01:30,2\n2023-03-12,03:00,3\n"
            "2023-03-12,03:30,4\n");
}

TEST(ProgramTimes, ShiftEpochSecondsInUtcInAnotherZone) {
  const TemporaryFolder folder;
  record(half_hours(utc(2023, 7, 1)), folder.file("trend.db"));
  const auto row = [&](const char* zone, const std::vector<std::string>& more) {
    std::vector<std::string> arguments = {
        "-x", folder.file("trend.db"), "-d", "/plant", "-nh", "-a", "-m", "1", "-w", "%s"};
    arguments.insert(arguments.end(), more.begin(), more.end());
    return run_tool("trendcsv", arguments, "", {{"TZ", zone}}).out;
  };
  EXPECT_EQ(row(UTC.name, {"-u"}), "1688169600,00:00,0\n");
  EXPECT_EQ(row(KOLKATA.name, {"-u"}), "1688149800,00:00,0\n");
  EXPECT_EQ(row(KOLKATA.name, {}), "1688169600,05:30,0\n");
  EXPECT_EQ(row(NEW_YORK.name, {"-u"}), "1688187600,00:00,0\n");
  EXPECT_EQ(row(NEW_YORK.name, {}), "1688169600,20:00,0\n");
}

TEST(ProgramTimes, BoundADumpInLocalTime) {
  const TemporaryFolder folder;
  record(half_hours(utc(2023, 3, 12, 6)), folder.file("trend.db"));
  const auto rows = [&](std::vector<std::string> more) {
    more.insert(more.begin(), {"-x", folder.file("trend.db"), "-d", "/plant", "-nh", "-a"});
    return run_tool("trendcsv", more, "", {{"TZ", NEW_YORK.name}}).out;
  };
  EXPECT_EQ(rows({"-s", "2023-03-12 01:30", "-e", "2023-03-12 03:00"}),
            "2023-03-12,01:30,1\n2023-03-12,03:00,2\n");
  EXPECT_EQ(rows({"-u", "-s", "2023-03-12 06:30", "-e", "2023-03-12 07:00"}),
            "2023-03-12,06:30,1\n2023-03-12,07:00,2\n");
  EXPECT_EQ(rows({"-s", "2023-03-12 03:00", "-e", "2023-03-12 01:30"}), "");
}

}  // namespace
