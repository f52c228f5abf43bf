// Databases in read-only folders, files beside a database, and unusual names.
#include <gtest/gtest.h>
#include <unistd.h>

#include "libtrend/recorder.h"
#include "tests/support/database_file.h"
#include "tests/support/model.h"
#include "tests/support/version_1.h"

using toolkit::trend::CDeviceProperties;
using toolkit::trend::CRecorder;
using toolkit::trend::CSeries;

namespace {

namespace fs = std::filesystem;

/// Root ignores permissions, so this makes root another user.
void drop_privileges() {
  constexpr uid_t NOBODY = 65534;
  if (geteuid() == 0) become(NOBODY);
}

ModelLog small_log(int rows) {
  ModelLog log;
  log.params = {{"a", ACTUAL}};
  log.minutes = {1};
  for (int i = 1; i <= rows; ++i) log.rows.push_back({1, 60 * i, 1, {1.0 * i}});
  return log;
}

/// A folder that is read-only while a program reads it.
class ReadOnlyFolder : public testing::Test {
 protected:
  ReadOnlyFolder() {
    fs::permissions(folder_.path(), fs::perms(0755));
    fs::create_directory(medium_);
    // Any user must be able to start the program too.
    program_ = tool_command("trendcsv");
    fs::copy_file(program_.back(), folder_.file("trendcsv"));
    program_.back() = folder_.file("trendcsv");
  }
  ~ReadOnlyFolder() override { fs::permissions(medium_, fs::perms(0755)); }

  std::string on_medium(const std::string& name) const { return medium_ + "/" + name; }

  /// Dumps the database of this name while the folder is read-only.
  ProcessResult dump(const std::string& name) const {
    fs::permissions(medium_, fs::perms(0555));
    std::vector<std::string> command = program_;
    command.insert(command.end(), {"-x", name, "-d", "/plant", "-u"});
    const ProcessResult result = run_process(command, "", {}, [&] {
      fs::current_path(medium_);
      drop_privileges();
    });
    fs::permissions(medium_, fs::perms(0755));
    return result;
  }

  void expect_dump(const std::string& name, const ModelLog& log) const {
    DumpRequest request;
    request.use_utc = true;
    const std::vector<std::string> files = list_folder(medium_);
    const ProcessResult result = dump(name);
    EXPECT_EQ(result.out, expected_dump(log, request).first);
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(list_folder(medium_), files);
  }

  void expect_failure(const std::string& name) const {
    const std::vector<std::string> files = list_folder(medium_);
    const ProcessResult result = dump(name);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err, "Error opening trend db: '" + name + "'\n");
    EXPECT_EQ(result.exit_status, 1);
    EXPECT_EQ(list_folder(medium_), files);
  }

  /// Copies to the folder a database and its log, which holds all rows but the first two.
  void copy_with_log(const ModelLog& log) {
    const std::string db = folder_.file("live.db");
    ModelLog first = log;
    first.rows.resize(2);
    record(first, db);
    CRecorder recorder;
    CDeviceProperties device;
    device.path = log.device;
    CSeries series;
    ASSERT_EQ(recorder.open(db), 0);
    ASSERT_EQ(recorder.begin(), 0);
    ASSERT_EQ(recorder.add_device(device), 0);
    ASSERT_EQ(recorder.add_series(device, 1, series), 0);
    for (std::size_t i = 2; i < log.rows.size(); ++i) {
      ASSERT_EQ(recorder.append(series, log.rows[i].time, 1, log.rows[i].values), 0);
    }
    ASSERT_EQ(recorder.commit(), 0);
    for (const char* suffix : {"", "-wal", "-shm"}) {
      fs::copy_file(db + suffix, on_medium("trend.db") + suffix);
    }
    ASSERT_GT(fs::file_size(on_medium("trend.db-wal")), 0U);
  }

  TemporaryFolder folder_;
  std::string medium_ = folder_.file("medium");
  std::vector<std::string> program_;
};

TEST(ReadOnlyFile, MakesALoadFailWithAMessage) {
  const TemporaryFolder folder;
  fs::permissions(folder.path(), fs::perms(0777));
  const std::string db = folder.file("trend.db");
  record(small_log(3), db);
  fs::permissions(db, fs::perms(0444));
  std::vector<std::string> load = tool_command("trendload");
  fs::copy_file(load.back(), folder.file("trendload"));
  load.back() = folder.file("trendload");
  load.insert(load.end(), {"-x", db, "-d", "/plant", "-i", "1", "-u"});
  const std::vector<std::string> files = list_folder(folder.path());
  const ProcessResult result =
      run_process(load, "Date,Time,a:Value\n2020-01-01,00:00,1\n", {}, drop_privileges);
  EXPECT_EQ(result.exit_status, 1);
  EXPECT_EQ(result.err, "trendload: " + db + ": it is not writable\n");
  EXPECT_EQ(list_folder(folder.path()), files);
}

TEST_F(ReadOnlyFolder, AllowsADump) {
  record(small_log(5), on_medium("trend.db"));
  ASSERT_EQ(list_folder(medium_), std::vector<std::string>{"trend.db"});
  expect_dump("trend.db", small_log(5));
}

TEST_F(ReadOnlyFolder, AllowsADumpThroughALink) {
  record(small_log(5), on_medium("trend.db"));
  fs::create_symlink(on_medium("trend.db"), folder_.file("link.db"));
  fs::create_symlink("trend.db", on_medium("near.db"));
  expect_dump("../link.db", small_log(5));
  expect_dump("near.db", small_log(5));
}

TEST_F(ReadOnlyFolder, AllowsADumpInRollbackMode) {
  record(small_log(5), on_medium("trend.db"));
  run_sql(on_medium("trend.db"), "PRAGMA journal_mode = delete");
  expect_dump("trend.db", small_log(5));
}

TEST_F(ReadOnlyFolder, AllowsDumpsOfUnusualNames) {
  int rows = 1;
  for (const char* name : {"a?b", "a?immutable=1", "a#b", "a%41", "%", "with blank", "file:x",
                           ":memory:", "ü", "a'b\"c", "a&b=c", "-x", "...", "?"}) {
    const ModelLog log = small_log(++rows);
    record(log, on_medium(name));
    SCOPED_TRACE(name);
    expect_dump(name, log);
    // And in a writable folder.
    const ProcessResult result = run_tool("trendcsv", {"-x", name, "-d", "/plant", "-u"}, "", {},
                                          [&] { fs::current_path(medium_); });
    EXPECT_EQ(result.out, dump(name).out);
    fs::remove_all(medium_);
    fs::create_directory(medium_);
  }
}

TEST_F(ReadOnlyFolder, AllowsADumpWithTheRowsOfTheLog) {
  copy_with_log(small_log(5));
  expect_dump("trend.db", small_log(5));
}

TEST_F(ReadOnlyFolder, FailsADumpIfTheIndexOfTheLogIsMissing) {
  copy_with_log(small_log(5));
  fs::remove(on_medium("trend.db-shm"));
  expect_failure("trend.db");
}

TEST_F(ReadOnlyFolder, FailsADumpIfTheLogCannotBeRead) {
  copy_with_log(small_log(5));
  fs::permissions(on_medium("trend.db-wal"), fs::perms(0));
  expect_failure("trend.db");
  fs::remove(on_medium("trend.db-shm"));
  expect_failure("trend.db");
}

TEST_F(ReadOnlyFolder, FailsADumpIfTheLogIsNotAFile) {
  record(small_log(5), on_medium("trend.db"));
  fs::create_directory(on_medium("trend.db-wal"));
  expect_failure("trend.db");
  fs::remove(on_medium("trend.db-wal"));
  fs::create_symlink("nowhere", on_medium("trend.db-wal"));
  expect_failure("trend.db");
}

TEST_F(ReadOnlyFolder, FailsADumpIfTheDatabaseCannotBeRead) {
  record(small_log(5), on_medium("trend.db"));
  fs::permissions(on_medium("trend.db"), fs::perms(0));
  expect_failure("trend.db");
}

TEST_F(ReadOnlyFolder, FailsADumpIfATransactionIsIncomplete) {
  const std::string db = folder_.file("live.db");
  record(small_log(5), db);
  run_sql(db, std::string(TURN_INTO_VERSION_1) + "PRAGMA journal_mode = delete");
  // With a very small cache, SQLite writes pages before the transaction ends.
  std::string rows = "PRAGMA cache_size = 1; BEGIN IMMEDIATE;";
  for (int minute = 100; minute < 3000; ++minute) rows += insert_row(minute);
  run_sql(db, rows, [&] {
    for (const char* suffix : {"", "-journal"}) {
      fs::copy_file(db + suffix, on_medium("trend.db") + suffix);
    }
  });
  ASSERT_GT(fs::file_size(on_medium("trend.db-journal")), 512U);
  expect_failure("trend.db");
}

TEST(BesideADatabase, ALogThatIsAFolderFailsTheDump) {
  const TemporaryFolder folder;
  const std::string db = folder.file("trend.db");
  record(small_log(5), db);
  fs::create_directory(db + "-wal");
  const std::string before = read_file(db);
  const ProcessResult result = run_tool("trendcsv", {"-x", db, "-d", "/plant"});
  EXPECT_EQ(result.out, "");
  EXPECT_EQ(result.err, "Error opening trend db: '" + db + "'\n");
  EXPECT_EQ(read_file(db), before);
}

}  // namespace
