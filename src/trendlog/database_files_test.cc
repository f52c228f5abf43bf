#include "trendlog/database_files.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <vector>

#include "tests/support/process.h"

namespace {

namespace fs = std::filesystem;

const std::vector<std::string> SUFFIXES = {"", "-wal", "-shm", "-journal"};

/// Enters a folder with two folders in it, "a" and "b", and returns to where it was.
class IsDatabaseFile : public testing::Test {
 protected:
  IsDatabaseFile() : before_(fs::current_path()) {
    fs::current_path(folder_.path());
    fs::create_directory("a");
    fs::create_directory("b");
  }
  ~IsDatabaseFile() override { fs::current_path(before_); }

  /// Expects the answer `expected` for a database "a/x" with all of its files and with none.
  void expect_for_all(const std::string& path, const std::string& db_path, bool expected) const {
    for (const std::string& suffix : SUFFIXES) {
      SCOPED_TRACE(path + suffix);
      EXPECT_EQ(is_database_file(path + suffix, db_path), expected);
      write_file(folder_.file("a/x") + suffix, "");
      EXPECT_EQ(is_database_file(path + suffix, db_path), expected);
    }
    for (const std::string& suffix : SUFFIXES) fs::remove(folder_.file("a/x") + suffix);
  }

  fs::path before_;
  TemporaryFolder folder_;
};

TEST_F(IsDatabaseFile, IsTrueForTheFourFiles) { expect_for_all("a/x", "a/x", true); }

TEST_F(IsDatabaseFile, IsTrueForOtherPathsToThem) {
  expect_for_all("./a/../a//x", "a/x", true);
  expect_for_all(folder_.file("a/x"), "a/x", true);
  expect_for_all("a/x", folder_.file("a/x"), true);
  fs::current_path("a");
  expect_for_all("x", "../a/x", true);
}

TEST_F(IsDatabaseFile, IsFalseForOtherFiles) {
  expect_for_all("a/y", "a/x", false);
  expect_for_all("b/x", "a/x", false);
  expect_for_all("x", "a/x", false);
  EXPECT_FALSE(is_database_file("a/x-wal2", "a/x"));
  EXPECT_FALSE(is_database_file("a/x-wal-wal", "a/x"));
  EXPECT_FALSE(is_database_file("a/x", "a/x-wal"));
  EXPECT_FALSE(is_database_file("none/x", "none/y"));
}

TEST_F(IsDatabaseFile, IsTrueThroughALinkedFolder) {
  fs::create_directory_symlink("../a", "b/link");
  expect_for_all("b/link/x", "a/x", true);
  expect_for_all("a/x", "b/link/x", true);
}

TEST_F(IsDatabaseFile, IsTrueForALinkToAnyOfThem) {
  for (const std::string& suffix : SUFFIXES) {
    fs::create_symlink("../a/x" + suffix, "b/near" + suffix);
    fs::create_symlink(folder_.file("b/near" + suffix), "far" + suffix);
  }
  expect_for_all("b/near", "a/x", true);
  expect_for_all("far", "a/x", true);
}

TEST_F(IsDatabaseFile, IsTrueForTheDatabaseThatALinkLeadsTo) {
  fs::create_symlink("../a/x", "b/near");
  expect_for_all("a/x", "b/near", true);
  EXPECT_TRUE(is_database_file("b/near", "b/near"));
  // SQLite puts its files beside the file, not beside the link.
  EXPECT_FALSE(is_database_file("b/near-wal", "b/near"));
}

TEST_F(IsDatabaseFile, IsTrueForTheTargetOfALogThatIsALink) {
  write_file("a/x", "");
  fs::create_symlink("../b/log", "a/x-wal");
  EXPECT_TRUE(is_database_file("b/log", "a/x"));
  EXPECT_TRUE(is_database_file("a/x-wal", "a/x"));
}

TEST_F(IsDatabaseFile, IsTrueForAHardLink) {
  for (const std::string& suffix : SUFFIXES) {
    write_file("a/x" + suffix, "");
    fs::create_hard_link("a/x" + suffix, "b/other");
    EXPECT_TRUE(is_database_file("b/other", "a/x"));
    fs::remove("b/other");
  }
  write_file("b/other", "");
  EXPECT_FALSE(is_database_file("b/other", "a/x"));
}

TEST_F(IsDatabaseFile, IsFalseForLinksThatLeadInACircle) {
  fs::create_symlink("two", "one");
  fs::create_symlink("one", "two");
  EXPECT_FALSE(is_database_file("one", "a/x"));
  EXPECT_FALSE(is_database_file("a/x", "one"));
}

TEST_F(IsDatabaseFile, IsFalseForDevices) {
  write_file("a/x", "");
  for (const char* path : {"/dev/null", "/dev/full", "/dev/stdout", "/dev/stderr"}) {
    EXPECT_FALSE(is_database_file(path, "a/x")) << path;
  }
}

}  // namespace
