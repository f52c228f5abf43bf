#include "libtrend/sqlite/database.h"

#include <sqlite3.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstring>

#include "libtrend/sqlite/schema.h"
#include "libtrend/sqlite/statement.h"

namespace toolkit::trend {

void DatabaseDeleter::operator()(sqlite3* db) const { sqlite3_close_v2(db); }

namespace {

bool execute(sqlite3* db, const std::string& sql) {
  return sqlite3_exec(db, sql.c_str(), nullptr, nullptr, nullptr) == SQLITE_OK;
}

/// Opens `name` without reading it yet. Returns null on failure.
Database connect(const std::string& name, int flags, std::string& error) {
  sqlite3* handle = nullptr;
  const int status = sqlite3_open_v2(name.c_str(), &handle, flags | SQLITE_OPEN_NOMUTEX, nullptr);
  Database db(handle);
  if (status == SQLITE_OK) return db;
  error = db ? sqlite3_errmsg(db.get()) : "out of memory";
  return nullptr;
}

/// Opens `name` for writing, as `connect` does. SQLite itself makes do with reading.
Database connect_for_writing(const std::string& name, bool create, std::string& error) {
  Database db = connect(name, SQLITE_OPEN_READWRITE | (create ? SQLITE_OPEN_CREATE : 0), error);
  if (db && sqlite3_db_readonly(db.get(), "main") != 0) {
    error = "it can't be written";
    return nullptr;
  }
  return db;
}

/// Configures a connection as `options` ask, and so that a database from an untrusted source can
/// do no harm. False on failure.
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

/// Reads the one number that `sql` yields; false on failure.
bool read_number(sqlite3* db, const char* sql, std::int64_t& number) {
  Statement statement(db, sql);
  return statement && statement.step() == Statement::Step::ROW && statement.read(0, number);
}

/// Whether `db` holds a trend database of the format that this library knows.
bool verify(sqlite3* db, std::string& error) {
  std::int64_t application = 0;
  std::int64_t version = 0;
  if (!read_number(db, "PRAGMA application_id", application) ||
      !read_number(db, "PRAGMA user_version", version)) {
    error = sqlite3_errmsg(db);
    return false;
  }
  if (application != APPLICATION_ID) {
    error = "it is no trend database";
    return false;
  }
  if (version != FORMAT_VERSION) {
    error = "its format version is " + std::to_string(version) + ", not " +
            std::to_string(FORMAT_VERSION);
    return false;
  }
  return true;
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

/// The begin of a database file, as SQLite's file format has it. It is read by SQLite: a file
/// descriptor of our own, once closed, would end the locks of all connections of this process.
class Header {
 public:
  explicit Header(sqlite3* db) {
    sqlite3_file* file = nullptr;
    sqlite3_int64 size = 0;
    if (sqlite3_file_control(db, "main", SQLITE_FCNTL_FILE_POINTER, &file) == SQLITE_OK &&
        file->pMethods->xRead(file, bytes_, SIZE, 0) == SQLITE_OK &&
        file->pMethods->xFileSize(file, &size) == SQLITE_OK &&
        std::memcmp(bytes_, MAGIC, sizeof MAGIC) == 0) {
      file_size_ = size;
    }
  }

  /// Whether the file consists of whole pages, which it does at any time.
  [[nodiscard]] bool has_whole_pages() const {
    return page_size() > 0 && file_size_ > 0 && file_size_ % page_size() == 0;
  }

  [[nodiscard]] bool asks_for_write_ahead_log() const { return file_size_ > 0 && bytes_[19] == 2; }

  /// Whether it is that of a trend database, and the file is as long as it should be when no log
  /// holds a part of it.
  [[nodiscard]] bool is_sound() const {
    const bool knows_length = number(24) == number(92);
    return has_whole_pages() && (!knows_length || number(28) * page_size() <= file_size_) &&
           number(60) == FORMAT_VERSION && number(68) == APPLICATION_ID;
  }

 private:
  static constexpr int SIZE = 100;
  static constexpr char MAGIC[] = "SQLite format 3";

  [[nodiscard]] std::int64_t page_size() const {
    return bytes_[16] == 0 && bytes_[17] == 1 ? 65536 : number(16) >> 16;
  }

  [[nodiscard]] std::int64_t number(std::size_t offset) const {
    std::int64_t value = 0;
    for (std::size_t i = offset; i < offset + 4; ++i) value = value << 8 | bytes_[i];
    return value;
  }

  unsigned char bytes_[SIZE] = {};
  std::int64_t file_size_ = 0;  ///< 0 where there is no database at all
};

/// The absolute path of the database file, without links.
const char* file_name(sqlite3* db) { return sqlite3_db_filename(db, "main"); }

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
    const Header header(db);
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
  return Header(db).asks_for_write_ahead_log() && !may_exist(sqlite3_filename_wal(file_name(db))) &&
         access(folder.c_str(), W_OK) != 0;
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
    execute(db, "ROLLBACK");
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
  execute(db, "ROLLBACK");
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
