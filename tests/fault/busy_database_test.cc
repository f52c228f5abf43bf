// A reader while other programs start to write its database, between two queries and during a
// query.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>

#include "libtrend/log.h"
#include "tests/support/database_file.h"
#include "tests/support/fault_vfs.h"
#include "tests/support/process.h"
#include "tests/support/statement_faults.h"

using namespace toolkit::trend;

namespace {

/// A database in WAL mode, closed, in which all rows have one value.
class BusyDatabase : public testing::Test {
 protected:
  static constexpr int ROWS = 60;

  BusyDatabase() {
    std::string sql = std::string("BEGIN;") + LOOSE_SCHEMA + IDENTITY + CATALOGUE;
    for (int minute = 1; minute <= ROWS; ++minute) sql += insert_row(minute);
    run_sql(db_, sql + "COMMIT;" + SET_1 + "PRAGMA journal_mode = wal;");
  }

  int open() { return log_.open(db_, OpenOptions{.busy_timeout = 2}); }

  /// The value that all rows have; -1 if they differ or a row is missing.
  double read_value() {
    CParamProperties param;
    param.path = "a";
    param.has_actual = true;
    CDeviceParams device;
    device.device.aux_1 = 1;
    device.params = {param};
    CDeviceData data;
    EXPECT_EQ(log_.get_trend_data(data, device, {{.interval = 1}}, {-1, -1}, 0, 0, true, true), 0)
        << log_.error();
    if (data.snapshots.size() != ROWS) return -1;
    const double value = data.snapshots[0].samples[0].actual;
    const bool is_even =
        std::all_of(data.snapshots.begin(), data.snapshots.end(),
                    [&](const CSnapshot& row) { return row.samples[0].actual == value; });
    return is_even ? value : -1;
  }

  // In turn, all rows have the value 1 or 2. Each row takes half a page, so that a query reads many
  // pages.
  static constexpr const char* SET_1 =
      "UPDATE snapshot SET samples = CAST(x'3FF0000000000000' || zeroblob(2000) AS BLOB);";
  static constexpr const char* SET_2 =
      "UPDATE snapshot SET samples = CAST(x'4000000000000000' || zeroblob(2000) AS BLOB);";
  static constexpr const char* CHECKPOINT = "PRAGMA wal_checkpoint(TRUNCATE);";

  TemporaryFolder folder_;
  std::string db_ = folder_.file("trend.db");
  CLog log_;
};

TEST_F(BusyDatabase, ShowsRowsWrittenBetweenTwoQueries) {
  ASSERT_EQ(open(), 0) << log_.error();
  EXPECT_EQ(read_value(), 1);
  EXPECT_EQ(list_folder(folder_.path()), std::vector<std::string>{"trend.db"});
  run_sql(db_, std::string(SET_2) + CHECKPOINT);
  EXPECT_EQ(read_value(), 2);
  run_sql(db_, SET_1);
  EXPECT_EQ(read_value(), 1);
}

TEST_F(BusyDatabase, ShowsRowsThatAreOnlyInTheLog) {
  ASSERT_EQ(open(), 0) << log_.error();
  EXPECT_EQ(read_value(), 1);
  run_sql(db_, SET_2, [&] { EXPECT_EQ(read_value(), 2); });
}

TEST_F(BusyDatabase, NeverShowsAMixtureOfOldAndNewRows) {
  int reads = 0;
  for (bool has_happened = true; has_happened; ++reads) {
    run_sql(db_, SET_1);
    ASSERT_EQ(list_folder(folder_.path()), std::vector<std::string>{"trend.db"});
    ASSERT_EQ(open(), 0) << log_.error();
    FaultInForce fault({.call = Call::READ, .number = reads + 1, .action = [&] {
                          run_sql(db_, std::string(SET_2) + CHECKPOINT);
                        }});
    const double value = read_value();
    has_happened = fault.has_happened();
    ASSERT_EQ(value, has_happened ? 2 : 1) << reads;
    log_.close();
  }
  EXPECT_GT(reads, ROWS / 2);
}

TEST_F(BusyDatabase, OpensWhileAWriterStarts) {
  for (const Call call : {Call::OPEN, Call::LOCK, Call::READ, Call::ACCESS, Call::FILE_SIZE}) {
    bool has_happened = true;
    for (int number = 1; has_happened; ++number) {
      run_sql(db_, SET_1);
      FaultInForce fault({.call = call, .number = number, .action = [&] {
                            run_sql(db_, std::string(SET_2) + CHECKPOINT);
                          }});
      ASSERT_EQ(open(), 0) << number << log_.error();
      const double value = read_value();
      has_happened = fault.has_happened();
      ASSERT_EQ(value, has_happened ? 2 : 1) << number;
      log_.close();
    }
  }
}

TEST_F(BusyDatabase, CanBeReadAfterAChangeOfTheJournalMode) {
  run_sql(db_, "PRAGMA journal_mode = delete");
  ASSERT_EQ(open(), 0) << log_.error();
  EXPECT_EQ(read_value(), 1);
  run_sql(db_, "PRAGMA journal_mode = wal");
  EXPECT_EQ(read_value(), 1);
  EXPECT_EQ(list_folder(folder_.path()), std::vector<std::string>{"trend.db"});
  run_sql(db_, SET_2);
  EXPECT_EQ(read_value(), 2);
}

TEST_F(BusyDatabase, CanBeReadBesideAPersistentJournal) {
  for (const unsigned size : {0U, 512U}) {
    write_file(db_ + "-journal", std::string(size, '\0'));
    ASSERT_EQ(open(), 0) << log_.error();
    EXPECT_EQ(read_value(), 1);
    EXPECT_EQ(list_folder(folder_.path()),
              (std::vector<std::string>{"trend.db", "trend.db-journal"}));
  }
}

TEST_F(BusyDatabase, CannotBeReadWhileItIsLocked) {
  run_sql(db_, "PRAGMA locking_mode = exclusive; BEGIN EXCLUSIVE;", [&] {
    CLog log;
    EXPECT_NE(log.open(db_, OpenOptions{.busy_timeout = 0}), 0);
    EXPECT_EQ(log.error(), "database is locked");
  });
  EXPECT_EQ(open(), 0) << log_.error();
}

}  // namespace

int main(int argc, char** argv) {
  // The faults come from the layer, so the disk need not be slow.
  if (access("/dev/shm", W_OK) == 0) setenv("TMPDIR", "/dev/shm", 0);
  install_fault_vfs();
  install_statement_faults();
  testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}
