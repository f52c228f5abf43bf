// Tests that a log says why a call failed.
#include <gtest/gtest.h>
#include <sqlite3.h>

#include "libtrend/archive.h"
#include "libtrend/log.h"
#include "libtrend/recorder.h"
#include "tests/support/process.h"
#include "tests/support/version_1.h"

namespace toolkit::trend {
namespace {

constexpr const char* NOT_OPEN = "no database is open";

class LogError : public testing::Test {
 protected:
  void record() {
    CRecorder recorder;
    ASSERT_EQ(recorder.open(path_), 0) << recorder.error();
    ASSERT_EQ(recorder.begin(), 0);
    ASSERT_EQ(recorder.add_device(device_.device), 0);
    CSeries series;
    ASSERT_EQ(recorder.add_series(device_.device, 5, series), 0);
    EXPECT_EQ(series.minutes, 5U);
    ASSERT_EQ(recorder.append(series, 300, 1, {}), 0);
    ASSERT_EQ(recorder.commit(), 0);
  }

  void execute(const char* sql) {
    sqlite3* db = nullptr;
    ASSERT_EQ(sqlite3_open(path_.c_str(), &db), SQLITE_OK);
    EXPECT_EQ(sqlite3_exec(db, sql, nullptr, nullptr, nullptr), SQLITE_OK) << sqlite3_errmsg(db);
    sqlite3_close(db);
  }

  int query() {
    CDeviceData data;
    return log_.get_trend_data(data, device_, {{.interval = 5}}, {-1, -1}, 0, 0, true, true);
  }

  TemporaryFolder folder_;
  std::string path_ = folder_.file("trend.db");
  CDeviceParams device_{.device = {.path = "pump", .aux_text = ""}, .params = {}};
  CLog log_;
};

TEST_F(LogError, SaysThatNoDatabaseIsOpen) {
  EXPECT_EQ(log_.error(), NOT_OPEN);
  EXPECT_EQ(query(), -1);
  EXPECT_EQ(log_.error(), NOT_OPEN);
  record();
  ASSERT_EQ(log_.open(path_, {}), 0);
  CLog copy = log_;
  log_.close();
  std::vector<CDeviceProperties> devices;
  EXPECT_EQ(copy.get_devices(devices), -1);
  EXPECT_EQ(copy.error(), NOT_OPEN);
}

TEST_F(LogError, SaysWhyAFileIsRefused) {
  EXPECT_EQ(log_.open(path_, {}), -1);
  EXPECT_EQ(log_.error(), "No such file or directory");
  record();
  execute("PRAGMA user_version = 77");
  EXPECT_EQ(log_.open(path_, {}), -1);
  EXPECT_NE(log_.error(), "");
  EXPECT_NE(log_.error(), NOT_OPEN);
}

// This test program is linked without the module for archives.
TEST_F(LogError, SaysThatThereAreNoArchives) {
  const std::string reason = "this build can't use archives on PostgreSQL";
  const std::string url = "postgresql://host/site";
  EXPECT_EQ(log_.open(url, {}), -1);
  EXPECT_EQ(log_.error(), reason);
  EXPECT_EQ(log_.open_damaged(url, {}), -1);
  EXPECT_EQ(log_.error(), reason);
  CRecorder recorder;
  EXPECT_EQ(recorder.open("postgres://host/site"), -1);
  EXPECT_EQ(recorder.error(), reason);
  std::string error;
  EXPECT_EQ(create_archive(url, {}, error), -1);
  EXPECT_EQ(error, reason);
  EXPECT_EQ(create_archive(path_, {}, error), -1);
  EXPECT_EQ(error, "an address of an archive starts with 'postgresql://'");
}

TEST_F(LogError, ReportsDamage) {
  record();
  execute(TURN_INTO_VERSION_1);
  execute("UPDATE snapshot SET samples = zeroblob(9)");
  ASSERT_EQ(log_.open(path_, {}), 0);
  const CLog copy = log_;
  EXPECT_EQ(query(), -1);
  EXPECT_EQ(log_.error(), "the table of rows is damaged");
  EXPECT_EQ(copy.error(), log_.error());
  execute("UPDATE device SET path = CAST(path AS TEXT), description = ''; DROP TABLE snapshot");
  EXPECT_EQ(query(), -1);
  EXPECT_EQ(log_.error(), "no such table: snapshot");
}

}  // namespace
}  // namespace toolkit::trend
