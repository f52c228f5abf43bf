// Loads and dumps in which one call after the other fails: what they say is what happened.
#include <gtest/gtest.h>
#include <sqlite3.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>

#include "libtrend/log.h"
#include "libtrend/recorder.h"
#include "tests/support/database_file.h"
#include "tests/support/fault_vfs.h"
#include "tests/support/process.h"

using namespace toolkit::trend;

namespace {

using Times = std::vector<std::int64_t>;

constexpr int ROWS = 6;
constexpr int SEALED_FROM = 576;  ///< so many loose rows of one slot are sealed

/// The faults of a kind, in every number from 1 on, once and lasting.
struct Kind {
  const char* name;
  Call call;
  int code;
};

void PrintTo(const Kind& kind, std::ostream* out) { *out << kind.name; }

const Kind KINDS[] = {
    {"Open", Call::OPEN, SQLITE_CANTOPEN},
    {"Delete", Call::DELETE, SQLITE_IOERR_DELETE},
    {"Access", Call::ACCESS, SQLITE_IOERR_ACCESS},
    {"Read", Call::READ, SQLITE_IOERR_READ},
    {"Write", Call::WRITE, SQLITE_IOERR_WRITE},
    {"FullDisk", Call::WRITE, SQLITE_FULL},
    {"Truncate", Call::TRUNCATE, SQLITE_IOERR_TRUNCATE},
    {"Sync", Call::SYNC, SQLITE_IOERR_FSYNC},
    {"FileSize", Call::FILE_SIZE, SQLITE_IOERR_FSTAT},
    {"Lock", Call::LOCK, SQLITE_IOERR_LOCK},
    {"Unlock", Call::UNLOCK, SQLITE_IOERR_UNLOCK},
    {"MapIndex", Call::SHM_MAP, SQLITE_IOERR_SHMMAP},
    {"LockIndex", Call::SHM_LOCK, SQLITE_IOERR_SHMLOCK},
    {"Memory", Call::ALLOCATE, SQLITE_NOMEM},
};

class RecorderFault : public testing::TestWithParam<Kind> {
 public:
  /// What is recorded in one transaction.
  struct Load {
    std::int64_t time;  ///< of the first row
    int rows = ROWS;
    std::size_t slots = 400;  ///< of each row
    std::int64_t purged = 0;  ///< rows before this time are removed
  };

  /// Returns the reason of a failure.
  static std::string load(const std::string& db, const Load& load) {
    CRecorder recorder;
    CDeviceProperties device;
    device.path = "/plant";
    CSeries series;
    if (recorder.open(db) != 0 || recorder.begin() != 0 || recorder.add_device(device) != 0 ||
        recorder.add_series(device, 1, series) != 0) {
      return recorder.error();
    }
    for (int i = 0; i < load.rows; ++i) {
      if (recorder.append(series, load.time + i, 1, std::vector<double>(load.slots, 1.5)) != 0) {
        return recorder.error();
      }
    }
    if (recorder.purge(series, load.purged) != 0) return recorder.error();
    return recorder.commit() == 0 ? "" : recorder.error();
  }

  /// The times of all rows; none where there is no file.
  static Times read_times(const std::string& db) {
    if (!std::filesystem::exists(db)) return {};
    CLog log;
    if (log.open(db, OpenOptions{.busy_timeout = 0}) != 0) {
      // It takes a writer to complete or undo what another one left half done.
      CRecorder recorder;
      EXPECT_EQ(recorder.open(db), 0) << recorder.error();
      EXPECT_EQ(log.open(db, OpenOptions{.busy_timeout = 0}), 0) << log.error();
    }
    CDeviceParams device;
    device.device.aux_1 = 1;
    CDeviceData data;
    EXPECT_EQ(log.get_trend_data(data, device, {{.interval = 1}}, {-1, -1}, 0, 0, true, true), 0)
        << log.error();
    Times times;
    for (const CSnapshot& row : data.snapshots) times.push_back(row.timestamp);
    return times;
  }

  /// How far one fault is from the next. Calls for memory are very many.
  static int step() {
    if (GetParam().call == Call::ALLOCATE && !is_long_run()) return ALLOCATION_STEP;
    return 1;
  }

  static Times times_from(std::int64_t first, std::size_t rows = ROWS) {
    Times times(rows);
    for (std::size_t i = 0; i < times.size(); ++i) times[i] = first + static_cast<int>(i);
    return times;
  }

  /// Lets `make` make a database, and `added` meet the fault of each number in turn. Expects the
  /// rows of `before`, or of the database after the load, exactly as the load says.
  template <typename Make>
  void expect_truth(const Make& make, const Times& before, const Load& added) {
    Times after = before;
    for (const std::int64_t row : times_from(added.time)) after.push_back(row);
    std::erase_if(after, [&](std::int64_t row) { return row < added.purged; });
    for (const bool lasts : {false, true}) {
      bool has_happened = true;
      for (int number = 1; has_happened; number += step()) {
        SCOPED_TRACE(std::to_string(number) + (lasts ? " and later" : " only"));
        const TemporaryFolder folder;
        const std::string db = folder.file("trend.db");
        make(db);
        std::string reason;
        {
          const FaultInForce fault(
              {.call = GetParam().call, .number = number, .code = GetParam().code, .lasts = lasts});
          reason = load(db, added);
          has_happened = fault.has_happened();
        }
        ASSERT_TRUE(has_happened || reason.empty()) << reason;
        const Times found = read_times(db);
        if (reason.find("in doubt") != std::string::npos) {
          ASSERT_TRUE(found == before || found == after) << reason;
        } else {
          ASSERT_TRUE(found == (reason.empty() ? after : before)) << reason;
        }
        for (const std::string& file : list_folder(folder.path())) {
          ASSERT_FALSE(file.starts_with("trend.db-new")) << reason;
        }
        // And the next one goes well.
        ASSERT_EQ(load(db, {1'000'000}), "");
      }
    }
  }

  /// Lets dumps of `db` meet the fault of each number in turn. Expects each to have all rows or to
  /// say why not.
  static void expect_whole_dumps_or_reasons(const std::string& db) {
    for (const bool lasts : {false, true}) {
      bool has_happened = true;
      for (int number = 1; has_happened; number += step()) {
        SCOPED_TRACE(std::to_string(number) + (lasts ? " and later" : " only"));
        CLog log;
        CDeviceParams device;
        device.device.aux_1 = 1;
        CDeviceData data;
        bool is_whole = false;
        {
          const FaultInForce fault(
              {.call = GetParam().call, .number = number, .code = GetParam().code, .lasts = lasts});
          is_whole =
              log.open(db, OpenOptions{.busy_timeout = 0}) == 0 &&
              log.get_trend_data(data, device, {{.interval = 1}}, {-1, -1}, 0, 0, true, true) == 0;
          has_happened = fault.has_happened();
        }
        ASSERT_TRUE(has_happened || is_whole) << log.error();
        if (is_whole) {
          ASSERT_EQ(data.snapshots.size(), static_cast<std::size_t>(ROWS));
        } else {
          ASSERT_NE(log.error(), "");
        }
      }
    }
    EXPECT_EQ(read_times(db), times_from(1000));
  }
};

TEST_P(RecorderFault, InAFirstLoadIsToldAsItIs) {
  expect_truth([](const std::string&) {}, {}, {1000});
}

TEST_P(RecorderFault, InAFirstLoadIntoAnEmptyFileIsToldAsItIs) {
  expect_truth([](const std::string& db) { write_file(db, ""); }, {}, {1000});
}

TEST_P(RecorderFault, InASecondLoadIsToldAsItIs) {
  expect_truth([](const std::string& db) { ASSERT_EQ(load(db, {1000}), ""); }, times_from(1000),
               {5000});
}

TEST_P(RecorderFault, InALoadWithARollbackJournalIsToldAsItIs) {
  const auto make = [](const std::string& db) {
    ASSERT_EQ(load(db, {1000}), "");
    run_sql(db, "PRAGMA journal_mode = delete");
  };
  expect_truth(make, times_from(1000), {5000});
}

/// Makes a database with `rows` rows from 1000 on, which are recorded once and then copied.
auto copy_of_load(int rows, const TemporaryFolder& folder) {
  const std::string original = folder.file("original.db");
  EXPECT_EQ(RecorderFault::load(original, {1000, rows, 1}), "");
  return [original](const std::string& db) { std::filesystem::copy_file(original, db); };
}

TEST_P(RecorderFault, InALoadThatSealsABlockIsToldAsItIs) {
  const TemporaryFolder folder;
  constexpr int ROWS_BEFORE = SEALED_FROM - ROWS;
  expect_truth(copy_of_load(ROWS_BEFORE, folder), times_from(1000, ROWS_BEFORE), {5000, ROWS, 1});
}

TEST_P(RecorderFault, InALoadThatPurgesPartOfABlockIsToldAsItIs) {
  const TemporaryFolder folder;
  constexpr int ROWS_BEFORE = SEALED_FROM + ROWS;
  expect_truth(copy_of_load(ROWS_BEFORE, folder), times_from(1000, ROWS_BEFORE),
               {5000, ROWS, 1, 1100});
}

TEST_P(RecorderFault, InADumpIsToldAsItIs) {
  for (const char* mode : {"wal", "delete"}) {
    const TemporaryFolder folder;
    const std::string db = folder.file("trend.db");
    ASSERT_EQ(load(db, {1000}), "");
    run_sql(db, std::string("PRAGMA journal_mode = ") + mode);
    expect_whole_dumps_or_reasons(db);
    EXPECT_EQ(list_folder(folder.path()), std::vector<std::string>{"trend.db"});
  }
}

TEST_P(RecorderFault, InADumpBesideAWriterIsToldAsItIs) {
  const TemporaryFolder folder;
  const std::string db = folder.file("trend.db");
  ASSERT_EQ(load(db, {1000}), "");
  run_sql(db, "UPDATE series_state SET changes = changes",
          [&] { expect_whole_dumps_or_reasons(db); });
}

/// Starts a transaction on `recorder` and adds a row to it.
void start_row(CRecorder& recorder, std::int64_t time) {
  CDeviceProperties device;
  device.path = "/plant";
  CSeries series;
  ASSERT_EQ(recorder.begin(), 0) << recorder.error();
  ASSERT_EQ(recorder.add_device(device), 0);
  ASSERT_EQ(recorder.add_series(device, 1, series), 0);
  ASSERT_EQ(recorder.append(series, time, 1, {}), 0);
}

TEST(FailedSync, LeavesACommitInDoubtAndTheRecorderInUse) {
  const TemporaryFolder folder;
  CRecorder recorder;
  ASSERT_EQ(recorder.open(folder.file("trend.db")), 0);
  start_row(recorder, 60);
  {
    const FaultInForce fault({.call = Call::SYNC, .code = SQLITE_IOERR_FSYNC});
    EXPECT_NE(recorder.commit(), 0);
  }
  EXPECT_EQ(recorder.error(),
            "whether it was recorded is in doubt: disk I/O error; look with trendcsv");
  start_row(recorder, 120);
  EXPECT_EQ(recorder.commit(), 0) << recorder.error();
}

TEST(FailedUnlock, DoesNotMakeACommitFail) {
  // What is recorded: nothing, a device, that a copy was made, a row.
  for (const char* what : {"nothing", "device", "copy", "row"}) {
    SCOPED_TRACE(what);
    const TemporaryFolder folder;
    const std::string db = folder.file("trend.db");
    CRecorder recorder;
    ASSERT_EQ(recorder.open(db), 0);
    start_row(recorder, 60);
    ASSERT_EQ(recorder.commit(), 0);
    recorder.close();
    run_sql(db, "PRAGMA journal_mode = delete");
    ASSERT_EQ(recorder.open(db), 0);
    CDeviceProperties device{.path = "/other", .aux_text = ""};
    const CSeries series{.id = 1, .minutes = 1};
    const std::string change = what;
    ASSERT_EQ(recorder.begin(), 0);
    if (change == "device") {
      ASSERT_EQ(recorder.add_device(device), 0);
    }
    if (change == "copy") {
      ASSERT_EQ(recorder.set_copied("source", series, 7), 0);
    }
    if (change == "row") {
      ASSERT_EQ(recorder.append(series, 120, 1, {}), 0);
    }
    {
      const FaultInForce fault({.call = Call::UNLOCK, .code = SQLITE_IOERR_UNLOCK});
      EXPECT_EQ(recorder.commit(), 0) << recorder.error();
      EXPECT_TRUE(fault.has_happened());
    }
    start_row(recorder, 180);
    EXPECT_EQ(recorder.commit(), 0) << recorder.error();
  }
}

TEST(FailedAllocation, MakesAQueryOfAnotherEncodingFail) {
  const TemporaryFolder folder;
  const std::string db = folder.file("trend.db");
  run_sql(db, std::string("PRAGMA encoding = 'UTF-16';") + LOOSE_SCHEMA + IDENTITY + CATALOGUE);
  bool has_happened = true;
  for (int number = 1; has_happened; ++number) {
    CLog log;
    ASSERT_EQ(log.open(db, {}), 0) << log.error();
    std::vector<CDeviceProperties> devices;
    const FaultInForce fault({.call = Call::ALLOCATE, .number = number, .code = SQLITE_NOMEM});
    const bool is_answered = log.get_devices(devices) == 0;
    has_happened = fault.has_happened();
    ASSERT_TRUE(is_answered ? devices.size() == 1 && devices[0].path == "/plant" : has_happened);
  }
}

TEST_P(RecorderFault, InABackupIsToldAsItIs) {
  const TemporaryFolder folder;
  const std::string db = folder.file("trend.db");
  const std::string copy = folder.file("copy.db");
  ASSERT_EQ(load(db, {1000}), "");
  // A backup needs memory very often.
  const int distance = GetParam().call == Call::ALLOCATE ? 7 * ALLOCATION_STEP : 1;
  bool has_happened = true;
  for (int number = 1; has_happened; number += distance) {
    SCOPED_TRACE(number);
    CLog log;
    bool is_made = false;
    {
      const FaultInForce fault(
          {.call = GetParam().call, .number = number, .code = GetParam().code});
      is_made = log.open(db, {.busy_timeout = 0}) == 0 && log.backup(copy) == 0;
      has_happened = fault.has_happened();
    }
    ASSERT_EQ(is_made, log.error().empty());
    ASSERT_EQ(std::filesystem::exists(copy), is_made);
    if (is_made) {
      ASSERT_EQ(read_times(copy), times_from(1000));
    }
    for (const std::string& file : list_folder(folder.path())) {
      ASSERT_TRUE(file == "trend.db" || file == "copy.db") << file;
      if (file == "copy.db") std::filesystem::remove(copy);
    }
  }
}

TEST(DeathOfAWriter, LeavesAnEmptyFileToTheNextOne) {
  for (const Call call : {Call::OPEN, Call::WRITE, Call::SYNC, Call::DELETE, Call::UNLOCK}) {
    constexpr int SURVIVED = 5;
    int status = 0;
    for (int number = 1; WEXITSTATUS(status) != SURVIVED; ++number) {
      const TemporaryFolder folder;
      const std::string db = folder.file("trend.db");
      write_file(db, "");
      const pid_t child = fork();
      ASSERT_GE(child, 0);
      if (child == 0) {
        const FaultInForce fault({.call = call, .number = number, .action = [] { _exit(0); }});
        _exit(CRecorder().open(db) == 0 ? SURVIVED : 1);
      }
      ASSERT_EQ(waitpid(child, &status, 0), child);
      ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) != 1) << status;
      CRecorder recorder;
      ASSERT_EQ(recorder.open(db), 0) << number << recorder.error();
      start_row(recorder, 60);
      EXPECT_EQ(recorder.commit(), 0) << recorder.error();
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Of, RecorderFault, testing::ValuesIn(KINDS),
                         [](const auto& kind) { return kind.param.name; });

}  // namespace
