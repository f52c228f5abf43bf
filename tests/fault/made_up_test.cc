// Databases in which values have other types, or are others, and pages with another order of rows.
#include "tests/fault/made_up.h"

#include <gtest/gtest.h>
#include <sqlite3.h>

#include <cstdint>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "libtrend/sqlite/connection.h"
#include "tests/support/database_file.h"
#include "tests/support/process.h"
#include "tests/support/sample_log.h"

namespace toolkit::trend {
namespace {

struct Column {
  const char* table;
  const char* name;
  const char* value;  ///< of another type
};

constexpr const char* NUMBER = "'x'";
constexpr const char* TEXT = "x'00'";
constexpr const char* BLOB = "'x'";

constexpr Column CATALOGUE_COLUMNS[] = {
    {"device", "path", TEXT},
    {"device", "description", TEXT},
    {"parameter", "device_id", NUMBER},
    {"parameter", "path", TEXT},
    {"parameter", "statistics", NUMBER},
    {"parameter", "first_slot", NUMBER},
    {"series", "device_id", NUMBER},
    {"series", "minutes", NUMBER},
};

constexpr Column COLUMNS_OF_VERSION_1[] = {{"snapshot", "valid_ratio", NUMBER},
                                           {"snapshot", "samples", BLOB}};

constexpr Column COLUMNS[] = {
    {"loose", "valid_ratio", NUMBER},
    {"loose", "samples", BLOB},
    {"loose", "checksum", NUMBER},
    {"series_state", "loose_rows", NUMBER},
    {"series_state", "unchecked_until", NUMBER},
    {"series_state", "first_block", NUMBER},
    {"series_state", "last_block", NUMBER},
    {"series_state", "blocks", NUMBER},
    {"series_state", "sealed_rows", NUMBER},
    {"series_state", "changes", NUMBER},
    {"series_state", "checksum", NUMBER},
    {"block", "number", NUMBER},
    {"block", "first_time", NUMBER},
    {"block", "previous", NUMBER},
    {"block", "rows", NUMBER},
    {"block", "bytes", NUMBER},
    {"block", "segment_size", NUMBER},
    {"block", "change", NUMBER},
    {"block", "content", BLOB},
    {"block", "checksum", NUMBER},
    {"segment", "data", BLOB},
    {"database", "uuid", TEXT},
    {"database", "next_block", NUMBER},
    {"database", "catalogue", NUMBER},
    {"database", "checksum", NUMBER},
};

/// Runs `sql` on a copy, without the checks of the tables, and expects the change to be noticed.
void expect_notice_of(MadeUp& database, const std::string& sql) {
  SCOPED_TRACE(sql);
  run_sql(database.copy(),
          "PRAGMA writable_schema = ON;"
          "UPDATE sqlite_schema SET sql = replace(sql, ') STRICT', ')');"
          "PRAGMA writable_schema = RESET; PRAGMA ignore_check_constraints = ON;" +
              sql);
  database.expect_notice();
}

/// Gives each column another type: in all rows, and in the last one.
void expect_notice_of_types(MadeUp& database, std::span<const Column> columns) {
  for (const Column& column : columns) {
    const std::string table = column.table;
    for (const std::string& rows : {std::string(" WHERE rowid > 0"),
                                    " WHERE rowid = (SELECT max(rowid) FROM " + table + ")"}) {
      expect_notice_of(database, "UPDATE OR IGNORE " + table + " SET " + column.name + " = " +
                                     column.value + rows);
    }
  }
}

TEST(OtherTypes, AreNoticedInVersion1) {
  MadeUp database(make_sample_of_version_1);
  expect_notice_of_types(database, CATALOGUE_COLUMNS);
  expect_notice_of_types(database, COLUMNS_OF_VERSION_1);
}

TEST(OtherTypes, AreNoticed) {
  MadeUp database(make_sample);
  expect_notice_of_types(database, CATALOGUE_COLUMNS);
  expect_notice_of_types(database, COLUMNS);
}

TEST(OtherValues, AreNoticedInVersion1) {
  MadeUp database(make_sample_of_version_1);
  for (const char* sql : {
           "UPDATE parameter SET statistics = -1",
           "UPDATE parameter SET statistics = 32 WHERE id = 2",
           "UPDATE parameter SET first_slot = -1 WHERE id = 1",
           "UPDATE parameter SET first_slot = 65534",
           "UPDATE series SET minutes = -5 WHERE id = 1",
           "UPDATE series SET id = id + (1 << 23)",
           "UPDATE series SET id = -1 WHERE id = 2",
           "UPDATE snapshot SET id = id + (3 << 40)",
           "UPDATE snapshot SET samples = zeroblob(9)",
       }) {
    expect_notice_of(database, sql);
  }
}

TEST(OtherValues, AreNoticed) {
  MadeUp database(make_sample);
  for (const char* sql : {
           "UPDATE device SET path = 'z' WHERE id = 1",
           "UPDATE parameter SET statistics = -1",
           "UPDATE series SET minutes = 1 << 33 WHERE id = 2",
           "UPDATE loose SET checksum = NULL",
           "UPDATE loose SET checksum = checksum + 1",
           "UPDATE loose SET samples = zeroblob(9)",
           "UPDATE loose SET samples = zeroblob(9) WHERE checksum IS NULL",
           "DELETE FROM loose",
           "DELETE FROM loose WHERE id = (SELECT max(id) FROM loose WHERE id < 2 << 40)",
           "DELETE FROM series_state",
           "DELETE FROM block",
           "DELETE FROM block WHERE number = 1",
           "DELETE FROM block WHERE number = 2",
           "DELETE FROM block WHERE number = 3",
           "UPDATE OR IGNORE block SET id = id + 1",
           "DELETE FROM segment",
           "UPDATE segment SET data = data || x'00'",
           "UPDATE segment SET id = id + (9 << 40)",
           "DELETE FROM database",
           "UPDATE database SET next_block = next_block + 1",
       }) {
    expect_notice_of(database, sql);
  }
}

/// The place in the file of the page of a table; 0 if the table has several pages.
std::size_t find_page(const std::string& path, const std::string& content,
                      const std::string& table) {
  Database db;
  std::string error;
  std::int64_t page = 0;
  EXPECT_TRUE(connect(path, SQLITE_OPEN_READONLY, nullptr, db, error));
  const std::string sql = "SELECT rootpage FROM sqlite_schema WHERE name = '" + table + "'";
  EXPECT_TRUE(read_number(db.get(), sql.c_str(), page));
  constexpr char LEAF = 13;
  const std::size_t place = static_cast<std::size_t>(page - 1) * 512;
  return content.at(place) == LEAF ? place : 0;
}

// SQLite searches in a page and walks through it in two ways, and only a walk sees all rows then.
TEST(OtherOrder, OfTheRowsOfAPageIsNoticed) {
  for (const auto& [make, tables] :
       {std::pair<Make, std::vector<std::string>>{
            make_sample, {"device", "parameter", "series", "series_state", "block", "segment"}},
        {make_sample_of_version_1, {"device", "series"}}}) {
    MadeUp database(make);
    for (const std::string& table : tables) {
      const std::string path = database.copy();
      const std::string content = read_file(path);
      const std::size_t page = find_page(path, content, table);
      if (page == 0) continue;
      constexpr std::size_t HEAD = 8;
      const std::string first = content.substr(page + HEAD, 2);
      const std::string second = content.substr(page + HEAD + 2, 2);
      for (const std::string& start : {second + first, second + second, first + first}) {
        SCOPED_TRACE(table);
        write_file(database.copy(), std::string(content).replace(page + HEAD, 4, start));
        database.expect_notice();
      }
    }
  }
}

}  // namespace
}  // namespace toolkit::trend
