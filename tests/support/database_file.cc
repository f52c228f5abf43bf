#include "tests/support/database_file.h"

#include <sqlite3.h>

#include <algorithm>
#include <bit>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <stdexcept>

const char* const LOOSE_SCHEMA =
    "CREATE TABLE device (id INTEGER PRIMARY KEY, path, description);"
    "CREATE TABLE parameter (id INTEGER PRIMARY KEY, device_id, path, statistics, first_slot);"
    "CREATE TABLE series (id INTEGER PRIMARY KEY, device_id, minutes);"
    "CREATE TABLE snapshot (id INTEGER PRIMARY KEY, valid_ratio, samples);";

const char* const IDENTITY = "PRAGMA application_id = 1414680132; PRAGMA user_version = 1;";

const char* const CATALOGUE =
    "INSERT INTO device VALUES (1, '/plant', '');"
    "INSERT INTO parameter VALUES (1, 1, 'a', 8, 0);"
    "INSERT INTO series VALUES (1, 1, 1);";

void run_sql(const std::string& path, const std::string& sql, const std::function<void()>& look) {
  sqlite3* handle = nullptr;
  const int opened =
      sqlite3_open_v2(path.c_str(), &handle, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, nullptr);
  const std::unique_ptr<sqlite3, int (*)(sqlite3*)> db(handle, sqlite3_close);
  if (opened != SQLITE_OK ||
      sqlite3_exec(handle, sql.c_str(), nullptr, nullptr, nullptr) != SQLITE_OK) {
    throw std::runtime_error(sqlite3_errmsg(handle));
  }
  if (look) look();
}

std::string insert_row(std::int64_t minute) {
  const auto value = std::bit_cast<std::uint64_t>(static_cast<double>(minute));
  const std::int64_t id = (std::int64_t{1} << 40) + 60 * minute;
  char sql[120];
  std::snprintf(sql, sizeof sql, "INSERT INTO snapshot VALUES (%lld, 1.0, x'%016llx');",
                static_cast<long long>(id), static_cast<unsigned long long>(value));
  return sql;
}

std::vector<std::string> list_folder(const std::string& path) {
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(path)) {
    names.push_back(entry.path().filename());
  }
  std::sort(names.begin(), names.end());
  return names;
}
