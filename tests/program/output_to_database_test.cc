// Dumps with one of the database's own files as the output file.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>

#include "libtrend/recorder.h"
#include "tests/support/model.h"

using toolkit::trend::CDeviceProperties;
using toolkit::trend::CRecorder;
using toolkit::trend::CSeries;

namespace {

namespace fs = std::filesystem;

ModelLog small_log() {
  ModelLog log;
  log.params = {{"a", ACTUAL}};
  log.minutes = {1};
  for (int i = 1; i <= 5; ++i) log.rows.push_back({1, 60 * i, 1, {1.0 * i}});
  return log;
}

class OutputToDatabase : public testing::Test {
 protected:
  OutputToDatabase() { record(small_log(), db_); }

  /// The files of the folder with their contents.
  [[nodiscard]] std::vector<std::string> contents() const {
    std::vector<std::string> result;
    for (const auto& entry : fs::directory_iterator(folder_.path())) {
      const std::string path = entry.path();
      result.push_back(entry.is_symlink() ? path + " -> " + fs::read_symlink(path).string()
                                          : path + ": " + read_file(path));
    }
    std::sort(result.begin(), result.end());
    return result;
  }

  [[nodiscard]] ProcessResult dump(const std::string& db, const std::string& output,
                                   const std::function<void()>& before_start = {}) const {
    return run_tool("trendcsv", {"-x", db, "-d", "/plant", "-u", "-f", output}, "", {},
                    before_start);
  }

  /// Expects that the output is refused and no file changed.
  void expect_refused(const std::string& db, const std::string& output) const {
    SCOPED_TRACE(output);
    const std::vector<std::string> before = contents();
    const ProcessResult result = dump(db, output, enter(folder_.path()));
    EXPECT_EQ(result.exit_status, 1);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err, "Error: can't open '" + output + "' for writing\n");
    EXPECT_EQ(contents(), before);
  }

  TemporaryFolder folder_;
  std::string db_ = folder_.file("trend.db");
};

TEST_F(OutputToDatabase, IsRefused) {
  expect_refused(db_, db_);
  expect_refused("trend.db", db_);
  expect_refused(db_, "./trend.db");
}

TEST_F(OutputToDatabase, IsRefusedForFilesBesideIt) {
  for (const char* suffix : {"-wal", "-shm", "-journal"}) {
    expect_refused(db_, db_ + suffix);
    expect_refused(db_, "trend.db" + std::string(suffix));
  }
}

TEST_F(OutputToDatabase, IsRefusedThroughLinks) {
  fs::create_symlink("trend.db", folder_.file("link"));
  fs::create_symlink("trend.db-wal", folder_.file("dangling"));
  fs::create_hard_link(db_, folder_.file("hard"));
  expect_refused(db_, "link");
  expect_refused(db_, "hard");
  expect_refused(db_, "dangling");
  for (const char* suffix : {"", "-wal", "-shm", "-journal"}) {
    expect_refused("link", "trend.db" + std::string(suffix));
  }
}

TEST_F(OutputToDatabase, IsRefusedWhileARecorderWrites) {
  CRecorder recorder;
  CDeviceProperties device;
  device.path = "/plant";
  CSeries series;
  ASSERT_EQ(recorder.open(db_), 0);
  ASSERT_EQ(recorder.begin(), 0);
  ASSERT_EQ(recorder.add_device(device), 0);
  ASSERT_EQ(recorder.add_series(device, 1, series), 0);
  ASSERT_EQ(recorder.append(series, 600, 1, std::vector<double>{7}), 0);
  ASSERT_EQ(recorder.commit(), 0);
  ASSERT_GT(fs::file_size(db_ + "-wal"), 0U);
  for (const char* suffix : {"", "-wal", "-shm"}) expect_refused(db_, db_ + suffix);
  const std::string csv = folder_.file("rows.csv");
  EXPECT_EQ(dump(db_, csv).err, "");
  EXPECT_EQ(read_file(csv).substr(0, 39), "Date,Time,a:Value\n1970-01-01,00:10,7\n19");
}

TEST_F(OutputToDatabase, IsRefusedForADatabaseThatDoesNotExist) {
  expect_refused("none.db", "none.db");
  expect_refused("none.db", "none.db-journal");
}

TEST_F(OutputToDatabase, IsRefusedIfStandardOutputIsTheDatabase) {
  const std::vector<std::string> before = contents();
  const ProcessResult result = dump(
      db_, "/dev/stdout", [&] { dup2(open(db_.c_str(), O_WRONLY | O_APPEND), STDOUT_FILENO); });
  EXPECT_EQ(result.err, "Error: can't open '/dev/stdout' for writing\n");
  EXPECT_EQ(contents(), before);
}

TEST_F(OutputToDatabase, MayHaveAnyOtherName) {
  const std::string plain = run_tool("trendcsv", {"-x", db_, "-d", "/plant", "-u"}).out;
  write_file(folder_.file("target"), "old");
  fs::create_symlink("target", folder_.file("link"));
  fs::create_symlink("new", folder_.file("dangling"));
  for (const char* name : {"rows.csv", "trend.db.csv", "trend.db-wal.csv", "link", "dangling"}) {
    const ProcessResult result = dump("trend.db", name, enter(folder_.path()));
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(read_file(folder_.file(name)), plain) << name;
  }
  EXPECT_TRUE(fs::is_symlink(folder_.file("link")));
  EXPECT_EQ(read_file(folder_.file("new")), plain);
}

}  // namespace
