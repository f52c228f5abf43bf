#include "libtrend/sqlite/database.h"

#include <sqlite3.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>

#include "libtrend/sqlite/new_database.h"
#include "libtrend/sqlite/open_to_read.h"

namespace toolkit::trend {

namespace {

/// Takes the lock of a connection in exclusive locking mode. The connection keeps the lock.
bool lock_to_write(sqlite3* db, std::string& error) {
  return execute(db, "BEGIN EXCLUSIVE; COMMIT", error);
}

/// Opens the file `name` for writing. Fails if only reading is possible, which SQLite would accept.
Database open_to_write(const std::string& name, const OpenOptions& options, std::string& error) {
  Database db;
  if (!connect(name, SQLITE_OPEN_READWRITE, nullptr, db, error)) return nullptr;
  if (sqlite3_db_readonly(db.get(), "main") != 0) {
    error = "it is not writable";
    return nullptr;
  }
  if (!configure(db.get(), options, error)) return nullptr;
  // A commit is lasting when it returns. That takes more than SQLite's default where a rollback
  // journal is removed.
  if (!execute(db.get(), "PRAGMA synchronous = EXTRA", error)) return nullptr;
  if (options.create && is_blank(db.get()) &&
      !fill_database(db.get(), options.traditional_journal, options.busy_timeout, error)) {
    return nullptr;
  }
  return verify(db.get(), error) ? std::move(db) : nullptr;
}

/// Finds out whether there is a file at `path`. Returns false, with the reason in `error`, if that
/// is not possible or it is not a regular file.
bool look_for_file(const std::string& path, bool& exists, std::string& error) {
  struct stat file = {};
  exists = stat(path.c_str(), &file) == 0;
  if (!exists && errno != ENOENT) {
    error = std::strerror(errno);
    return false;
  }
  if (exists && !S_ISREG(file.st_mode)) {
    error = "it is not a regular file";
    return false;
  }
  return true;
}

/// Opens the database at `path` with `options`, but does not change its journal mode.
Database open(const std::string& path, const OpenOptions& options, bool may_be_damaged,
              std::string& error) {
  // For SQLite, names like ":memory:" and "file:x" have a special meaning.
  const std::string name = path.starts_with('/') ? path : "./" + path;
  bool exists = false;
  if (!look_for_file(name, exists, error)) return nullptr;
  if (!exists && (options.read_only || !options.create)) {
    error = std::strerror(ENOENT);
    return nullptr;
  }
  if (!exists && !create_database(name, options.page_size, options.traditional_journal, error)) {
    return nullptr;
  }
  return options.read_only ? open_to_read(name, options, may_be_damaged, error)
                           : open_to_write(name, options, error);
}

}  // namespace

Database open_database(const std::string& path, const OpenOptions& options, std::string& error) {
  Database db = open(path, options, false, error);
  if (!db || options.read_only) return db;
  if (!set_journal(db.get(), options.traditional_journal, options.busy_timeout, error) ||
      (options.exclusive && !lock_to_write(db.get(), error))) {
    return nullptr;
  }
  return db;
}

Database open_damaged_database(const std::string& path, const OpenOptions& options,
                               std::string& error) {
  return open(path, options, true, error);
}

Database open_to_record(const std::string& path, std::string& error) {
  return open(path, {.read_only = false, .create = true}, false, error);
}

}  // namespace toolkit::trend
