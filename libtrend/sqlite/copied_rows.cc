#include "libtrend/sqlite/copied_rows.h"

#include <sqlite3.h>

#include <vector>

#include "libtrend/query/bytes.h"
#include "libtrend/sqlite/checksum.h"
#include "libtrend/sqlite/connection.h"
#include "libtrend/sqlite/statement.h"

namespace toolkit::trend {

namespace {

constexpr const char* CREATE_TABLE = R"(
CREATE TABLE IF NOT EXISTS copied (
  source    TEXT NOT NULL,
  series_id INTEGER NOT NULL REFERENCES series (id),
  change    INTEGER NOT NULL,
  checksum  INTEGER NOT NULL,
  PRIMARY KEY (source, series_id)
) STRICT, WITHOUT ROWID;
)";

std::int64_t get_checksum(const CopiedRow& row) {
  std::vector<unsigned char> bytes;
  append(static_cast<std::uint32_t>(row.source.size()), bytes);
  bytes.insert(bytes.end(), row.source.begin(), row.source.end());
  append(static_cast<std::uint64_t>(row.series_id), bytes);
  append(static_cast<std::uint64_t>(row.change), bytes);
  return std::int64_t{trend::get_checksum(bytes)};
}

bool find_table(sqlite3* db, bool& is_there, std::string& error) {
  std::int64_t tables = 0;
  const char* sql = "SELECT count(*) FROM sqlite_schema WHERE type = 'table' AND name = 'copied'";
  if (!read_number(db, sql, tables)) return fail_with_database_error(db, error);
  is_there = tables > 0;
  return true;
}

}  // namespace

bool read_copied(sqlite3* db, CopiedRow& row, std::string& error) {
  row.change = 0;
  bool is_there = false;
  if (!find_table(db, is_there, error)) return false;
  if (!is_there) return true;
  Statement found(db, "SELECT change, checksum FROM copied WHERE source = ?1 AND series_id = ?2");
  if (!found) return fail_with_database_error(db, error);
  found.bind(1, row.source);
  found.bind(2, row.series_id);
  const Statement::Step step = found.step();
  if (step == Statement::Step::ERROR) return fail_with_database_error(db, error);
  std::int64_t checksum = 0;
  // Without a number that can be trusted, everything is compared once more, which is not wrong.
  const bool is_read = step == Statement::Step::ROW && found.read(0, row.change) &&
                       found.read(1, checksum) && checksum == get_checksum(row);
  if (!is_read) row.change = 0;
  return true;
}

bool write_copied(sqlite3* db, const CopiedRow& row, std::string& error) {
  if (!execute(db, CREATE_TABLE, error)) return false;
  Statement write(db, "INSERT OR REPLACE INTO copied VALUES (?1, ?2, ?3, ?4)");
  if (!write) return fail_with_database_error(db, error);
  write.bind(1, row.source);
  write.bind(2, row.series_id);
  write.bind(3, row.change);
  write.bind(4, get_checksum(row));
  if (write.run()) return true;
  return fail_with_database_error(db, error);
}

bool remove_copied(sqlite3* db, std::int64_t series_id, std::string& error) {
  bool is_there = false;
  if (!find_table(db, is_there, error)) return false;
  if (!is_there) return true;
  Statement remove(db, "DELETE FROM copied WHERE series_id = ?1");
  if (!remove) return fail_with_database_error(db, error);
  remove.bind(1, series_id);
  if (remove.run()) return true;
  return fail_with_database_error(db, error);
}

}  // namespace toolkit::trend
