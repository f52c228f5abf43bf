#include "libtrend/sqlite/database.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "libtrend/sqlite/statement.h"
#include "tests/support/process.h"

namespace toolkit::trend {
namespace {

class DatabaseTest : public testing::Test {
 protected:
  /// Opens the database at `path_` and returns the reason of a failure, or an empty text.
  std::string open(const OpenOptions& options) {
    std::string error;
    const Database db = open_database(path_, options, error);
    EXPECT_EQ(db == nullptr, !error.empty());
    return db ? "" : error;
  }

  TemporaryFolder folder_;
  std::string path_ = folder_.file("trend.db");
  const OpenOptions read_ = {};
  const OpenOptions write_ = {.read_only = false};
  const OpenOptions create_ = {.read_only = false, .create = true};
};

TEST_F(DatabaseTest, IsCreatedOnlyWhenAskedFor) {
  for (const OpenOptions& options : {read_, write_, OpenOptions{.create = true}}) {
    EXPECT_EQ(open(options), "No such file or directory");
    EXPECT_FALSE(std::filesystem::exists(path_));
  }
  EXPECT_EQ(open(create_), "");
  EXPECT_EQ(open(read_), "");
  EXPECT_EQ(open(write_), "");
}

TEST_F(DatabaseTest, IsNotAFolder) {
  std::filesystem::create_directory(path_);
  for (const OpenOptions& options : {read_, write_, create_}) {
    EXPECT_EQ(open(options), "it is not a regular file");
  }
}

TEST_F(DatabaseTest, IsNotAnotherFile) {
  const std::string content(8192, 'x');
  write_file(path_, content);
  for (const OpenOptions& options : {read_, write_, create_}) {
    EXPECT_NE(open(options), "");
    EXPECT_EQ(read_file(path_), content);
  }
}

TEST_F(DatabaseTest, HasANameThatSqliteDoesNotInterpret) {
  const std::filesystem::path before = std::filesystem::current_path();
  std::filesystem::current_path(folder_.path());
  for (const char* name : {":memory:", "file:x?mode=memory"}) {
    path_ = name;
    EXPECT_EQ(open(create_), "");
    EXPECT_TRUE(std::filesystem::is_regular_file(name));
    EXPECT_EQ(open(read_), "");
  }
  std::filesystem::current_path(before);
}

TEST_F(DatabaseTest, IsRecordedInTheJournalModeThatItHas) {
  EXPECT_EQ(open({.read_only = false, .create = true, .traditional_journal = true}), "");
  std::string error;
  for (const char* expected : {"delete", "wal"}) {
    const Database db = open_to_record(path_, error);
    ASSERT_TRUE(db) << error;
    Statement mode(db.get(), "PRAGMA journal_mode");
    ASSERT_EQ(mode.step(), Statement::Step::ROW);
    std::string text;
    ASSERT_TRUE(mode.read(0, text));
    EXPECT_EQ(text, expected);
    mode = Statement();
    EXPECT_EQ(open(write_), "");
  }
}

}  // namespace
}  // namespace toolkit::trend
