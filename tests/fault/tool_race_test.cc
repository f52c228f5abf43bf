// The subcommands of trendtool while another program changes the database, or a signal comes.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <ctime>
#include <filesystem>
#include <functional>

#include "tests/support/database_file.h"
#include "tests/support/log_content.h"
#include "tests/trendtool/copy_fixture.h"
#include "tests/trendtool/run_here.h"

using toolkit::trend::CDeviceProperties;
using toolkit::trend::CRecorder;
using toolkit::trend::CSeries;

namespace {

using testing::HasSubstr;

constexpr const char* START_OF_WRITING = "BEGIN IMMEDIATE";
constexpr const char* START_OF_READING = "BEGIN";

/// Removes the device "/one" or, with `minutes`, one of its series.
void remove_one(const std::string& db, std::uint32_t minutes = 0) {
  CRecorder recorder;
  CDeviceProperties one{.path = "/one", .aux_text = ""};
  CSeries series;
  const bool is_found =
      recorder.open(db) == 0 && recorder.begin() == 0 && recorder.add_device(one) == 0;
  const bool is_removed =
      is_found && (minutes == 0 ? recorder.remove_device(one) == 0
                                : recorder.add_series(one, minutes, series) == 0 &&
                                      recorder.remove_series(series) == 0);
  if (!is_removed || recorder.commit() != 0) throw std::runtime_error(recorder.error());
}

class ToolRace : public testing::Test {
 protected:
  ToolRace() { watch_statements(); }

  /// Copies the database into the other one. Calls `interfere` where the statement `sql` starts for
  /// the time with this number, counted from 1. Returns whether that has happened.
  bool copy_beside(const char* sql, int number, const std::function<void()>& interfere,
                   ProcessResult& result) {
    int starts = 0;
    const StatementHook hook(sql, [&] {
      if (++starts == number) interfere();
    });
    result = run_here({"copy", db_, other_});
    return starts >= number;
  }

  TemporaryFolder folder_;
  std::string db_ = folder_.file("trend.db");
  std::string other_ = folder_.file("other.db");
};

TEST_F(ToolRace, NothingIsRemovedOfADeviceThatIsANewOne) {
  append_rows(db_, "/one", 5, make_rows(300, 300, 3));
  append_rows(db_, "/two", 5, make_rows(300, 300, 3));
  const std::pair<std::vector<std::string>, std::string> cases[] = {
      {{"remove", "-x", db_, "-d", "/one", "--yes"}, "device '/one' with 3 rows"},
      {{"purge", "-x", db_, "-d", "/one", "-i", "5", "--before", "@900"}, "the rows"}};
  for (const auto& [words, what] : cases) {
    ProcessResult result;
    {
      const StatementHook hook(START_OF_WRITING, [&] {
        remove_one(db_);
        append_rows(db_, "/one", 5, make_rows(300, 300, 3));
      });
      result = run_here(words);
    }
    EXPECT_EQ(result.exit_status, 1);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err,
              "trendtool: can't remove " + what + ": another program has changed the database\n");
    EXPECT_EQ(read_content(db_).devices.at("/one").series.at(5).rows.size(), 3U);
    // The id of the last device would be used again.
    append_rows(db_, "/three", 5, {});
  }
}

TEST_F(ToolRace, ACopyLosesAgainstOneThatRecordsTheSameRows) {
  for (const int count : {3, 9}) {
    const std::vector<NewRow> rows = make_rows(300, 300, count);
    for (const std::string& path : {db_, other_}) std::filesystem::remove(path);
    append_rows(db_, "/one", 5, rows);
    append_rows(other_, "/one", 5, {});
    std::size_t recorded = 0;
    ProcessResult result;
    {
      const StatementHook hook(START_OF_WRITING, [&] {
        if (recorded < rows.size()) append_rows(other_, "/one", 5, {rows[recorded++]});
      });
      result = run_here({"copy", db_, other_});
    }
    if (count == 3) {
      EXPECT_EQ(result.exit_status, 0) << result.err;
      EXPECT_THAT(result.out, HasSubstr("rows copied: 0, rows there before: 3, conflicts: 0\n"));
    } else {
      EXPECT_EQ(result.exit_status, 1);
      EXPECT_EQ(result.err,
                "trendtool: can't record the rows of device '/one' at the interval of 5 minutes: "
                "other programs keep recording the same ones\n");
      EXPECT_THAT(result.out, HasSubstr("rows copied: 0, "));
      EXPECT_EQ(run_here({"copy", db_, other_}).exit_status, 0);
    }
    EXPECT_EQ(read_content(other_), read_content(db_));
  }
}

TEST_F(ToolRace, ACopyLosesAgainstOneThatRecordsDamage) {
  append_rows(db_, "/one", 5, make_rows(300, 300, 3));
  append_rows(other_, "/one", 5, {});
  const auto record_damage = [&] {
    append_rows(other_, "/one", 5, make_rows(300, 300, 3));
    run_sql(other_, "UPDATE loose SET valid_ratio = 0.25");
  };
  ProcessResult result;
  EXPECT_TRUE(copy_beside(START_OF_WRITING, 2, record_damage, result));
  EXPECT_EQ(result.exit_status, 1);
  EXPECT_THAT(result.err, HasSubstr("trendtool: can't record the rows of device '/one'"));
  EXPECT_THAT(result.out, HasSubstr("rows copied: 0, rows there before: 0, "));
}

TEST_F(ToolRace, ACopyNoticesThatASeriesIsRemoved) {
  append_rows(db_, "/one", 5, make_rows(300, 300, 3));
  const LogContent whole = read_content(db_);
  int failed = 0;
  bool has_happened = true;
  for (int number = 1; has_happened; ++number) {
    std::filesystem::remove(other_);
    append_rows(other_, "/one", 5, make_rows(300, 300, 1));
    ProcessResult result;
    has_happened = copy_beside(
        START_OF_READING, number, [&] { remove_one(other_, 5); }, result);
    if (result.exit_status != 0) {
      ++failed;
      EXPECT_THAT(result.err, HasSubstr("trendtool: can't record the rows of device '/one'"));
    }
    EXPECT_EQ(run_here({"copy", db_, other_}).exit_status, 0);
    EXPECT_EQ(read_content(other_), whole) << number;
  }
  EXPECT_GT(failed, 0);
}

TEST_F(ToolRace, ACopyEndsWhereADatabaseBecomesDamaged) {
  append_rows(db_, "/one", 5, make_rows(300, 300, 600));
  const LogContent whole = read_content(db_);
  for (const bool is_source : {true, false}) {
    int failed = 0;
    bool has_happened = true;
    for (int number = 1; has_happened; ++number) {
      for (const std::string& path : {db_, other_}) std::filesystem::remove(path);
      append_rows(db_, "/one", 5, make_rows(300, 300, 600));
      append_rows(other_, "/one", 5, make_rows(300, 300, 590));
      const auto damage = [&] {
        run_sql(is_source ? db_ : other_, "UPDATE loose SET valid_ratio = 0.25");
      };
      ProcessResult result;
      has_happened = copy_beside(START_OF_READING, number, damage, result);
      if (is_source) {
        EXPECT_TRUE(is_part(read_content(other_), whole));
      }
      EXPECT_TRUE(has_happened || result.exit_status == 0) << result.err;
      if (result.exit_status == 0) continue;
      ++failed;
      EXPECT_THAT(result.err, HasSubstr(is_source ? "can't read the" : "can't ")) << number;
    }
    EXPECT_GT(failed, 1);
  }
}

/// Notes a signal, and holds it back when it comes again, so that this process does not end.
class SignalNoted {
 public:
  SignalNoted() {
    sigemptyset(&signals_);
    sigaddset(&signals_, SIGTERM);
  }
  ~SignalNoted() {
    sigprocmask(SIG_UNBLOCK, &signals_, nullptr);
    std::signal(SIGTERM, SIG_DFL);
  }
  SignalNoted(const SignalNoted&) = delete;
  SignalNoted& operator=(const SignalNoted&) = delete;

  void send() {
    std::raise(SIGTERM);
    sigprocmask(SIG_BLOCK, &signals_, nullptr);
  }
  /// Whether the signal came again since then.
  [[nodiscard]] bool came_again() const {
    const timespec no_time = {};
    return sigtimedwait(&signals_, nullptr, &no_time) == SIGTERM;
  }

 private:
  sigset_t signals_;
};

TEST_F(ToolRace, ACopyEndsBetweenTwoTransactionsWhenASignalComes) {
  append_rows(db_, "/one", 5, make_rows(300, 300, 3));
  append_rows(db_, "/two", 5, make_rows(300, 300, 3));
  const LogContent whole = read_content(db_);
  for (const char* sql : {START_OF_READING, START_OF_WRITING}) {
    int interrupted = 0;
    bool has_happened = true;
    for (int number = 1; has_happened; ++number) {
      std::filesystem::remove(other_);
      append_rows(other_, "/one", 5, make_rows(300, 300, 1));
      SignalNoted signal;
      ProcessResult result;
      has_happened = copy_beside(
          sql, number, [&] { signal.send(); }, result);
      EXPECT_EQ(signal.came_again(), has_happened);
      EXPECT_THAT(result.out, testing::StartsWith("devices: 2, series: "));
      const std::string message = "trendtool: interrupted; the next copy goes on from here\n";
      EXPECT_EQ(result.err, has_happened ? message : "");
      const LogContent copied = read_content(other_);
      EXPECT_TRUE(is_part(copied, whole));
      interrupted += copied == whole ? 0 : 1;
    }
    EXPECT_GT(interrupted, 0);
  }
  EXPECT_EQ(run_here({"copy", db_, other_}).exit_status, 0);
  EXPECT_EQ(read_content(other_), whole);
}

}  // namespace
