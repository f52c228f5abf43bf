// Files that trendcsv must not accept as a trend database, or must not read at all.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>

#include "libtrend/log.h"
#include "tests/support/database_file.h"
#include "tests/support/model.h"
#include "tests/support/version_1.h"

namespace {

/// Dumps `db`, which must fail before it prints anything.
void expect_not_opened(const std::string& db) {
  const ProcessResult result = run_tool("trendcsv", {"-x", db, "-d", "/plant"});
  EXPECT_EQ(result.exit_status, 1);
  EXPECT_EQ(result.out, "");
  EXPECT_EQ(result.err, "Error opening trend db: '" + db + "'\n");
  toolkit::trend::CLog log;
  EXPECT_NE(log.open(db, true, false, 40, false, 0, 0, 0, false), 0);
}

class Refusal : public testing::Test {
 protected:
  /// The same for a file with `content`, which must stay unchanged and alone in its folder.
  void expect_content_refused(const std::string& content) {
    write_file(db_, content);
    expect_not_opened(db_);
    EXPECT_EQ(read_file(db_), content);
    EXPECT_EQ(list_folder(folder_.path()), std::vector<std::string>{"trend.db"});
  }

  /// The same for a database that `sql` creates.
  void expect_sql_refused(const std::string& sql) {
    std::filesystem::remove(db_);
    run_sql(db_, sql);
    expect_content_refused(read_file(db_));
  }

  /// The same for the database in both journal modes.
  void expect_sql_refused_in_any_mode(const std::string& sql) {
    expect_sql_refused(sql);
    expect_sql_refused(sql + "; PRAGMA journal_mode = wal");
  }

  TemporaryFolder folder_;
  std::string db_ = folder_.file("trend.db");
};

TEST_F(Refusal, DoesNotConcernTheUnchangedDatabase) {
  // The tests below damage this database; undamaged it is accepted.
  run_sql(db_, std::string(LOOSE_SCHEMA) + IDENTITY + CATALOGUE + insert_row(2) + insert_row(1));
  EXPECT_EQ(run_tool("trendcsv", {"-x", db_, "-d", "/plant", "-u"}).out,
            "Date,Time,a:Value\n1970-01-01,00:02,2\n1970-01-01,00:01,1\n");
}

TEST_F(Refusal, OfAMissingFile) {
  expect_not_opened(db_);
  expect_not_opened(folder_.file("none/trend.db"));
  EXPECT_EQ(list_folder(folder_.path()), std::vector<std::string>{});
}

TEST_F(Refusal, OfAFolder) {
  std::filesystem::create_directory(db_);
  expect_not_opened(db_);
  EXPECT_EQ(list_folder(db_), std::vector<std::string>{});
}

TEST_F(Refusal, OfTablesWhoseContentIsNotInTheFile) {
  const std::string column = "samples)";
  for (const char* with : {"samples AS (zeroblob(900000000)))",
                           "samples BLOB GENERATED ALWAYS AS(zeroblob(9)) STORED)",
                           "samples/**/as/**/(zeroblob(9)))"}) {
    std::string schema = LOOSE_SCHEMA;
    schema.replace(schema.find(column), column.size(), with);
    expect_sql_refused_in_any_mode(
        schema + IDENTITY + CATALOGUE +
        "INSERT INTO snapshot (id, valid_ratio) VALUES ((1 << 40) + 1, 1)");
  }
  const std::string all = std::string(LOOSE_SCHEMA) + IDENTITY + CATALOGUE + insert_row(1);
  expect_sql_refused(all +
                     "; DROP TABLE snapshot; CREATE VIEW snapshot AS SELECT "
                     "(1 << 40) + 60 AS id, 1.0 AS valid_ratio, zeroblob(8) AS samples");
  // SQLite need not have the module of a virtual table to find it in a file.
  expect_sql_refused(all +
                     "; PRAGMA writable_schema = ON; INSERT INTO sqlite_schema VALUES "
                     "('table', 'v', 'v', 0, 'CREATE VIRTUAL TABLE v USING fts5(a)')");
}

TEST_F(Refusal, DoesNotConcernViewsThatNobodyReads) {
  run_sql(db_, std::string(LOOSE_SCHEMA) + IDENTITY + CATALOGUE + insert_row(1) +
                   "; CREATE VIEW named AS SELECT id AS basic FROM snapshot;"
                   "CREATE TABLE basis (as_it_is INTEGER); CREATE INDEX i ON basis (as_it_is)");
  EXPECT_EQ(run_tool("trendcsv", {"-x", db_, "-d", "/plant", "-u"}).out,
            "Date,Time,a:Value\n1970-01-01,00:01,1\n");
}

TEST_F(Refusal, OfAPipeWithoutWaitingForIt) {
  ASSERT_EQ(mkfifo(db_.c_str(), 0600), 0);
  expect_not_opened(db_);
}

TEST_F(Refusal, OfADevice) {
  expect_not_opened("/dev/null");
  expect_not_opened("/dev/zero");
}

TEST_F(Refusal, OfADanglingLink) {
  std::filesystem::create_symlink("none.db", db_);
  expect_not_opened(db_);
  EXPECT_EQ(list_folder(folder_.path()), std::vector<std::string>{"trend.db"});
}

TEST_F(Refusal, OfAnEmptyFile) { expect_content_refused(""); }

TEST_F(Refusal, OfAText) {
  expect_content_refused("x");
  expect_content_refused("SQLite format 3");
  std::string text;
  while (text.size() < 5000) text += "Date,Time,a:Value\n";
  expect_content_refused(text);
}

TEST_F(Refusal, OfZeroes) { expect_content_refused(std::string(8192, '\0')); }

TEST_F(Refusal, OfADatabaseOfAnotherApplication) {
  const std::string tables = std::string(LOOSE_SCHEMA) + CATALOGUE;
  expect_sql_refused_in_any_mode(tables);
  expect_sql_refused_in_any_mode(tables + "PRAGMA user_version = 1;");
  expect_sql_refused_in_any_mode(tables +
                                 "PRAGMA application_id = 1414680133; PRAGMA user_version = 1;");
}

TEST_F(Refusal, OfAnotherVersion) {
  for (const char* version : {"0", "2", "-1", "2147483647"}) {
    expect_sql_refused_in_any_mode(std::string(LOOSE_SCHEMA) + CATALOGUE + IDENTITY +
                                   "PRAGMA user_version = " + version);
  }
}

TEST_F(Refusal, OfADatabaseWithoutOneOfItsTables) {
  for (const char* table : {"device", "parameter", "series", "snapshot"}) {
    expect_sql_refused(std::string(LOOSE_SCHEMA) + CATALOGUE + IDENTITY + "DROP TABLE " + table);
  }
}

TEST_F(Refusal, OfADatabaseWithoutOneOfItsColumns) {
  for (const char* column : {"device RENAME COLUMN path", "parameter RENAME COLUMN first_slot",
                             "series RENAME COLUMN minutes", "snapshot RENAME COLUMN samples"}) {
    expect_sql_refused(std::string(LOOSE_SCHEMA) + CATALOGUE + IDENTITY + "ALTER TABLE " + column +
                       " TO other");
  }
}

TEST_F(Refusal, OfViewsInsteadOfTables) {
  for (const std::string table : {"device", "parameter", "series", "snapshot"}) {
    expect_sql_refused(std::string(LOOSE_SCHEMA) + CATALOGUE + IDENTITY + "ALTER TABLE " + table +
                       " RENAME TO hidden; CREATE VIEW " + table + " AS SELECT * FROM hidden");
  }
}

TEST_F(Refusal, OfATruncatedDatabase) {
  Random random(5);
  ModelLog log;
  log.params = {{"a", ACTUAL}};
  log.minutes = {1};
  for (int i = 1; i <= 800; ++i) log.rows.push_back({1, 60 * i, 1, {1.0 * i}});
  record(log, db_);
  const std::string whole = read_file(db_);
  ASSERT_GT(whole.size(), 7 * 4096U);
  std::vector<std::size_t> sizes = {1,
                                    16,
                                    99,
                                    100,
                                    512,
                                    4095,
                                    4096,
                                    4097,
                                    whole.size() - 4096,
                                    whole.size() - 4095,
                                    whole.size() - 512,
                                    whole.size() - 1};
  for (int i = 0; i < 60; ++i) sizes.push_back(random() % whole.size());
  for (const std::size_t size : sizes) {
    SCOPED_TRACE(size);
    expect_content_refused(whole.substr(0, size));
  }
}

TEST_F(Refusal, OfATruncatedDatabaseBesideALog) {
  // If the log is not empty, a file that ends between two pages may be the work of a writer.
  ModelLog log;
  log.params = {{"a", ACTUAL}};
  log.minutes = {1};
  for (int i = 1; i <= 500; ++i) log.rows.push_back({1, 60 * i, 1, {1.0 * i}});
  record(log, db_);
  run_sql(db_, TURN_INTO_VERSION_1);
  const std::string whole = read_file(db_);
  std::string write_ahead_log;
  run_sql(db_, insert_row(900), [&] { write_ahead_log = read_file(db_ + "-wal"); });
  ASSERT_GT(write_ahead_log.size(), 4096U);
  for (const std::string& beside : {std::string(), write_ahead_log}) {
    for (std::size_t size = whole.size() - 62; size > 4096; size -= 1111) {
      SCOPED_TRACE(size);
      write_file(db_, whole.substr(0, size));
      std::filesystem::remove(db_ + "-shm");
      write_file(db_ + "-wal", beside);
      expect_not_opened(db_);
    }
  }
}

TEST_F(Refusal, OfATruncatedDatabaseInRollbackMode) {
  std::string sql = std::string("BEGIN;") + LOOSE_SCHEMA + IDENTITY + CATALOGUE;
  for (int minute = 1; minute <= 800; ++minute) sql += insert_row(minute);
  run_sql(db_, sql + "COMMIT");
  const std::string whole = read_file(db_);
  for (std::size_t size = whole.size() - 1; size > 0; size -= std::min<std::size_t>(size, 999)) {
    SCOPED_TRACE(size);
    expect_content_refused(whole.substr(0, size));
  }
}

}  // namespace
