// The subcommands of trendtool while one statement after the other fails: an answer is whole or
// refused, and what is said to be recorded is.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "tests/support/log_content.h"
#include "tests/support/model.h"
#include "tests/support/process.h"
#include "tests/support/statement_faults.h"
#include "tests/trendtool/run_here.h"

namespace {

namespace fs = std::filesystem;

/// Records two devices with few rows in a database at `path`.
void make_database(const std::string& path) {
  ModelLog one{
      .device = "/one", .params = {{"a", AVG}, {"b", MIN | MAX}}, .minutes = {5, 60}, .rows = {}};
  one.rows = {{5, 600, 1, {1, 2, 3}}, {5, 900, 0.5, {4, 5, 6}}, {60, 3600, 1, {7, 8, 9}}};
  record(one, path);
  record({.device = "/two", .params = {{"c", SUM}}, .minutes = {5}, .rows = {{5, 600, 1, {1}}}},
         path);
}

/// Each file starts with rows that the database has, and goes on with one that it lacks.
constexpr const char* DUMP =
    "Date,Time,Percent Valid,a:.ValueIntAvg\n1970-01-01,00:10,100,1\n1970-01-01,00:30,100,2\n";
constexpr const char* WIDE =
    "time,interval,device,percent_valid,a:.ValueIntAvg,c:.ValueIntSum\n"
    "1970-01-01T00:10:00Z,5,/one,100,1,\n1970-01-01T00:10:00Z,5,/two,100,,1\n"
    "1970-01-01T00:30:00Z,5,/three,50,2,3\n";
constexpr const char* LONG =
    "time,parameter,statistic,value\n1970-01-01T00:10:00Z,a,avg,1\n"
    "1970-01-01T00:30:00Z,a,avg,2\n1970-01-01T00:30:00Z,d,sum,3\n";

class ToolFault : public testing::Test {
 protected:
  ToolFault() {
    watch_statements();
    make_database(original_);
    write_file(folder_.file("dump.csv"), DUMP);
    write_file(folder_.file("wide.csv"), WIDE);
    write_file(folder_.file("long.csv"), LONG);
  }

  /// Puts the databases back as they were at first.
  void restore() {
    for (const std::string& path : {db_, other_}) {
      for (const char* end : {"", "-wal", "-shm"}) fs::remove(path + end);
    }
    fs::copy_file(original_, db_);
    if (fs::exists(partial_)) fs::copy_file(partial_, other_);
  }

  /// Lets one moment of a run after the other fail.
  void let_each_fail(const std::vector<std::string>& words,
                     const std::function<void(const ProcessResult&)>& look) {
    int failed = 0;
    for (const Moment moment : {Moment::PREPARE, Moment::RUN}) {
      bool has_happened = true;
      for (int number = 1; has_happened; number += is_long_run() ? 1 : TOOL_STEP) {
        SCOPED_TRACE((moment == Moment::PREPARE ? "preparation " : "run ") +
                     std::to_string(number));
        restore();
        ProcessResult result;
        {
          const StatementFaultInForce in_force({moment, number, false, !is_long_run()});
          result = run_here(words);
          has_happened = in_force.has_happened();
        }
        ASSERT_TRUE(result.exit_status == 0 || result.exit_status == 1);
        if (result.exit_status == 1) {
          ++failed;
          ASSERT_TRUE(result.err.starts_with("trendtool: ") || words[0] == "check") << result.err;
        }
        look(result);
        if (HasFatalFailure()) return;
      }
    }
    EXPECT_GT(failed, 2);
  }

  /// Expects a subcommand to write the same as without a fault, or to fail.
  void expect_whole_answers(const std::vector<std::string>& words) {
    SCOPED_TRACE(words[0]);
    restore();
    const ProcessResult right = run_here(words);
    ASSERT_EQ(right.exit_status, 0) << right.err;
    let_each_fail(words, [&](const ProcessResult& result) {
      if (result.exit_status != 0) return;
      ASSERT_EQ(result.out, right.out);
      ASSERT_EQ(result.err, right.err);
    });
  }

  /// Expects a subcommand to change the database as without a fault, or not at all.
  void expect_truth(const std::vector<std::string>& words) {
    SCOPED_TRACE(words[0]);
    restore();
    const LogContent before = read_content(db_);
    const ProcessResult right = run_here(words);
    ASSERT_EQ(right.exit_status, 0) << right.err;
    const LogContent after = read_content(db_);
    let_each_fail(words, [&](const ProcessResult& result) {
      const LogContent content = read_content(db_);
      if (result.err.find("in doubt") != std::string::npos) {
        ASSERT_TRUE(content == before || content == after);
      } else {
        ASSERT_TRUE(content == (result.exit_status == 0 ? after : before)) << result.err;
      }
      if (result.exit_status == 0) {
        ASSERT_EQ(result.out, right.out);
      }
    });
  }

  TemporaryFolder folder_;
  std::string original_ = folder_.file("original.db");
  std::string db_ = folder_.file("trend.db");
  /// What `other_` is at first, if there is this file.
  std::string partial_ = folder_.file("partial.db");
  std::string other_ = folder_.file("other.db");
};

TEST_F(ToolFault, AListIsWholeOrRefused) {
  expect_whole_answers({"list", "-x", db_, "-u"});
  expect_whole_answers({"list", "-x", db_, "-d", "/one", "--format", "json", "-u"});
}

TEST_F(ToolFault, AnExportIsWholeOrRefused) {
  expect_whole_answers({"export", "-x", db_, "--all-devices", "-i", "5", "-u"});
  expect_whole_answers({"export", "-x", db_, "-d", "/one", "-p", "b", "-a", "-u"});
}

TEST_F(ToolFault, AnExportSaysWhatItLeavesOut) {
  expect_whole_answers({"export", "-x", db_, "-d", "/one", "--skip-damaged", "-a", "-u"});
}

TEST_F(ToolFault, APictureIsDrawnOfAllRowsOrNone) {
  // It shows the script that it is to draw.
  const std::string program = folder_.file("gnuplot");
  write_file(program, "#!/bin/sh\nexec cat\n");
  fs::permissions(program, fs::perms::owner_all);
  const std::string path = std::getenv("PATH");
  setenv("PATH", (folder_.path().string() + ":" + path).c_str(), 1);
  expect_whole_answers({"plot", "-x", db_, "-d", "/one", "-i", "5", "-u"});
  setenv("PATH", path.c_str(), 1);
}

TEST_F(ToolFault, ACheckIsTrueOrRefused) { expect_whole_answers({"check", "-x", db_, "-u"}); }

TEST_F(ToolFault, ALoadIsToldAsItIs) {
  expect_truth({"load", "-x", db_, "-d", "/new", "-i", "5", "-u", folder_.file("dump.csv")});
  expect_truth({"load", "-x", db_, "-d", "/one", "-i", "5", "-u", "--skip-existing",
                folder_.file("dump.csv")});
  expect_truth({"load", "-x", db_, "--skip-existing", folder_.file("wide.csv")});
  expect_truth({"load", "-x", db_, "-d", "/new", "-i", "5", folder_.file("long.csv")});
}

TEST_F(ToolFault, ADryRunRecordsNothing) {
  expect_truth({"load", "-x", db_, "--skip-existing", "--dry-run", folder_.file("wide.csv")});
  EXPECT_FALSE(fs::exists(other_));
  expect_whole_answers({"load", "-x", other_, "--dry-run", folder_.file("wide.csv")});
  EXPECT_FALSE(fs::exists(other_));
}

TEST_F(ToolFault, ARemovalIsToldAsItIs) {
  expect_truth({"remove", "-x", db_, "-d", "/one", "--yes"});
  expect_truth({"remove", "-x", db_, "-d", "/one", "-i", "5", "--yes"});
  expect_truth({"remove", "-x", db_, "-d", "/one", "-i", "5", "--at", "@600", "--yes"});
}

TEST_F(ToolFault, APurgeIsToldAsItIs) {
  expect_truth({"purge", "-x", db_, "-d", "/one", "-i", "5", "--before", "@700"});
}

TEST_F(ToolFault, ACopyIsToldAsItIs) {
  const LogContent whole = read_content(original_);
  const std::vector<std::string> copy = {"copy", db_, other_, "-u"};
  const auto look = [&](const ProcessResult& result) {
    const LogContent copied = fs::exists(other_) ? read_content(other_) : LogContent();
    ASSERT_TRUE(result.exit_status == 0 ? copied == whole : is_part(copied, whole)) << result.err;
  };
  // Some rows are there already.
  ModelLog one{
      .device = "/one", .params = {{"a", AVG}, {"b", MIN | MAX}}, .minutes = {5, 60}, .rows = {}};
  one.rows = {{5, 600, 1, {1, 2, 3}}};
  record(one, partial_);
  let_each_fail(copy, look);
}

TEST_F(ToolFault, ANewDatabaseIsWholeOrNotThere) {
  let_each_fail({"init", "-x", other_}, [&](const ProcessResult& result) {
    ASSERT_TRUE(result.exit_status != 0 || fs::exists(other_));
    ASSERT_TRUE(!fs::exists(other_) || read_content(other_) == LogContent());
  });
}

TEST(TrendtoolWithoutArguments, IsNotTrendload) {
  char* none[] = {nullptr};
  EXPECT_FALSE(is_trendload(0, none));
}

}  // namespace
