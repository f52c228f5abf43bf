#include "libtrend/sqlite/new_database.h"

#include <gtest/gtest.h>
#include <sqlite3.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <string>
#include <thread>

#include "libtrend/sqlite/connection.h"
#include "libtrend/sqlite/file_header.h"
#include "tests/support/process.h"

namespace toolkit::trend {
namespace {

constexpr bool WAL = false;
constexpr bool TRADITIONAL = true;

class NewDatabase : public testing::Test {
 protected:
  Database connect_to(const std::string& path) {
    Database db;
    EXPECT_TRUE(connect(path, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, nullptr, db, error_))
        << error_;
    return db;
  }

  /// The text in the first row and column that `sql` returns.
  static std::string ask(const Database& db, const std::string& sql) {
    std::string answer;
    const auto keep = [](void* text, int, char** values, char**) {
      if (static_cast<std::string*>(text)->empty()) *static_cast<std::string*>(text) = values[0];
      return 0;
    };
    EXPECT_EQ(sqlite3_exec(db.get(), sql.c_str(), keep, &answer, nullptr), SQLITE_OK)
        << sqlite3_errmsg(db.get());
    return answer;
  }

  void expect_trend_database() {
    const Database db = connect_to(path_);
    EXPECT_TRUE(verify(db.get(), error_)) << error_;
    EXPECT_FALSE(is_blank(db.get()));
    EXPECT_EQ(ask(db, "PRAGMA integrity_check"), "ok");
    EXPECT_EQ(ask(db, "SELECT count(*) FROM device, parameter, series, loose, block"), "0");
    EXPECT_TRUE(FileHeader::read(db.get()).is_sound());
  }

  bool is_alone() const {
    const std::filesystem::directory_iterator files(folder_.path());
    return std::distance(begin(files), end(files)) == 1 && std::filesystem::exists(path_);
  }

  TemporaryFolder folder_;
  std::string path_ = folder_.file("trend.db");
  std::string error_;
};

TEST_F(NewDatabase, IsAnEmptyTrendDatabase) {
  ASSERT_TRUE(create_database(path_, 0, WAL, error_)) << error_;
  EXPECT_TRUE(is_alone());
  expect_trend_database();
  EXPECT_TRUE(is_alone());
}

TEST_F(NewDatabase, HasTheRequestedJournalModeAndPageSize) {
  for (const unsigned page_size : {512U, 1024U, 8192U, 65536U}) {
    for (const bool traditional : {WAL, TRADITIONAL}) {
      std::filesystem::remove(path_);
      ASSERT_TRUE(create_database(path_, page_size, traditional, error_)) << error_;
      expect_trend_database();
      const Database db = connect_to(path_);
      EXPECT_EQ(ask(db, "PRAGMA page_size"), std::to_string(page_size));
      EXPECT_EQ(ask(db, "PRAGMA journal_mode"), traditional ? "delete" : "wal");
    }
  }
}

TEST_F(NewDatabase, HasTheDefaultPageSizeIfTheRequestedOneIsInvalid) {
  ASSERT_TRUE(create_database(path_, 511, WAL, error_)) << error_;
  EXPECT_EQ(ask(connect_to(path_), "PRAGMA page_size"), "4096");
}

TEST_F(NewDatabase, HasThePermissionsOfANewFile) {
  const mode_t before = umask(027);
  EXPECT_TRUE(create_database(path_, 0, WAL, error_)) << error_;
  umask(before);
  EXPECT_EQ(std::filesystem::status(path_).permissions(), std::filesystem::perms(0640));
}

TEST_F(NewDatabase, NeverReplacesAFile) {
  write_file(path_, "another program was first");
  EXPECT_TRUE(create_database(path_, 0, WAL, error_)) << error_;
  EXPECT_EQ(read_file(path_), "another program was first");
  EXPECT_TRUE(is_alone());
}

TEST_F(NewDatabase, DoesNotReuseALeftoverTemporaryFile) {
  const std::string left = path_ + "-new0";
  write_file(left, "left");
  ASSERT_TRUE(create_database(path_, 0, WAL, error_)) << error_;
  EXPECT_EQ(read_file(left), "left");
  std::filesystem::remove(left);
  EXPECT_TRUE(is_alone());
  expect_trend_database();
}

TEST_F(NewDatabase, SaysWhyItCannotBeCreated) {
  EXPECT_FALSE(create_database(folder_.file("no/trend.db"), 0, WAL, error_));
  EXPECT_EQ(error_, "No such file or directory");
  EXPECT_FALSE(create_database(folder_.file(std::string(252, 'x')), 0, WAL, error_));
  EXPECT_EQ(error_, "File name too long");
  EXPECT_TRUE(std::filesystem::is_empty(folder_.path()));
  // SQLite has a longest path.
  std::string deep = folder_.path().string();
  for (int i = 0; i < 4; ++i) deep += '/' + std::string(200, 'x');
  std::filesystem::create_directories(deep);
  EXPECT_FALSE(create_database(deep + "/trend.db", 0, WAL, error_));
  EXPECT_EQ(error_, "its path can't be resolved");
  EXPECT_TRUE(std::filesystem::is_empty(deep));
}

TEST_F(NewDatabase, IsNotLeftInHalf) {
  rlimit before = {};
  ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &before), 0);
  const auto old_action = signal(SIGXFSZ, SIG_IGN);
  rlimit small = before;
  small.rlim_cur = 1000;
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &small), 0);
  EXPECT_FALSE(create_database(path_, 0, WAL, error_));
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &before), 0);
  signal(SIGXFSZ, old_action);
  EXPECT_EQ(error_, "File too large");
  EXPECT_TRUE(std::filesystem::is_empty(folder_.path()));
}

TEST_F(NewDatabase, IsNotMadeBesideAThousandThatWereNotCompleted) {
  for (int i = 0; i < 1000; ++i) write_file(path_ + "-new" + std::to_string(i), "");
  EXPECT_FALSE(create_database(path_, 0, WAL, error_));
  EXPECT_EQ(error_, "File exists");
  EXPECT_FALSE(std::filesystem::exists(path_));
}

TEST_F(NewDatabase, IsEmptyBesideTheJournalOfAnother) {
  for (const char* suffix : {"-wal", "-journal"}) {
    write_file(path_ + suffix, "left over");
    ASSERT_TRUE(create_database(path_, 0, WAL, error_)) << error_;
    EXPECT_EQ(read_file(path_), "");
    std::filesystem::remove(path_ + suffix);
    std::filesystem::remove(path_);
  }
}

TEST_F(NewDatabase, KeepsAJournalModeThatCannotBeChanged) {
  EXPECT_FALSE(set_journal(connect_to(":memory:").get(), WAL, 1, error_));
  EXPECT_EQ(error_, "can't set its journal mode");
}

TEST_F(NewDatabase, WaitsForReadersBeforeItLeavesWalMode) {
  ASSERT_TRUE(create_database(path_, 0, WAL, error_)) << error_;
  Database reader = connect_to(path_);
  ask(reader, "BEGIN; SELECT count(*) FROM device");
  const Database db = connect_to(path_);
  EXPECT_FALSE(set_journal(db.get(), TRADITIONAL, 0, error_));
  EXPECT_EQ(error_, "database is locked");
  std::thread later([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    reader.reset();
  });
  EXPECT_TRUE(set_journal(db.get(), TRADITIONAL, 40, error_)) << error_;
  later.join();
  EXPECT_EQ(ask(db, "PRAGMA journal_mode"), "delete");
}

TEST_F(NewDatabase, CanBeMadeFromAnEmptyFile) {
  for (const bool traditional : {WAL, TRADITIONAL}) {
    write_file(path_, "");
    {
      const Database db = connect_to(path_);
      ASSERT_TRUE(is_blank(db.get()));
      ASSERT_TRUE(fill_database(db.get(), traditional, 1, error_)) << error_;
      EXPECT_EQ(ask(db, "PRAGMA journal_mode"), traditional ? "delete" : "wal");
    }
    EXPECT_TRUE(is_alone());
    expect_trend_database();
  }
}

TEST_F(NewDatabase, CanBeFinishedAfterAnInterruption) {
  ASSERT_TRUE(set_journal(connect_to(path_).get(), WAL, 1, error_)) << error_;
  ASSERT_GT(std::filesystem::file_size(path_), 0U);
  {
    const Database db = connect_to(path_);
    ASSERT_TRUE(is_blank(db.get()));
    ASSERT_TRUE(fill_database(db.get(), WAL, 1, error_)) << error_;
  }
  expect_trend_database();
}

TEST_F(NewDatabase, KeepsWhatAnotherProgramRecorded) {
  const Database slow = connect_to(path_);
  ASSERT_TRUE(is_blank(slow.get()));
  const Database fast = connect_to(path_);
  ASSERT_TRUE(fill_database(fast.get(), WAL, 1, error_)) << error_;
  ask(fast, "INSERT INTO device VALUES (1, 'd', '')");
  ASSERT_TRUE(fill_database(slow.get(), WAL, 1, error_)) << error_;
  EXPECT_EQ(ask(slow, "SELECT path FROM device"), "d");
}

TEST_F(NewDatabase, IsNotBlankIfItHasTablesOrMarks) {
  for (const char* sql : {"CREATE TABLE t (x)", "PRAGMA application_id = 7",
                          "PRAGMA user_version = 7", "PRAGMA user_version = -1"}) {
    std::filesystem::remove(path_);
    const Database db = connect_to(path_);
    ask(db, sql);
    EXPECT_FALSE(is_blank(db.get())) << sql;
  }
}

}  // namespace
}  // namespace toolkit::trend
