// Copies of databases that are being recorded.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "libtrend/log.h"
#include "libtrend/recorder.h"
#include "tests/support/database_file.h"
#include "tests/support/process.h"
#include "tests/support/recorded_rows.h"
#include "tests/support/version_1.h"

namespace toolkit::trend {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

class Backup : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(recorder_.open(path_), 0);
    ASSERT_EQ(recorder_.begin(), 0);
    CParamProperties param{.path = "a", .has_actual = true};
    ASSERT_EQ(recorder_.add_device(device_), 0);
    ASSERT_EQ(recorder_.add_param(device_, param), 0);
    ASSERT_EQ(recorder_.add_series(device_, 1, series_), 0);
    ASSERT_EQ(recorder_.commit(), 0);
    append(3000);
  }

  void append(int rows) {
    ASSERT_EQ(recorder_.begin(), 0) << recorder_.error();
    for (; rows > 0; --rows) {
      ++rows_;
      const auto value = static_cast<double>(rows_);
      ASSERT_EQ(recorder_.append(series_, 60 * rows_, 1, {&value, 1}), 0) << recorder_.error();
    }
    ASSERT_EQ(recorder_.commit(), 0) << recorder_.error();
  }

  int back_up(const ReportProgress& progress = {}) {
    CLog log;
    const int status = log.open(path_, {}) == 0 ? log.backup(copy_, progress) : -1;
    error_ = log.error();
    return status;
  }

  /// Expects that the copy is a database with rows 1 to `rows`, and returns `rows`.
  std::int64_t read_copy() {
    const RecordedDatabase copy = read_recorded_rows(copy_);
    const RecordedSeries& rows = copy.series.at(series_.id);
    for (const auto& [time, row] : rows)
      EXPECT_EQ(row.values, std::vector{static_cast<double>(time) / 60});
    EXPECT_EQ(rows.rbegin()->first, 60 * std::ssize(rows));
    return std::ssize(rows);
  }

  TemporaryFolder folder_;
  std::string path_ = folder_.file("trend.db");
  std::string copy_ = folder_.file("copy.db");
  CRecorder recorder_;
  CDeviceProperties device_{.path = "/plant", .aux_text = ""};
  CSeries series_;
  std::int64_t rows_ = 0;
  std::string error_;
};

TEST_F(Backup, CopiesTheWholeDatabase) {
  ASSERT_EQ(back_up(), 0) << error_;
  EXPECT_EQ(read_copy(), 3000);
  recorder_.close();
  EXPECT_THAT(list_folder(folder_.path()), ElementsAre("copy.db", "trend.db"));
}

TEST_F(Backup, IsADatabaseToRecordInto) {
  ASSERT_EQ(back_up(), 0) << error_;
  recorder_.close();
  path_ = copy_;
  ASSERT_EQ(recorder_.open(path_), 0);
  append(1);
  EXPECT_EQ(read_copy(), 3001);
}

TEST_F(Backup, CopiesADatabaseOfManyPages) {
  ASSERT_EQ(recorder_.begin(), 0);
  for (int i = 0; i < 100; ++i) {
    CDeviceProperties device{.path = std::to_string(i), .aux_text = std::string(30'000, 'x')};
    ASSERT_EQ(recorder_.add_device(device), 0) << recorder_.error();
  }
  ASSERT_EQ(recorder_.commit(), 0);
  ASSERT_EQ(back_up(), 0) << error_;
  EXPECT_EQ(read_copy(), 3000);
}

TEST_F(Backup, IsOneStateWhileTheSameProcessRecords) {
  int calls = 0;
  const auto record = [&](std::uint64_t done, std::uint64_t total) {
    EXPECT_LE(done, total);
    ++calls;
    append(1000);
    return true;
  };
  append(100'000);
  const std::int64_t rows = rows_;
  ASSERT_EQ(back_up(record), 0) << error_;
  EXPECT_GT(calls, 2);
  EXPECT_EQ(read_copy(), rows);
}

TEST_F(Backup, IsOneStateWhileAnotherThreadRecords) {
  std::atomic<bool> is_ended = false;
  std::thread writer([&] {
    // The database must not grow faster than a slow machine can copy and read it.
    constexpr int MOST_COMMITS = 30;
    for (int i = 0; i < MOST_COMMITS && !is_ended && !HasFailure(); ++i) append(700);
  });
  std::int64_t before = 0;
  for (int i = 0; i < random_rounds(8, 2); ++i) {
    EXPECT_EQ(back_up(), 0) << error_;
    const std::int64_t rows = read_copy();
    EXPECT_GE(rows, before);
    EXPECT_TRUE((rows - 3000) % 700 == 0) << "a part of a transaction is in the copy";
    before = rows;
    std::filesystem::remove(copy_);
  }
  is_ended = true;
  writer.join();
}

TEST_F(Backup, CopiesAnOldDatabase) {
  recorder_.close();
  std::filesystem::remove(path_);
  make_version_1(path_, {{1, {{60, {1, {5}}}}}});
  ASSERT_EQ(back_up(), 0) << error_;
  EXPECT_EQ(read_file(copy_).size(), read_file(path_).size());
}

TEST_F(Backup, CopiesADatabaseWithARollbackJournal) {
  recorder_.close();
  run_sql(path_, "PRAGMA journal_mode = delete");
  ASSERT_EQ(back_up(), 0) << error_;
  EXPECT_EQ(read_copy(), 3000);
}

TEST_F(Backup, ReplacesNoFile) {
  write_file(copy_, "mine");
  EXPECT_EQ(back_up(), -1);
  EXPECT_THAT(error_, HasSubstr("there is a file " + copy_ + " already"));
  EXPECT_EQ(read_file(copy_), "mine");
  std::filesystem::remove(copy_);
  write_file(copy_ + "-wal", "of another database");
  EXPECT_EQ(back_up(), -1);
  EXPECT_FALSE(std::filesystem::exists(copy_));
}

TEST_F(Backup, LeavesNothingWhereItIsStopped) {
  recorder_.close();
  const auto stop = [](std::uint64_t, std::uint64_t) { return false; };
  EXPECT_EQ(back_up(stop), -1);
  EXPECT_EQ(error_, "it was stopped");
  EXPECT_THAT(list_folder(folder_.path()), ElementsAre("trend.db"));
}

TEST_F(Backup, LeavesNothingWhereTheDatabaseIsDamaged) {
  recorder_.close();
  run_sql(path_, "UPDATE segment SET data = zeroblob(length(data))");
  EXPECT_EQ(back_up(), -1);
  EXPECT_THAT(error_, HasSubstr("the database is damaged: "));
  EXPECT_THAT(list_folder(folder_.path()), ElementsAre("trend.db"));
}

TEST_F(Backup, LeavesNothingWhereItIsStoppedWhileItIsChecked) {
  append(2000);
  recorder_.close();
  std::uint64_t calls = 0;
  const ReportProgress stop = [&](std::uint64_t done, std::uint64_t total) {
    ++calls;
    return done <= total / 2;
  };
  EXPECT_NE(back_up(stop), 0);
  EXPECT_EQ(error_, "it was stopped");
  EXPECT_GT(calls, 1U);
  EXPECT_EQ(list_folder(folder_.path()), std::vector<std::string>{"trend.db"});
  EXPECT_EQ(back_up([](auto, auto) { return true; }), 0) << error_;
}

TEST_F(Backup, IsMadeAgainIfAWriterComes) {
  recorder_.close();
  CRecorder writer;
  const ReportProgress write = [&](std::uint64_t, std::uint64_t) {
    const double value = 3001;
    if (rows_ == 3000) {
      rows_ = 3001;
      EXPECT_EQ(writer.open(path_), 0);
      EXPECT_EQ(writer.begin(), 0);
      EXPECT_EQ(writer.append(series_, 60 * rows_, 1, {&value, 1}), 0);
      EXPECT_EQ(writer.commit(), 0);
    }
    return true;
  };
  EXPECT_EQ(back_up(write), 0) << error_;
  EXPECT_EQ(read_copy(), 3001);
}

TEST_F(Backup, KeepsAFileThatAppearsMeanwhile) {
  const ReportProgress create = [&](std::uint64_t, std::uint64_t) {
    write_file(copy_, "of another program");
    return true;
  };
  EXPECT_NE(back_up(create), 0);
  EXPECT_EQ(error_, "File exists");
  EXPECT_EQ(read_file(copy_), "of another program");
}

TEST_F(Backup, SaysWhatIsWrongWithAFolder) {
  copy_ = folder_.path().string();
  for (int i = 0; i < 4; ++i) copy_ += '/' + std::string(200, 'x');
  std::filesystem::create_directories(copy_);
  copy_ += "/copy.db";
  EXPECT_NE(back_up(), 0);
  EXPECT_EQ(error_, "its path can't be resolved");

  copy_ = folder_.file("missing/copy.db");
  EXPECT_EQ(back_up(), -1);
  EXPECT_THAT(error_, HasSubstr("No such file"));
}

}  // namespace
}  // namespace toolkit::trend
