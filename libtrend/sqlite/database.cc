#include "libtrend/sqlite/database.h"

#include <sqlite3.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>

#include "libtrend/sqlite/file_header.h"
#include "libtrend/sqlite/schema.h"
#include "libtrend/sqlite/statement.h"

namespace toolkit::trend {

namespace {

/// Opens `name` for writing, as `connect` does. SQLite itself makes do with reading.
Database connect_for_writing(const std::string& name, bool create, std::string& error) {
  Database db = connect(name, SQLITE_OPEN_READWRITE | (create ? SQLITE_OPEN_CREATE : 0), error);
  if (db && sqlite3_db_readonly(db.get(), "main") != 0) {
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
bool lock(sqlite3* db, const OpenOptions& options, std::string& error) {
  const char* begin = options.read_only ? "BEGIN; SELECT 1 FROM sqlite_schema" : "BEGIN EXCLUSIVE";
  if (execute(db, begin) && execute(db, "COMMIT")) return true;
  error = sqlite3_errmsg(db);
  return false;
}

/// Whether `file` exists, or may exist out of sight.
bool may_exist(const char* file) {
  struct stat status = {};
  return lstat(file, &status) == 0 || errno != ENOENT;
}

/// Whether a log or journal that holds anything stands beside the database, as when a writer is at
/// work. Readers leave empty ones behind.
bool has_journal(sqlite3* db) {
  for (const char* file :
       {sqlite3_filename_wal(file_name(db)), sqlite3_filename_journal(file_name(db))}) {
    struct stat status = {};
    if (stat(file, &status) == 0 ? status.st_size > 0 : errno != ENOENT) return true;
  }
  return false;
}

/// Whether the file is no trend database, or but a part of one. SQLite would make files beside it
/// before it sees that, and takes a page cut short for a whole one.
bool is_unsound(sqlite3* db) {
  // What a writer is about to change is looked at twice.
  for (int look = 0; look < 2; ++look) {
    const bool is_written = has_journal(db);
    const FileHeader header = FileHeader::read(db);
    if (is_written ? header.has_whole_pages() : header.is_sound()) return false;
  }
  return true;
}

/// Whether the database is complete in its one file although its header asks for a write-ahead
/// log: there is no such log beside it, and none can be made there. A program that has the
/// database open for writing keeps a log beside it, so nobody is writing either.
bool is_complete_without_log(sqlite3* db) {
  const std::string file = file_name(db);
  const std::string folder = file.substr(0, file.rfind('/') + 1);
  return FileHeader::read(db).asks_for_write_ahead_log() &&
         !may_exist(sqlite3_filename_wal(file_name(db))) && access(folder.c_str(), W_OK) != 0;
}

/// The name under which SQLite opens `file`, an absolute path, as one that nobody changes.
std::string immutable_name(const char* file) {
  std::string name = "file://";
  for (const char* c = file; *c != '\0'; ++c) {
    if (std::strchr("?#%", *c) == nullptr) {
      name += *c;
    } else {
      constexpr const char* DIGITS = "0123456789ABCDEF";
      name += {'%', DIGITS[*c / 16], DIGITS[*c % 16]};
    }
  }
  return name + "?immutable=1";
}

Database open_for_reading(const std::string& name, const OpenOptions& options, std::string& error) {
  Database db = connect(name, SQLITE_OPEN_READONLY, error);
  if (!db) return nullptr;
  if (is_unsound(db.get())) {
    error = "it is no whole trend database";
    return nullptr;
  }
  if (configure(db.get(), options, error) && verify(db.get(), error)) return db;
  if (!is_complete_without_log(db.get())) return nullptr;
  db = connect(immutable_name(file_name(db.get())), SQLITE_OPEN_READONLY | SQLITE_OPEN_URI, error);
  if (db && configure(db.get(), options, error) && verify(db.get(), error)) return db;
  return nullptr;
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
  Database db = options.read_only ? open_for_reading(name, options, error)
                                  : open_for_writing(name, !exists, options, error);
  if (db && options.exclusive && !lock(db.get(), options, error)) return nullptr;
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
