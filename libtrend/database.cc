#include "libtrend/database.h"

#include <fcntl.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "libtrend/schema.h"
#include "libtrend/statement.h"

namespace toolkit::trend {

void DatabaseDeleter::operator()(sqlite3* db) const { sqlite3_close_v2(db); }

namespace {

bool execute(sqlite3* db, const std::string& sql) {
  return sqlite3_exec(db, sql.c_str(), nullptr, nullptr, nullptr) == SQLITE_OK;
}

/// Opens `name` without reading it yet, and configures the connection so that a database from an
/// untrusted source can do no harm. Returns null on failure.
Database connect(const std::string& name, int flags, const OpenOptions& options,
                 std::string& error) {
  sqlite3* handle = nullptr;
  const int status = sqlite3_open_v2(name.c_str(), &handle, flags | SQLITE_OPEN_NOMUTEX, nullptr);
  Database db(handle);
  if (status != SQLITE_OK) {
    error = db ? sqlite3_errmsg(db.get()) : "out of memory";
    return nullptr;
  }
  constexpr unsigned MAX_SECONDS = INT_MAX / 1000;
  sqlite3_busy_timeout(db.get(),
                       static_cast<int>(std::min(options.busy_timeout, MAX_SECONDS) * 1000));
  sqlite3_db_config(db.get(), SQLITE_DBCONFIG_DEFENSIVE, 1, nullptr);
  sqlite3_db_config(db.get(), SQLITE_DBCONFIG_TRUSTED_SCHEMA, 0, nullptr);
  sqlite3_db_config(db.get(), SQLITE_DBCONFIG_ENABLE_TRIGGER, 0, nullptr);
  sqlite3_db_config(db.get(), SQLITE_DBCONFIG_ENABLE_VIEW, 0, nullptr);
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
  if (!execute(db.get(), settings)) {
    error = sqlite3_errmsg(db.get());
    return nullptr;
  }
  return db;
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

/// Whether `db` has nothing in it at all, like a file of no bytes.
bool is_blank(sqlite3* db) {
  std::int64_t pages = -1;
  return read_number(db, "PRAGMA page_count", pages) && pages == 0;
}

bool create_schema(sqlite3* db, std::string& error) {
  // Another program may create the database at the same moment: look again under the lock.
  if (execute(db, "BEGIN IMMEDIATE")) {
    std::int64_t tables = 0;
    if (read_number(db, "SELECT count(*) FROM sqlite_schema", tables) && tables != 0) {
      return execute(db, "COMMIT") && verify(db, error);
    }
    if (execute(db, CREATE_SCHEMA) && execute(db, "COMMIT")) return true;
  }
  error = sqlite3_errmsg(db);
  execute(db, "ROLLBACK");
  return false;
}

/// Puts the journal mode of a writable database in force; false on failure.
bool set_journal(sqlite3* db, Journal journal, std::string& error) {
  const char* wanted = journal == Journal::ROLLBACK ? "delete" : "wal";
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

/// Takes the lock of a connection in exclusive locking mode, which then keeps it.
bool lock(sqlite3* db, const OpenOptions& options, std::string& error) {
  const char* begin = options.read_only ? "BEGIN; SELECT 1 FROM sqlite_schema" : "BEGIN EXCLUSIVE";
  if (execute(db, begin) && execute(db, "COMMIT")) return true;
  error = sqlite3_errmsg(db);
  return false;
}

/// Whether the database at `path` is complete in its one file although its header asks for a
/// write-ahead log: there is no such log beside it, and none can be made there. A program that has
/// the database open for writing keeps a log beside it, so nobody is writing either.
bool is_complete_without_log(const std::string& path) {
  const std::unique_ptr<char, void (*)(void*)> resolved(realpath(path.c_str(), nullptr), free);
  if (!resolved) return false;
  const std::string file = resolved.get();

  constexpr std::size_t READ_VERSION_OFFSET = 19;
  constexpr unsigned char WRITE_AHEAD_LOG = 2;
  unsigned char header[READ_VERSION_OFFSET + 1] = {};
  const int fd = ::open(file.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return false;
  const ssize_t size = ::read(fd, header, sizeof header);
  ::close(fd);
  if (size != sizeof header || header[READ_VERSION_OFFSET] != WRITE_AHEAD_LOG) return false;

  struct stat log = {};
  if (lstat((file + "-wal").c_str(), &log) == 0 || errno != ENOENT) return false;
  const std::string folder = file.substr(0, file.rfind('/') + 1);
  return access(folder.c_str(), W_OK) != 0;
}

/// The name under which SQLite opens the file `path` as one that nobody changes.
std::string immutable_name(const std::string& path) {
  const std::unique_ptr<char, void (*)(void*)> resolved(realpath(path.c_str(), nullptr), free);
  std::string name = "file://";
  for (const char* c = resolved ? resolved.get() : ""; *c != '\0'; ++c) {
    if (std::strchr("?#%", *c) == nullptr) {
      name += *c;
    } else {
      constexpr const char* DIGITS = "0123456789ABCDEF";
      name += {'%', DIGITS[*c / 16], DIGITS[*c % 16]};
    }
  }
  return name + "?immutable=1";
}

Database open_for_reading(const std::string& path, const std::string& name,
                          const OpenOptions& options, std::string& error) {
  Database db = connect(name, SQLITE_OPEN_READONLY, options, error);
  if (db && verify(db.get(), error)) return db;
  if (!is_complete_without_log(path)) return nullptr;
  db = connect(immutable_name(path), SQLITE_OPEN_READONLY | SQLITE_OPEN_URI, options, error);
  if (db && verify(db.get(), error)) return db;
  return nullptr;
}

Database open_for_writing(const std::string& name, const OpenOptions& options, std::string& error) {
  const int flags = SQLITE_OPEN_READWRITE | (options.create ? SQLITE_OPEN_CREATE : 0);
  Database db = connect(name, flags, options, error);
  if (!db) return nullptr;
  const bool is_new = options.create && is_blank(db.get());
  if (is_new ? !create_schema(db.get(), error) : !verify(db.get(), error)) return nullptr;
  const bool keeps_journal = !is_new && options.journal == Journal::AS_FOUND;
  if (!keeps_journal && !set_journal(db.get(), options.journal, error)) return nullptr;
  return db;
}

}  // namespace

Database open_database(const std::string& path, const OpenOptions& options, std::string& error) {
  struct stat file = {};
  const bool exists = stat(path.c_str(), &file) == 0;
  if (!exists && (errno != ENOENT || options.read_only || !options.create)) {
    error = std::strerror(errno);
    return nullptr;
  }
  if (exists && !S_ISREG(file.st_mode)) {
    error = "it is no regular file";
    return nullptr;
  }
  // SQLite gives names like ":memory:" and "file:x" a meaning of their own.
  const std::string name = path.starts_with('/') ? path : "./" + path;
  Database db = options.read_only ? open_for_reading(path, name, options, error)
                                  : open_for_writing(name, options, error);
  if (db && options.exclusive && !lock(db.get(), options, error)) db.reset();
  if (!db && !exists) unlink(path.c_str());
  return db;
}

}  // namespace toolkit::trend
