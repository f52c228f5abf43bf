// trendtool copy between files and an archive.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>

#include "tests/support/archive_server.h"
#include "tests/support/log_content.h"
#include "tests/support/model.h"
#include "tests/trendtool/copy_fixture.h"

namespace {

using testing::HasSubstr;

class ArchiveCopy : public TrendtoolCopy {
 protected:
  ArchiveCopy() { to_ = server().make_archive(); }

  /// Copies the archive into a new file, and returns that file.
  std::string copy_back() {
    const std::string file = folder_.file("back" + std::to_string(++files_) + ".db");
    const ProcessResult result = run_tool("trendtool", {"copy", to_, file});
    EXPECT_EQ(result.exit_status, 0) << result.err;
    return file;
  }

 private:
  int files_ = 0;
};

TEST_F(ArchiveCopy, BringsEveryBitThereAndBack) {
  Random random(5);
  for (int i = 0; i < 6; ++i) {
    ModelLog log = random_log(random, false);
    log.device = "site/" + std::to_string(i);
    record(log, from_);
  }
  copy_surely();
  const std::string back = copy_back();
  EXPECT_EQ(read_content(to_), read_content(from_));
  EXPECT_EQ(read_content(back), read_content(from_));
  for (const char* format : {"csv", "jsonl", "influx"}) {
    const auto arguments = [&](const std::string& db) {
      return std::vector<std::string>{"export",   "--all-devices", "--exact", "--percent-valid",
                                      "--format", format,          "-x",      db};
    };
    const ProcessResult expected = run_tool("trendtool", arguments(from_));
    ASSERT_NE(expected.out, "");
    for (const std::string& db : {back, to_}) {
      const ProcessResult found = run_tool("trendtool", arguments(db));
      EXPECT_EQ(found.out, expected.out);
      EXPECT_EQ(found.err, expected.err);
      EXPECT_EQ(found.exit_status, expected.exit_status);
    }
  }
}

TEST_F(ArchiveCopy, BringsLateRowsInBothDirections) {
  append_rows(from_, "a", 1, make_rows(6000, 60, 3000));
  EXPECT_EQ(copy_surely(), summary(1, 1, 3000, 0));
  const std::string back = copy_back();
  append_rows(from_, "a", 1, make_rows(60, 60, 10));         // before all others
  append_rows(from_, "a", 1, make_rows(6030, 60, 5));        // between others
  append_rows(from_, "a", 1, make_rows(1'000'000, 60, 20));  // after them
  append_rows(from_, "a", 60, make_rows(3600, 3600, 4));
  EXPECT_THAT(copy_surely(), HasSubstr("rows copied: 39, "));
  EXPECT_THAT(copy_surely(), HasSubstr("rows copied: 0, rows there before: 0,"));
  const ProcessResult result = run_tool("trendtool", {"copy", to_, back});
  EXPECT_THAT(result.out, HasSubstr("rows copied: 39, ")) << result.err;
  EXPECT_EQ(read_content(to_), read_content(from_));
  EXPECT_EQ(read_content(back), read_content(from_));
}

TEST_F(ArchiveCopy, TakesInTwoSitesWithEqualDevices) {
  const std::string other = folder_.file("other.db");
  append_rows(from_, "a", 1, make_rows(60, 60, 20));
  append_rows(other, "a", 1, make_rows(90, 60, 30));
  EXPECT_EQ(copy_surely({"--prefix", "oslo/"}), summary(1, 1, 20, 0));
  from_ = other;
  EXPECT_EQ(copy_surely({"--prefix", "rome/"}), summary(1, 1, 30, 0));
  EXPECT_EQ(read_content(to_).devices.at("oslo/a").series.at(1).rows.size(), 20U);
  EXPECT_EQ(read_content(to_).devices.at("rome/a").series.at(1).rows.size(), 30U);
}

TEST_F(ArchiveCopy, OverwritesNothing) {
  append_rows(from_, "a", 1, make_rows(60, 60, 20));
  append_rows(to_, "a", 1, {{.time = 120, .ratio = 1, .values = {7, 7}}});
  const ProcessResult result = copy();
  EXPECT_EQ(result.exit_status, 1);
  EXPECT_EQ(result.out, summary(1, 1, 19, 0, 1));
  EXPECT_THAT(result.err, HasSubstr("1970-01-01"));
  EXPECT_EQ(server().sql("SELECT samples FROM archive_" + to_.substr(to_.rfind('_') + 1) +
                         ".snapshot WHERE time = to_timestamp(120)"),
            "{7,7}\n");
}

TEST_F(ArchiveCopy, CanBeKilledAndRepeated) {
  for (const char* device : {"a", "b", "c"}) {
    append_rows(from_, device, 1, make_rows(60, 60, 8000));
  }
  append_rows(from_, "d", 1, make_rows(60, 60, 120'000));
  Random random(6);
  const LogContent whole = read_content(from_);
  int killed = 0;
  for (int round = 0; round < 10; ++round) {
    const unsigned delay = 1000 * pick(random, 400);
    const ProcessResult result = copy({}, [=] {
      const pid_t program = getpid();
      if (fork() != 0) return;
      usleep(delay);
      if (getppid() == program) kill(program, SIGKILL);
      _exit(0);
    });
    killed += result.exit_status == 128 + SIGKILL ? 1 : 0;
    // Each series has the first of its rows, or all.
    for (const auto& [path, device] : read_content(to_).devices) {
      for (const auto& [minutes, series] : device.series) {
        const auto& rows = whole.devices.at(path).series.at(minutes).rows;
        EXPECT_TRUE(std::equal(series.rows.begin(), series.rows.end(), rows.begin()));
      }
    }
  }
  EXPECT_GT(killed, 0);
  copy_surely();
  EXPECT_EQ(read_content(to_), whole);
}

TEST_F(ArchiveCopy, PurgesAnArchive) {
  append_rows(to_, "a", 1, make_rows(60, 60, 100));
  const ProcessResult result =
      run_tool("trendtool", {"purge", "-x", to_, "-d", "a", "-i", "1", "--before", "@3000"});
  EXPECT_EQ(result.exit_status, 0) << result.err;
  EXPECT_EQ(read_content(to_).devices.at("a").series.at(1).rows.size(), 51U);
}

TEST(ArchiveInit, MakesPartitionsAndNotesTheRetention) {
  ArchiveServer server;
  const std::string url = server.url("site_1");
  const ProcessResult result =
      run_tool("trendtool", {"init", url, "--partitions", "3", "--retention", "24"});
  EXPECT_EQ(result.exit_status, 0) << result.err;
  EXPECT_EQ(server.sql("SELECT count(*) FROM pg_inherits WHERE inhparent = "
                       "'site_1.snapshot'::regclass"),
            "3\n");
  EXPECT_EQ(server.sql("SELECT retention_months FROM site_1.archive"), "24\n");
  for (std::uint32_t minutes = 1; minutes <= 8; ++minutes) {
    append_rows(url, "a", minutes, make_rows(60 * minutes, 60 * minutes, 10));
  }
  EXPECT_EQ(read_content(url).devices.at("a").series.size(), 8U);
  EXPECT_EQ(server.sql("SELECT count(*) FROM site_1.snapshot"), "80\n");
  // The view leaves the same rows out as a dump.
  const std::string dump = run_tool("trendcsv", {"-x", url, "-d", "a", "-nh"}).out;
  const auto visible = std::count(dump.begin(), dump.end(), '\n');
  EXPECT_GT(visible, 20);
  EXPECT_EQ(server.sql("SELECT count(*) FROM site_1.trend_row"), std::to_string(visible) + "\n");
  const ProcessResult again = run_tool("trendtool", {"init", url});
  EXPECT_EQ(again.exit_status, 1);
  EXPECT_THAT(again.err, HasSubstr("already exists"));
}

}  // namespace
