#include "libtrend/sqlite/check_rules.h"

#include <sqlite3.h>

#include <memory>
#include <string>

#include "libtrend/sqlite/connection.h"
#include "libtrend/sqlite/statement.h"

namespace toolkit::trend {

namespace {

/// The tables of the format that have rules.
constexpr const char* TABLES[] = {"parameter", "series", "snapshot", "loose", "block", "database"};

/// Makes the table `name` with the rules that it has in `db` in the new database `copy`. Returns
/// false if SQLite does not understand them.
bool copy_table(sqlite3* db, const std::string& name, Database& copy) {
  std::string error;
  if (!connect(":memory:", SQLITE_OPEN_READWRITE | SQLITE_OPEN_MEMORY, nullptr, copy, error) ||
      !configure(copy.get(), {}, error) ||
      !execute(copy.get(), "PRAGMA foreign_keys = OFF; BEGIN", error)) {
    return false;
  }
  Statement text(db, "SELECT sql FROM sqlite_schema WHERE type = 'table' AND name = ?1");
  std::string sql;
  text.bind(1, name);
  // Of several statements, only the first one is run: the one that makes the table.
  return text.step() == Statement::Step::ROW && text.read(0, sql) &&
         Statement(copy.get(), sql.c_str()).run();
}

using RawStatement = std::unique_ptr<sqlite3_stmt, StatementDeleter>;

RawStatement prepare(sqlite3* db, const std::string& sql) {
  sqlite3_stmt* statement = nullptr;
  sqlite3_prepare_v2(db, sql.c_str(), -1, &statement, nullptr);
  return RawStatement(statement);
}

/// Whether the table `name` of `copy` accepts all rows that can be read of the table in `db`. No
/// rule is about the content of a blob.
bool accepts_rows(sqlite3* db, const std::string& name, sqlite3* copy) {
  constexpr int MOST_ROWS = 1000;  // in memory
  const RawStatement row = prepare(db, "SELECT * FROM " + name);
  if (!row) return false;
  const int columns = sqlite3_column_count(row.get());
  std::string sql = "INSERT INTO " + name + " VALUES (?";
  for (int column = 1; column < columns; ++column) sql += ", ?";
  const RawStatement insert = prepare(copy, sql + ")");
  if (!insert) return false;
  std::string ignored;
  for (int rows = 1; sqlite3_step(row.get()) == SQLITE_ROW; ++rows) {
    for (int column = 0; column < columns; ++column) {
      if (sqlite3_column_type(row.get(), column) == SQLITE_BLOB) {
        sqlite3_bind_zeroblob(insert.get(), column + 1, 0);
      } else {
        sqlite3_bind_value(insert.get(), column + 1, sqlite3_column_value(row.get(), column));
      }
    }
    const bool is_accepted = sqlite3_step(insert.get()) == SQLITE_DONE;
    sqlite3_reset(insert.get());
    if (!is_accepted) return false;
    if (rows % MOST_ROWS == 0 && !execute(copy, "DELETE FROM " + name, ignored)) return false;
  }
  return true;
}

bool has_table(sqlite3* db, const std::string& name) {
  Statement row(db, "SELECT 1 FROM sqlite_schema WHERE type = 'table' AND name = ?1");
  row.bind(1, name);
  return row.step() == Statement::Step::ROW;
}

}  // namespace

void check_rules(sqlite3* db, DamageList& found) {
  for (const std::string name : TABLES) {
    Database copy;
    if (!has_table(db, name)) continue;
    if (!copy_table(db, name, copy)) {
      found.insert(
          {.device = "", .param = "", .text = "the rules of table " + name + " are damaged"});
    } else if (!accepts_rows(db, name, copy.get())) {
      found.insert({.device = "", .param = "", .text = "a row breaks the rules of table " + name});
    }
  }
}

}  // namespace toolkit::trend
