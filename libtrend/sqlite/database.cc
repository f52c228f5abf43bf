#include "libtrend/sqlite/database.h"

#include <sqlite3.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>

#include "libtrend/sqlite/open_to_read.h"
#include "libtrend/sqlite/schema.h"
#include "libtrend/sqlite/statement.h"

namespace toolkit::trend {

namespace {

/// Opens `name` for writing, as `connect` does. SQLite itself makes do with reading.
Database connect_for_writing(const std::string& name, bool create, std::string& error) {
  const int flags = SQLITE_OPEN_READWRITE | (create ? SQLITE_OPEN_CREATE : 0);
  Database db;
  if (!connect(name, flags, nullptr, db, error)) return nullptr;
  if (sqlite3_db_readonly(db.get(), "main") != 0) {
    error = "it can't be written";
    return nullptr;
  }
  return db;
}

/// Whether `db` has nothing in it at all, like a file of no bytes. Not for within a transaction.
bool is_blank(sqlite3* db) {
  std::int64_t pages = -1;
  return read_number(db, "PRAGMA page_count", pages) && pages == 0;
}

/// Whether `db` is known to have no tables.
bool has_no_tables(sqlite3* db) {
  std::int64_t tables = -1;
  return read_number(db, "SELECT count(*) FROM sqlite_schema", tables) && tables == 0;
}

/// Takes the lock of a connection in exclusive locking mode, which then keeps it.
bool lock(sqlite3* db, std::string& error) {
  if (execute(db, "BEGIN EXCLUSIVE; COMMIT")) return true;
  error = sqlite3_errmsg(db);
  return false;
}

/// Creates the tables in a blank database of our own making; false on failure.
bool create_tables(sqlite3* db, std::string& error) {
  if (execute(db, "BEGIN IMMEDIATE")) {
    if (create_schema(db, error) && execute(db, "COMMIT")) return true;
    static_cast<void>(execute(db, "ROLLBACK"));
  }
  if (error.empty()) error = sqlite3_errmsg(db);
  return false;
}

Database open_for_writing(const std::string& name, bool is_created, const OpenOptions& options,
                          std::string& error) {
  Database db = connect_for_writing(name, options.create, error);
  if (!db) return nullptr;
  if (configure(db.get(), options, error) &&
      (options.create && is_blank(db.get()) ? create_tables(db.get(), error)
                                            : verify(db.get(), error)) &&
      set_journal(db.get(), options.traditional_journal, error)) {
    return db;
  }
  if (is_created) remove_blank(db.get());
  return nullptr;
}

/// Whether there may be a database at `path`: a regular file or, with `create`, none as yet.
bool is_place(const std::string& path, bool create, bool& exists, std::string& error) {
  struct stat file = {};
  exists = stat(path.c_str(), &file) == 0;
  if (!exists && (errno != ENOENT || !create)) {
    error = std::strerror(errno);
    return false;
  }
  if (exists && !S_ISREG(file.st_mode)) {
    error = "it is no regular file";
    return false;
  }
  return true;
}

/// The name under which SQLite opens `path` as a file, as it gives names like ":memory:" and
/// "file:x" a meaning of their own.
std::string plain_name(const std::string& path) {
  return path.starts_with('/') ? path : "./" + path;
}

}  // namespace

Database open_database(const std::string& path, const OpenOptions& options, std::string& error) {
  bool exists = false;
  if (!is_place(path, options.create && !options.read_only, exists, error)) return nullptr;
  const std::string name = plain_name(path);
  if (options.read_only) return open_to_read(name, options, error);
  Database db = open_for_writing(name, !exists, options, error);
  if (db && options.exclusive && !lock(db.get(), error)) return nullptr;
  return db;
}

RecordedDatabase open_to_record(const std::string& path, std::string& error) {
  bool exists = false;
  if (!is_place(path, true, exists, error)) return {};
  RecordedDatabase opened;
  opened.is_created = !exists;
  opened.db = connect_for_writing(plain_name(path), true, error);
  if (!opened.db) return {};
  const OpenOptions options = {.read_only = false, .create = true};
  if (configure(opened.db.get(), options, error)) {
    opened.is_blank = is_blank(opened.db.get());
    if (opened.is_blank || verify(opened.db.get(), error)) return opened;
  }
  if (opened.is_created) remove_blank(opened.db.get());
  return {};
}

bool create_schema(sqlite3* db, std::string& error) {
  if (!has_no_tables(db)) return verify(db, error);
  if (execute(db, CREATE_SCHEMA)) return true;
  error = sqlite3_errmsg(db);
  return false;
}

bool set_journal(sqlite3* db, bool traditional, std::string& error) {
  const char* wanted = traditional ? "delete" : "wal";
  const std::string sql = std::string("PRAGMA journal_mode = ") + wanted;
  Statement statement(db, sql.c_str());
  std::string mode;
  if (statement && statement.step() == Statement::Step::ROW && statement.read(0, mode) &&
      mode == wanted) {
    return true;
  }
  error = sqlite3_errcode(db) == SQLITE_ROW ? "can't set its journal mode" : sqlite3_errmsg(db);
  return false;
}

bool has_moved(sqlite3* db) {
  int moved = 0;
  sqlite3_file_control(db, "main", SQLITE_FCNTL_HAS_MOVED, &moved);
  return moved != 0;
}

void remove_blank(sqlite3* db) {
  sqlite3_busy_timeout(db, 0);
  // Under the lock for writing: another program that waits for it then sees the file gone.
  if (!execute(db, "BEGIN IMMEDIATE")) return;
  if (!has_moved(db) && has_no_tables(db)) unlink(file_name(db));
  static_cast<void>(execute(db, "ROLLBACK"));
}

}  // namespace toolkit::trend
