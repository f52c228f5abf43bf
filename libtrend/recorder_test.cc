#include "libtrend/recorder.h"

#include <gtest/gtest.h>
#include <sqlite3.h>

#include <chrono>
#include <filesystem>
#include <limits>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "libtrend/log.h"
#include "tests/support/database_file.h"
#include "tests/support/process.h"
#include "tests/support/version_1.h"

namespace toolkit::trend {
namespace {

class Recorder : public testing::Test {
 protected:
  void open() {
    ASSERT_EQ(recorder_.open(path_), 0) << recorder_.error();
    ASSERT_EQ(recorder_.begin(), 0);
    ASSERT_EQ(recorder_.add_device(device_), 0);
    ASSERT_EQ(recorder_.add_series(device_, 5, series_), 0);
  }

  std::vector<std::int64_t> recorded_times() {
    CLog log;
    EXPECT_EQ(log.open(path_, {}), 0);
    CDeviceData data;
    EXPECT_EQ(log.get_trend_data(data, {.device = device_, .params = {}}, {{.interval = 5}},
                                 {-1, -1}, 0, 0, true, true),
              0);
    std::vector<std::int64_t> times;
    for (const CSnapshot& row : data.snapshots) times.push_back(row.timestamp);
    return times;
  }

  int append(std::int64_t time) {
    return recorder_.append(series_, time, 1, std::vector<double>{1});
  }

  TemporaryFolder folder_;
  std::string path_ = folder_.file("trend.db");
  CRecorder recorder_;
  CDeviceProperties device_{.path = "device", .aux_text = "described"};
  CSeries series_;
};

TEST_F(Recorder, GoesOnAfterAMove) {
  open();
  ASSERT_EQ(append(300), 0);
  CRecorder other(std::move(recorder_));
  recorder_ = std::move(other);
  ASSERT_EQ(append(600), 0);
  ASSERT_EQ(recorder_.commit(), 0);
  EXPECT_EQ(recorded_times(), (std::vector<std::int64_t>{300, 600}));
}

TEST_F(Recorder, ShowsReadersOnlyWhatIsCommitted) {
  open();
  ASSERT_EQ(append(300), 0);
  ASSERT_EQ(recorder_.commit(), 0);
  ASSERT_EQ(recorder_.begin(), 0);
  ASSERT_EQ(append(600), 0);
  EXPECT_EQ(recorded_times(), (std::vector<std::int64_t>{300}));
  ASSERT_EQ(recorder_.commit(), 0);
  EXPECT_EQ(recorded_times(), (std::vector<std::int64_t>{300, 600}));
}

TEST_F(Recorder, RecordsAllOfATransactionOrNothing) {
  open();
  ASSERT_EQ(recorder_.commit(), 0);
  ASSERT_EQ(recorder_.begin(), 0);
  ASSERT_EQ(append(300), 0);
  EXPECT_NE(append(300), 0);
  EXPECT_EQ(recorder_.error(), "the series has a row with the timestamp 300 already");
  // Calls after the failure must not record anything.
  EXPECT_NE(append(600), 0);
  EXPECT_EQ(recorder_.error(), "no transaction is open");
  EXPECT_NE(recorder_.commit(), 0);
  EXPECT_TRUE(recorded_times().empty());
  ASSERT_EQ(recorder_.begin(), 0);
  ASSERT_EQ(append(600), 0);
  ASSERT_EQ(recorder_.commit(), 0);
  EXPECT_EQ(recorded_times(), (std::vector<std::int64_t>{600}));
}

TEST_F(Recorder, UndoesAnOpenTransactionOnRollbackAndClose) {
  open();
  ASSERT_EQ(append(300), 0);
  ASSERT_EQ(recorder_.commit(), 0);
  ASSERT_EQ(recorder_.begin(), 0);
  ASSERT_EQ(append(600), 0);
  recorder_.rollback();
  ASSERT_EQ(recorder_.begin(), 0);
  ASSERT_EQ(append(900), 0);
  recorder_.close();
  EXPECT_EQ(recorded_times(), (std::vector<std::int64_t>{300}));
}

TEST_F(Recorder, RefusesRowsThatTheFormatCannotHold) {
  constexpr std::int64_t LAST = (std::int64_t{1} << 40) - 1;
  for (const std::int64_t time : {std::int64_t{0}, std::int64_t{-5}, LAST + 1}) {
    open();
    EXPECT_NE(append(time), 0) << time;
    EXPECT_EQ(recorder_.error(), "the timestamp " + std::to_string(time) + " is out of range");
  }
  open();
  EXPECT_EQ(append(LAST), 0);
  EXPECT_EQ(append(1), 0);
  for (const double ratio : {-0.01, 1.01, std::numeric_limits<double>::quiet_NaN()}) {
    open();
    EXPECT_NE(recorder_.append(series_, 300, ratio, {}), 0) << ratio;
    EXPECT_NE(recorder_.error().find("is not between 0 and 1"), std::string::npos);
  }
}

TEST_F(Recorder, RecordsRowsWithoutValues) {
  open();
  EXPECT_EQ(recorder_.append(series_, 300, 0, {}), 0);
  EXPECT_EQ(recorder_.commit(), 0);
  EXPECT_EQ(recorded_times(), (std::vector<std::int64_t>{300}));
}

TEST_F(Recorder, RecordsAShareOfMinusZeroAsZero) {
  open();
  ASSERT_EQ(recorder_.append(series_, 300, -0.0, {}), 0);
  ASSERT_EQ(recorder_.commit(), 0);
  EXPECT_EQ(recorded_times(), (std::vector<std::int64_t>{300}));
}

TEST_F(Recorder, KeepsExistingEntries) {
  open();
  CParamProperties first{.path = "first", .has_min = true, .has_sum = true};
  CParamProperties second{.path = "second", .has_actual = true};
  ASSERT_EQ(recorder_.add_param(device_, first), 0);
  ASSERT_EQ(recorder_.add_param(device_, second), 0);
  EXPECT_EQ(first.aux_1, 0U);
  EXPECT_EQ(second.aux_1, 2U);
  CParamProperties again{.path = "first", .has_max = true};
  ASSERT_EQ(recorder_.add_param(device_, again), 0);
  EXPECT_TRUE(again.has_min && again.has_sum && !again.has_max);
  EXPECT_EQ(again.aux_1, 0U);

  CDeviceProperties same{.path = "device", .aux_text = "otherwise"};
  ASSERT_EQ(recorder_.add_device(same), 0);
  EXPECT_EQ(same.aux_1, device_.aux_1);
  EXPECT_EQ(same.aux_text, "described");
  CSeries series;
  ASSERT_EQ(recorder_.add_series(device_, 5, series), 0);
  EXPECT_EQ(series.id, series_.id);
}

TEST_F(Recorder, RefusesWhatTheSchemaForbids) {
  open();
  CSeries series;
  EXPECT_NE(recorder_.add_series(device_, 0, series), 0);
  EXPECT_FALSE(recorder_.error().empty());
  open();
  CParamProperties param{.path = "p"};
  EXPECT_NE(recorder_.add_param(CDeviceProperties{.path = "", .aux_text = "", .aux_1 = 77}, param),
            0);
  EXPECT_NE(recorder_.error().find("FOREIGN KEY"), std::string::npos) << recorder_.error();
}

TEST_F(Recorder, RefusesCallsOutsideATransaction) {
  EXPECT_NE(recorder_.begin(), 0);
  EXPECT_EQ(recorder_.error(), "no database is open");
  const auto expect_refusal = [&](const char* reason) {
    CParamProperties param;
    CSeries series;
    std::uint64_t change = 0;
    for (const int status :
         {append(300), recorder_.add_device(device_), recorder_.add_param(device_, param),
          recorder_.add_series(device_, 5, series), recorder_.get_copied("", series, change),
          recorder_.set_copied("", series, change), recorder_.purge(series, 300),
          recorder_.remove_row(series, 300), recorder_.remove_series(series),
          recorder_.remove_device(device_), recorder_.commit()}) {
      EXPECT_EQ(status, -1);
      EXPECT_EQ(recorder_.error(), reason);
    }
  };
  expect_refusal("no database is open");
  ASSERT_EQ(recorder_.open(path_), 0);
  expect_refusal("no transaction is open");
  recorder_.rollback();
  ASSERT_EQ(recorder_.begin(), 0);
  EXPECT_NE(recorder_.begin(), 0);
  EXPECT_EQ(recorder_.error(), "a transaction is already open");
}

TEST_F(Recorder, ReopensWhatItCreated) {
  open();
  ASSERT_EQ(append(300), 0);
  ASSERT_EQ(recorder_.commit(), 0);
  ASSERT_EQ(recorder_.open(path_), 0) << recorder_.error();
  ASSERT_EQ(recorder_.begin(), 0);
  ASSERT_EQ(append(600), 0);
  ASSERT_EQ(recorder_.commit(), 0);
  EXPECT_EQ(recorded_times(), (std::vector<std::int64_t>{300, 600}));
}

TEST_F(Recorder, FillsAnEmptyFile) {
  write_file(path_, "");
  open();
  ASSERT_EQ(append(300), 0);
  ASSERT_EQ(recorder_.commit(), 0);
  EXPECT_EQ(recorded_times(), (std::vector<std::int64_t>{300}));
}

TEST_F(Recorder, LeavesAnEmptyDatabaseIfNothingWasCommitted) {
  for (const bool is_there : {false, true}) {
    std::filesystem::remove(path_);
    if (is_there) write_file(path_, "");
    open();
    ASSERT_EQ(append(300), 0);
    EXPECT_NE(append(-1), 0);
    recorder_.close();
    EXPECT_TRUE(recorded_times().empty());
    open();
    ASSERT_EQ(append(300), 0);
    ASSERT_EQ(recorder_.commit(), 0);
    recorder_.close();
    EXPECT_EQ(recorded_times(), (std::vector<std::int64_t>{300}));
  }
}

TEST_F(Recorder, CreatesTheDatabaseToWhichALinkPoints) {
  std::filesystem::create_directory(folder_.file("other"));
  std::filesystem::create_symlink("other/other.db", path_);
  open();
  ASSERT_EQ(append(300), 0);
  ASSERT_EQ(recorder_.commit(), 0);
  recorder_.close();
  EXPECT_TRUE(std::filesystem::is_regular_file(folder_.file("other/other.db")));
  EXPECT_TRUE(std::filesystem::is_symlink(path_));
  EXPECT_EQ(recorded_times(), (std::vector<std::int64_t>{300}));
}

TEST_F(Recorder, IgnoresTheLogOfADeletedDatabase) {
  open();
  ASSERT_EQ(append(300), 0);
  ASSERT_EQ(recorder_.commit(), 0);
  const std::string log = read_file(path_ + "-wal");
  ASSERT_FALSE(log.empty());
  recorder_.close();
  std::filesystem::remove(path_);
  write_file(path_ + "-wal", log);
  open();
  ASSERT_EQ(append(600), 0) << recorder_.error();
  ASSERT_EQ(recorder_.commit(), 0) << recorder_.error();
  recorder_.close();
  EXPECT_EQ(recorded_times(), (std::vector<std::int64_t>{600}));
}

TEST_F(Recorder, KeepsWhatAnotherRecorderCommitted) {
  open();
  recorder_.rollback();
  CRecorder other;
  ASSERT_EQ(other.open(path_), 0);
  ASSERT_EQ(other.begin(), 0);
  ASSERT_EQ(other.add_device(device_), 0);
  ASSERT_EQ(other.add_series(device_, 5, series_), 0);
  ASSERT_EQ(other.append(series_, 900, 1, {}), 0);
  ASSERT_EQ(other.commit(), 0) << other.error();
  recorder_.close();
  other.close();
  EXPECT_EQ(recorded_times(), (std::vector<std::int64_t>{900}));
}

TEST_F(Recorder, RefusesToRecordIntoAFileThatWasRemoved) {
  open();
  recorder_.rollback();
  std::filesystem::rename(path_, folder_.file("moved.db"));
  EXPECT_NE(recorder_.begin(), 0);
  EXPECT_EQ(recorder_.error(), "the file was moved or removed since it was opened");
  std::filesystem::rename(folder_.file("moved.db"), path_);
  EXPECT_EQ(recorder_.begin(), 0) << recorder_.error();
}

TEST_F(Recorder, WaitsForTheLockOfAnEmptyFile) {
  write_file(path_, "");
  sqlite3* other = nullptr;
  ASSERT_EQ(sqlite3_open(path_.c_str(), &other), SQLITE_OK);
  ASSERT_EQ(sqlite3_exec(other, "BEGIN EXCLUSIVE", nullptr, nullptr, nullptr), SQLITE_OK);
  std::thread end_of_writing([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    sqlite3_exec(other, "ROLLBACK", nullptr, nullptr, nullptr);
  });
  open();
  end_of_writing.join();
  EXPECT_EQ(append(300), 0) << recorder_.error();
  EXPECT_EQ(recorder_.commit(), 0);
  sqlite3_close(other);
  EXPECT_EQ(recorded_times(), (std::vector<std::int64_t>{300}));
}

TEST_F(Recorder, RefusesASeriesIdThatIsTooLarge) {
  open();
  ASSERT_EQ(recorder_.commit(), 0);
  recorder_.close();
  run_sql(path_, std::string(TURN_INTO_VERSION_1) + "UPDATE series SET id = 8388607");
  ASSERT_EQ(recorder_.open(path_), 0);
  ASSERT_EQ(recorder_.begin(), 0);
  EXPECT_EQ(recorder_.add_series(device_, 5, series_), 0);
  EXPECT_NE(recorder_.add_series(device_, 6, series_), 0);
  EXPECT_EQ(recorder_.error(), "the database has no room for another series");
  for (const char* id : {"8388608", "-8388609", "-9223372036854775807"}) {
    run_sql(path_, "UPDATE series SET id = " + std::string(id));
    EXPECT_NE(recorder_.begin(), 0) << id;
    EXPECT_EQ(recorder_.error(), "the catalogue is damaged");
  }
}

TEST_F(Recorder, SaysWhyADatabaseCannotBeOpened) {
  EXPECT_NE(recorder_.open(folder_.file("no/such/folder")), 0);
  EXPECT_EQ(recorder_.error(), "No such file or directory");
  EXPECT_NE(recorder_.open(folder_.path()), 0);
  EXPECT_EQ(recorder_.error(), "it is not a regular file");
  const std::string text =
      "This is a text file, and longer than the header of a database. It has "
      "nothing to do with trend data at all.\n";
  write_file(path_, text);
  EXPECT_NE(recorder_.open(path_), 0);
  EXPECT_EQ(recorder_.error(), "file is not a database");
  EXPECT_EQ(read_file(path_), text);
}

}  // namespace
}  // namespace toolkit::trend
