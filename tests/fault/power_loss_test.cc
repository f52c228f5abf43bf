// The power is lost at every moment of loads, seals, purges and upgrades: what was committed stays.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <functional>
#include <random>
#include <string>
#include <vector>

#include "libtrend/log.h"
#include "libtrend/recorder.h"
#include "tests/support/database_file.h"
#include "tests/support/disk_log.h"
#include "tests/support/log_content.h"
#include "tests/support/process.h"
#include "tests/support/small_databases.h"

using namespace toolkit::trend;

namespace {

/// What a program does to a database. It calls `committed` after each commit.
using Work = std::function<void(const std::string& path, const std::function<void()>& committed)>;

class PowerLoss : public testing::TestWithParam<bool> {
 protected:
  /// Lets `work` change a database that is like the small one of this name. Expects that it has
  /// each commit that was done, and nothing of half a commit, wherever the power is lost.
  void expect_commits_to_last(const std::string& start, const Work& work) {
    small_database(start).make(path_);
    if (GetParam()) run_sql(path_, "PRAGMA journal_mode = delete");
    Disk disk(Files{{path_, read_file(path_)}});
    states_ = {read_content(path_)};
    note_disk_changes(true);
    work(path_, [&] {
      mark_disk_changes();
      states_.push_back(read_content(path_));
    });
    note_disk_changes(false);
    const std::vector<DiskChange> changes = disk_changes();
    for (const DiskChange& change : changes) {
      // Between two of these moments, less is lasting.
      if (change.kind != DiskChange::Kind::WRITE) lose_power(disk);
      if (HasFatalFailure()) return;
      disk.apply(change);
      if (change.kind == DiskChange::Kind::MARK) ++committed_;
    }
    lose_power(disk);
    EXPECT_EQ(committed_ + 1, states_.size());
    RecordProperty("losses_of_power", losses_);
  }

 private:
  /// Looks at what may be on the disk if the power is lost now.
  void lose_power(const Disk& disk) {
    look(disk.lose_power([] { return false; }), "nothing is kept");
    look(disk.lose_power([] { return true; }), "all is kept");
    const int rounds = is_long_run() ? 100 : POWER_LOSS_ROUNDS;
    for (int round = 0; round < rounds; ++round) {
      look(disk.lose_power([&] { return random_() % 2 == 0; }), "a part is kept");
      std::size_t parts = random_() % 20;
      look(disk.lose_power([&] { return parts > 0 && parts-- > 0; }), "the first parts are kept");
    }
  }

  void look(const Files& files, const char* what) {
    SCOPED_TRACE(std::string(what) + " after " + std::to_string(committed_) + " commits, loss " +
                 std::to_string(++losses_));
    for (const std::string& name : list_folder(folder_.path())) {
      std::filesystem::remove(folder_.file(name));
    }
    for (const auto& [file, content] : files) write_file(file, content);
    // It takes a writer to undo what another one left half done in a database with a journal.
    if (GetParam()) {
      CRecorder recorder;
      ASSERT_EQ(recorder.open(path_), 0) << recorder.error();
      ASSERT_EQ(recorder.begin(), 0) << recorder.error();
    }
    CLog log;
    ASSERT_EQ(log.open(path_, {.busy_timeout = 0}), 0) << log.error();
    std::vector<CDamage> damage;
    ASSERT_EQ(log.check(damage), 0) << log.error();
    ASSERT_TRUE(damage.empty()) << damage.front().text;
    log.close();
    const LogContent content = read_content(path_);
    const bool is_last = content == states_[committed_];
    // The commit after may have come to its end without returning.
    const bool is_next = committed_ + 1 < states_.size() && content == states_[committed_ + 1];
    ASSERT_TRUE(is_last || is_next);
    ASSERT_EQ(record_rows(path_, "/one", 1, 900'000, 1), "");
  }

  TemporaryFolder folder_;
  std::string path_ = folder_.file("trend.db");
  std::vector<LogContent> states_;  ///< after each commit
  std::size_t committed_ = 0;
  int losses_ = 0;
  std::minstd_rand random_;
};

/// Records in several transactions of one recorder, each with `rows` rows.
Work record(int transactions, int rows) {
  return [=](const std::string& path, const std::function<void()>& committed) {
    CRecorder recorder;
    CDeviceProperties device{.path = "/two", .aux_text = ""};
    CSeries series;
    ASSERT_EQ(recorder.open(path), 0) << recorder.error();
    for (int i = 0; i < transactions; ++i) {
      ASSERT_EQ(recorder.begin(), 0) << recorder.error();
      ASSERT_EQ(recorder.add_device(device), 0) << recorder.error();
      ASSERT_EQ(recorder.add_series(device, 5, series), 0) << recorder.error();
      for (int row = 0; row < rows; ++row) {
        const std::vector<double> values = {row / 3.0, 2, 3, 4};
        ASSERT_EQ(recorder.append(series, 200'000 + 300 * (i * rows + row), 1, values), 0);
      }
      ASSERT_EQ(recorder.commit(), 0) << recorder.error();
      committed();
    }
  };
}

/// Records a few rows and removes those before `before`, twice, each with a recorder of its own.
Work purge(std::int64_t before) {
  return [=](const std::string& path, const std::function<void()>& committed) {
    for (const int i : {0, 1}) {
      ASSERT_EQ(record_rows(path, "/two", 5, 300'000 + 60 * i, 1, before + 6000 * i), "");
      committed();
    }
  };
}

TEST_P(PowerLoss, LeavesWhatALoadCommitted) { expect_commits_to_last("Loose", record(6, 5)); }

TEST_P(PowerLoss, LeavesWhatWasSealed) { expect_commits_to_last("Loose", record(3, 400)); }

TEST_P(PowerLoss, LeavesWhatALongLoadCommitted) {
  // So much that the log is copied into the database meanwhile.
  expect_commits_to_last("Sealed", record(12, 30));
}

TEST_P(PowerLoss, LeavesWhatAPurgeLeft) { expect_commits_to_last("Sealed", purge(18'000)); }

TEST_P(PowerLoss, LeavesAnUpgradedDatabase) { expect_commits_to_last("Version1", record(2, 5)); }

INSTANTIATE_TEST_SUITE_P(, PowerLoss, testing::Bool(), [](const auto& has_rollback_journal) {
  return has_rollback_journal.param ? "WithAJournal" : "WithALog";
});

}  // namespace

int main(int argc, char** argv) {
  // Nothing is really synced, so the disk need not be slow.
  if (access("/dev/shm", W_OK) == 0) setenv("TMPDIR", "/dev/shm", 0);
  install_disk_log();
  testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}
