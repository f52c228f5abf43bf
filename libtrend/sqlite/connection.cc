#include "libtrend/sqlite/connection.h"

#include <sqlite3.h>
#include <sys/stat.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <climits>
#include <utility>

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

namespace {

/// Limits what a manipulated file can make SQLite do. Our own tables and statements stay far below.
void set_limits(sqlite3* db) {
  constexpr std::pair<int, int> LIMITS[] = {
      {SQLITE_LIMIT_LENGTH, 16 << 20},  // of a row; one of a device with all slots takes 512 KiB
      {SQLITE_LIMIT_SQL_LENGTH, 100'000}, {SQLITE_LIMIT_COLUMN, 100},
      {SQLITE_LIMIT_EXPR_DEPTH, 100},     {SQLITE_LIMIT_COMPOUND_SELECT, 10},
      {SQLITE_LIMIT_VDBE_OP, 100'000},    {SQLITE_LIMIT_FUNCTION_ARG, 20},
      {SQLITE_LIMIT_ATTACHED, 0},         {SQLITE_LIMIT_LIKE_PATTERN_LENGTH, 1000},
      {SQLITE_LIMIT_VARIABLE_NUMBER, 20}, {SQLITE_LIMIT_TRIGGER_DEPTH, 1},
      {SQLITE_LIMIT_WORKER_THREADS, 0}};
  for (const auto& [limit, value] : LIMITS) sqlite3_limit(db, limit, value);
}

/// Returns whether `sql`, which made a table, has the word AS: each generated column has one.
bool has_generated_column(const std::string& sql) {
  const auto is_in_word = [](char c) {
    return std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '_' || c == '$' ||
           (c & 0x80) != 0;
  };
  for (std::size_t i = 1; i + 2 < sql.size(); ++i) {
    if (sqlite3_strnicmp(&sql[i], "as", 2) == 0 && !is_in_word(sql[i - 1]) &&
        !is_in_word(sql[i + 2])) {
      return true;
    }
  }
  return false;
}

/// Returns whether a table, index, view or trigger that was made by `sql` may be in a trend
/// database. Views and triggers are never used.
bool is_ordinary(const std::string& sql) {
  const auto starts_with = [&](const std::string& start) {
    return sqlite3_strnicmp(sql.c_str(), start.c_str(), static_cast<int>(start.size())) == 0;
  };
  if (starts_with("CREATE TABLE ")) return !has_generated_column(sql);
  return starts_with("CREATE INDEX ") || starts_with("CREATE UNIQUE INDEX ") ||
         starts_with("CREATE VIEW ") || starts_with("CREATE TRIGGER ");
}

/// Returns whether all tables are ordinary ones: the content of virtual tables and of generated
/// columns does not come from the file, and may be of any size. If not, the reason is in `error`.
bool has_ordinary_tables(sqlite3* db, std::string& error) {
  Statement row(db, "SELECT sql FROM sqlite_schema WHERE sql IS NOT NULL");
  Statement::Step step = row ? row.step() : Statement::Step::ERROR;
  for (; step == Statement::Step::ROW; step = row.step()) {
    std::string sql;
    if (row.read(0, sql) && is_ordinary(sql)) continue;
    error = "it has a table that is not an ordinary one";
    return false;
  }
  if (step == Statement::Step::ERROR) error = sqlite3_errmsg(db);
  return step == Statement::Step::DONE;
}

}  // namespace

bool configure(sqlite3* db, const OpenOptions& options, std::string& error) {
  constexpr unsigned MAX_SECONDS = INT_MAX / 1000;
  sqlite3_busy_timeout(db, static_cast<int>(std::min(options.busy_timeout, MAX_SECONDS) * 1000));
  set_limits(db);
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
  return execute(db, settings, error);
}

bool fail_with_database_error(sqlite3* db, std::string& error) {
  error = sqlite3_errmsg(db);
  return false;
}

bool execute(sqlite3* db, const std::string& sql, std::string& error) {
  if (sqlite3_exec(db, sql.c_str(), nullptr, nullptr, nullptr) == SQLITE_OK) return true;
  return fail_with_database_error(db, error);
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
    return fail_with_database_error(db, error);
  }
  if (application != APPLICATION_ID) {
    error = "it is not a trend database";
    return false;
  }
  return is_known_version(version, error) && has_ordinary_tables(db, error);
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
  sqlite3_db_status(db, SQLITE_DBSTATUS_CACHE_USED, &used, &highest, 0);
  if (used > ENOUGH) sqlite3_db_release_memory(db);
}

}  // namespace toolkit::trend
