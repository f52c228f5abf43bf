// trendtool backup.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <stdexcept>

#include "libtrend/recorder.h"
#include "tests/support/database_file.h"
#include "tests/support/model.h"

using toolkit::trend::CDeviceProperties;
using toolkit::trend::CParamProperties;
using toolkit::trend::CRecorder;
using toolkit::trend::CSeries;

namespace {

using testing::ElementsAre;
using testing::HasSubstr;

/// Sends SIGTERM to this process after so many milliseconds, also after `exec`, if it still runs.
void alarm_with_sigterm(int milliseconds) {
  const pid_t program = getpid();
  if (fork() != 0) return;
  usleep(1000U * static_cast<unsigned>(milliseconds));
  if (getppid() == program) kill(program, SIGTERM);
  _exit(0);
}

class TrendtoolBackup : public testing::Test {
 protected:
  TrendtoolBackup() {
    CDeviceProperties plant{.path = "/plant", .aux_text = ""};
    CParamProperties level{.path = "level", .has_actual = true};
    const bool is_recorded =
        recorder_.open(db_) == 0 && recorder_.begin() == 0 && recorder_.add_device(plant) == 0 &&
        recorder_.add_param(plant, level) == 0 && recorder_.add_series(plant, 5, series_) == 0;
    if (!is_recorded) throw std::runtime_error(recorder_.error());
    for (int i = 1; i <= 2000; ++i) append();
    if (recorder_.commit() != 0) throw std::runtime_error(recorder_.error());
  }

  void append() {
    const double value = ++rows_;
    if (recorder_.append(series_, 300 * rows_, 1, {&value, 1}) != 0) {
      throw std::runtime_error(recorder_.error());
    }
  }

  ProcessResult back_up() { return run_tool("trendtool", {"backup", "-x", db_, copy_}); }

  static std::string dump(const std::string& db) {
    return run_tool("trendcsv", {"-x", db, "-d", "/plant", "-u"}).out;
  }

  TemporaryFolder folder_;
  std::string db_ = folder_.file("trend.db");
  std::string copy_ = folder_.file("copy.db");
  CRecorder recorder_;
  CSeries series_;
  int rows_ = 0;
};

TEST_F(TrendtoolBackup, CopiesADatabaseThatIsBeingRecorded) {
  ASSERT_EQ(recorder_.begin(), 0);
  append();
  const ProcessResult result = back_up();
  EXPECT_EQ(result.exit_status, 0);
  EXPECT_EQ(result.out + result.err, "");
  recorder_.rollback();
  EXPECT_THAT(dump(copy_), HasSubstr(",2000\n"));
  EXPECT_EQ(dump(copy_), dump(db_));
}

TEST_F(TrendtoolBackup, ReplacesNoFile) {
  write_file(copy_, "mine");
  const ProcessResult result = back_up();
  EXPECT_EQ(result.exit_status, 1);
  EXPECT_THAT(result.err, HasSubstr("trendtool: can't copy the database to "));
  EXPECT_THAT(result.err, HasSubstr(" already\n"));
  EXPECT_EQ(read_file(copy_), "mine");
}

TEST_F(TrendtoolBackup, RefusesADamagedDatabase) {
  recorder_.close();
  run_sql(db_, "UPDATE segment SET data = zeroblob(length(data))");
  const ProcessResult result = back_up();
  EXPECT_EQ(result.exit_status, 1);
  EXPECT_THAT(result.err, HasSubstr("the database is damaged: "));
  EXPECT_THAT(list_folder(folder_.path()), ElementsAre("trend.db"));
}

TEST_F(TrendtoolBackup, LeavesAWholeCopyOrNothingAfterASignal) {
  // Enough rows that some of the signals come during the work.
  ASSERT_EQ(recorder_.begin(), 0);
  for (int i = 0; i < 1'000'000; ++i) append();
  ASSERT_EQ(recorder_.commit(), 0);
  recorder_.close();
  int stopped = 0;
  for (int milliseconds = 0; milliseconds < 100; milliseconds += 4) {
    const ProcessResult result = run_tool("trendtool", {"backup", "-x", db_, copy_}, "", {},
                                          [&] { alarm_with_sigterm(milliseconds); });
    EXPECT_EQ(result.out + result.err, "");
    if (result.exit_status == 0) {
      EXPECT_THAT(list_folder(folder_.path()), ElementsAre("copy.db", "trend.db"));
      EXPECT_EQ(run_tool("trendtool", {"check", "-x", copy_}).exit_status, 0);
      std::filesystem::remove(copy_);
    } else {
      ++stopped;
      EXPECT_EQ(result.exit_status, 128 + SIGTERM);
      EXPECT_THAT(list_folder(folder_.path()), ElementsAre("trend.db"));
    }
  }
  EXPECT_GT(stopped, 0);
}

}  // namespace
