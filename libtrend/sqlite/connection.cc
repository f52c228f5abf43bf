#include "libtrend/sqlite/connection.h"

#include <sqlite3.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <climits>

#include "libtrend/sqlite/schema.h"
#include "libtrend/sqlite/statement.h"

namespace toolkit::trend {

void DatabaseDeleter::operator()(sqlite3* db) const { sqlite3_close_v2(db); }

bool connect(const std::string& name, int flags, const char* vfs, Database& db,
             std::string& error) {
  sqlite3* handle = nullptr;
  const int status = sqlite3_open_v2(name.c_str(), &handle, flags | SQLITE_OPEN_NOMUTEX, vfs);
  db.reset(handle);
  if (status == SQLITE_OK) return true;
  error = db ? sqlite3_errmsg(db.get()) : "out of memory";
  return false;
}

bool configure(sqlite3* db, const OpenOptions& options, std::string& error) {
  constexpr unsigned MAX_SECONDS = INT_MAX / 1000;
  sqlite3_busy_timeout(db, static_cast<int>(std::min(options.busy_timeout, MAX_SECONDS) * 1000));
  sqlite3_db_config(db, SQLITE_DBCONFIG_DEFENSIVE, 1, nullptr);
  sqlite3_db_config(db, SQLITE_DBCONFIG_TRUSTED_SCHEMA, 0, nullptr);
  sqlite3_db_config(db, SQLITE_DBCONFIG_ENABLE_TRIGGER, 0, nullptr);
  sqlite3_db_config(db, SQLITE_DBCONFIG_ENABLE_VIEW, 0, nullptr);
  std::string settings = "PRAGMA cell_size_check = ON; PRAGMA foreign_keys = ON;";
  if (options.page_size != 0) {
    settings += "PRAGMA page_size = " + std::to_string(options.page_size) + ";";
  }
  if (options.cache_size != 0) {
    // A negative cache size counts KiB, a positive one pages.
    const std::uint64_t kib = (std::uint64_t{options.cache_size} + 1023) / 1024;
    settings += "PRAGMA cache_size = -" + std::to_string(kib) + ";";
  }
  if (options.heap_limit != 0) sqlite3_soft_heap_limit64(options.heap_limit);
  if (options.exclusive) settings += "PRAGMA locking_mode = EXCLUSIVE;";
  if (execute(db, settings)) return true;
  error = sqlite3_errmsg(db);
  return false;
}

bool execute(sqlite3* db, const std::string& sql) {
  return sqlite3_exec(db, sql.c_str(), nullptr, nullptr, nullptr) == SQLITE_OK;
}

bool read_number(sqlite3* db, const char* sql, std::int64_t& number) {
  Statement statement(db, sql);
  return statement && statement.step() == Statement::Step::ROW && statement.read(0, number);
}

bool is_known_version(std::int64_t version, std::string& error) {
  if (version == ROWS_ONLY_VERSION || version == FORMAT_VERSION) return true;
  error = "its format version is " + std::to_string(version) + ", not " +
          std::to_string(ROWS_ONLY_VERSION) + " or " + std::to_string(FORMAT_VERSION);
  return false;
}

bool verify(sqlite3* db, std::string& error) {
  std::int64_t application = 0;
  std::int64_t version = 0;
  if (!read_number(db, "PRAGMA application_id", application) ||
      !read_number(db, "PRAGMA user_version", version)) {
    error = sqlite3_errmsg(db);
    return false;
  }
  if (application != APPLICATION_ID) {
    error = "it is not a trend database";
    return false;
  }
  return is_known_version(version, error);
}

const char* file_name(sqlite3* db) { return sqlite3_db_filename(db, "main"); }

bool may_exist(const char* file) {
  struct stat status = {};
  return lstat(file, &status) == 0 || errno != ENOENT;
}

void trim_cache(sqlite3* db) {
  constexpr int ENOUGH = 128 * 1024;
  int used = 0;
  int highest = 0;
  if (sqlite3_db_status(db, SQLITE_DBSTATUS_CACHE_USED, &used, &highest, 0) == SQLITE_OK &&
      used > ENOUGH) {
    sqlite3_db_release_memory(db);
  }
}

}  // namespace toolkit::trend
