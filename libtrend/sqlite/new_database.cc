#include "libtrend/sqlite/new_database.h"

#include <fcntl.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <memory>
#include <span>
#include <thread>
#include <utility>
#include <vector>

#include "libtrend/sqlite/connection.h"
#include "libtrend/sqlite/statement.h"
#include "libtrend/sqlite/upgrade.h"

namespace toolkit::trend {

namespace {

bool fail_with_database_error(sqlite3* db, std::string& error) {
  error = sqlite3_errmsg(db);
  return false;
}

bool fail_with_system_error(std::string& error) {
  error = std::strerror(errno);
  return false;
}

struct SqliteFreer {
  void operator()(void* memory) const { sqlite3_free(memory); }
};

/// The bytes of a database file.
struct Image {
  std::unique_ptr<unsigned char, SqliteFreer> bytes;
  std::size_t size = 0;
};

/// Makes the bytes of an empty trend database. Returns false on failure.
bool make_image(unsigned page_size, bool traditional_journal, Image& image, std::string& error) {
  Database db;
  const int flags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_MEMORY;
  if (!connect(":memory:", flags, nullptr, db, error)) return false;
  const std::string set_page_size = "PRAGMA page_size = " + std::to_string(page_size) + ";";
  if (!execute(db.get(), set_page_size + "BEGIN")) return fail_with_database_error(db.get(), error);
  if (!create_tables(db.get(), error)) return false;
  if (!execute(db.get(), "COMMIT")) return fail_with_database_error(db.get(), error);
  sqlite3_int64 size = 0;
  image.bytes.reset(sqlite3_serialize(db.get(), "main", &size, 0));
  if (!image.bytes) {
    error = "out of memory";
    return false;
  }
  image.size = static_cast<std::size_t>(size);
  // The versions for writing and for reading in the header: 1 for a rollback journal, 2 for WAL.
  std::memset(image.bytes.get() + 18, traditional_journal ? 1 : 2, 2);
  return true;
}

/// A new file with a temporary name. The destructor removes it.
class AsideFile {
 public:
  /// Creates the file in the folder of `path`. Returns false on failure.
  [[nodiscard]] bool create(const std::string& path) {
    // A file of this name may be left from a program that was killed, or may be in use.
    for (int number = 0; number < 1000; ++number) {
      name_ = path + "-new" + std::to_string(number);
      file_ = open(name_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
      if (file_ >= 0) return true;
      if (errno != EEXIST) break;
    }
    name_.clear();
    return false;
  }

  ~AsideFile() {
    if (file_ >= 0) close(file_);
    if (!name_.empty()) unlink(name_.c_str());
  }
  AsideFile() = default;
  AsideFile(const AsideFile&) = delete;
  AsideFile& operator=(const AsideFile&) = delete;

  /// Writes and syncs the whole content. Returns false on failure.
  [[nodiscard]] bool fill(std::span<const unsigned char> content) {
    while (!content.empty()) {
      const ssize_t written = write(file_, content.data(), content.size());
      if (written < 0 && errno != EINTR) return false;
      if (written > 0) content = content.subspan(static_cast<std::size_t>(written));
    }
    if (fsync(file_) != 0) return false;
    // Close the file before others can lock it: closing it later would release the locks that other
    // connections of this process have on it.
    const int file = std::exchange(file_, -1);
    return close(file) == 0;
  }

  /// Renames the file to `path`, but replaces no other file. Returns false on failure; `errno` is
  /// EEXIST if a file of that name exists.
  [[nodiscard]] bool move_to(const std::string& path) {
    if (renameat2(AT_FDCWD, name_.c_str(), AT_FDCWD, path.c_str(), RENAME_NOREPLACE) == 0) {
      name_.clear();
      return true;
    }
    // Not every file system supports RENAME_NOREPLACE.
    return errno != EEXIST && link(name_.c_str(), path.c_str()) == 0;
  }

 private:
  std::string name_;
  int file_ = -1;
};

/// Syncs the folder of `path`, so that the names in it are on the disk. Returns false on failure.
bool sync_folder(const std::string& path) {
  const int folder = open(path.substr(0, path.rfind('/') + 1).c_str(), O_RDONLY | O_CLOEXEC);
  // If the folder can't be read, or its file system can't sync folders, nothing more can be done.
  if (folder < 0) return true;
  const bool has_failed = fsync(folder) != 0 && errno == EIO;
  close(folder);
  if (has_failed) errno = EIO;
  return !has_failed;
}

/// Returns the absolute path, with links resolved, under which SQLite opens `path`; empty on
/// failure.
std::string resolve(const std::string& path) {
  sqlite3_vfs* vfs = sqlite3_vfs_find(nullptr);
  if (vfs == nullptr) return "";
  std::vector<char> name(static_cast<std::size_t>(vfs->mxPathname) + 1);
  const int status = vfs->xFullPathname(vfs, path.c_str(), vfs->mxPathname, name.data());
  return (status & 0xFF) == SQLITE_OK ? name.data() : "";
}

/// Returns whether `db` certainly has no tables.
bool has_no_tables(sqlite3* db) {
  std::int64_t tables = -1;
  return read_number(db, "SELECT count(*) FROM sqlite_schema", tables) && tables == 0;
}

}  // namespace

bool create_database(const std::string& path, unsigned page_size, bool traditional_journal,
                     std::string& error) {
  Image image;
  if (!make_image(page_size, traditional_journal, image, error)) return false;
  const std::string place = resolve(path);
  if (place.empty()) {
    error = "its path can't be resolved";
    return false;
  }
  std::span<const unsigned char> content(image.bytes.get(), image.size);
  // SQLite would apply a log or journal that another database left here to the new one. Beside an
  // empty file SQLite removes it, so make the file empty. It is filled later.
  if (may_exist((place + "-wal").c_str()) || may_exist((place + "-journal").c_str())) content = {};
  AsideFile file;
  if (!file.create(place) || !file.fill(content) || (!file.move_to(place) && errno != EEXIST) ||
      !sync_folder(place)) {
    return fail_with_system_error(error);
  }
  return true;
}

bool is_blank(sqlite3* db) {
  std::int64_t application = -1;
  std::int64_t version = -1;
  return read_number(db, "PRAGMA application_id", application) && application == 0 &&
         read_number(db, "PRAGMA user_version", version) && version == 0 && has_no_tables(db);
}

bool fill_database(sqlite3* db, bool traditional_journal, unsigned busy_timeout,
                   std::string& error) {
  if (!set_journal(db, traditional_journal, busy_timeout, error)) return false;
  if (!execute(db, "BEGIN IMMEDIATE")) return fail_with_database_error(db, error);
  if (!has_no_tables(db) || create_tables(db, error)) {
    if (execute(db, "COMMIT")) return true;
    error = sqlite3_errmsg(db);
  }
  static_cast<void>(execute(db, "ROLLBACK"));
  return false;
}

bool set_journal(sqlite3* db, bool traditional, unsigned busy_timeout, std::string& error) {
  constexpr std::chrono::milliseconds PAUSE(10);
  const char* wanted = traditional ? "delete" : "wal";
  const std::string sql = std::string("PRAGMA journal_mode = ") + wanted;
  // SQLite does not wait for all locks that are needed here.
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(busy_timeout);
  for (;;) {
    Statement statement(db, sql.c_str());
    std::string mode;
    const bool has_row = statement && statement.step() == Statement::Step::ROW;
    if (has_row && statement.read(0, mode) && mode == wanted) return true;
    error = has_row ? "can't set its journal mode" : sqlite3_errmsg(db);
    if (has_row || (sqlite3_errcode(db) & 0xFF) != SQLITE_BUSY) return false;
    if (std::chrono::steady_clock::now() >= end) return false;
    std::this_thread::sleep_for(PAUSE);
  }
}

}  // namespace toolkit::trend
