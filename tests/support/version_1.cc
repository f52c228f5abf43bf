#include "tests/support/version_1.h"

#include <bit>
#include <cstdio>

#include "tests/support/database_file.h"

namespace {

constexpr const char* TABLES = R"(
CREATE TABLE device (
  id          INTEGER PRIMARY KEY,
  path        TEXT NOT NULL UNIQUE,
  description TEXT NOT NULL DEFAULT ''
) STRICT;
CREATE TABLE parameter (
  id         INTEGER PRIMARY KEY,
  device_id  INTEGER NOT NULL REFERENCES device (id),
  path       TEXT NOT NULL,
  statistics INTEGER NOT NULL CHECK (statistics BETWEEN 0 AND 31),
  first_slot INTEGER NOT NULL CHECK (first_slot >= 0),
  UNIQUE (device_id, path)
) STRICT;
CREATE TABLE series (
  id        INTEGER PRIMARY KEY,
  device_id INTEGER NOT NULL REFERENCES device (id),
  minutes   INTEGER NOT NULL CHECK (minutes > 0),
  UNIQUE (device_id, minutes)
) STRICT;
CREATE TABLE snapshot (
  id          INTEGER PRIMARY KEY CHECK (id & 0xFFFFFFFFFF > 0),
  valid_ratio REAL NOT NULL,
  samples     BLOB NOT NULL
) STRICT;
INSERT INTO device VALUES (1, '/plant', '');
INSERT INTO parameter VALUES (1, 1, 'a', 8, 0), (2, 1, 'b', 8, 1), (3, 1, 'c', 8, 2);
PRAGMA application_id = 0x54524E44;
PRAGMA user_version = 1;
)";

}  // namespace

void make_version_1(const std::string& path, const std::map<std::int64_t, RecordedSeries>& rows) {
  std::string sql = std::string("PRAGMA journal_mode = wal; BEGIN;") + TABLES;
  for (const auto& [id, series] : rows) {
    sql += "INSERT INTO series VALUES (" + std::to_string(id) + ", 1, " + std::to_string(id) + ");";
    for (const auto& [time, row] : series) {
      char ratio[32];
      std::snprintf(ratio, sizeof ratio, "%.17g", row.valid_ratio);
      sql += "INSERT INTO snapshot VALUES (" + std::to_string((id << 40) + time) + ", " + ratio +
             " + 0.0, x'";
      for (const double value : row.values) {
        char digits[17];
        std::snprintf(digits, sizeof digits, "%016llx",
                      static_cast<unsigned long long>(std::bit_cast<std::uint64_t>(value)));
        sql += digits;
      }
      sql += "');";
    }
  }
  run_sql(path, sql + "COMMIT");
}
