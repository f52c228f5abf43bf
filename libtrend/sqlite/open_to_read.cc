#include "libtrend/sqlite/open_to_read.h"

#include <sqlite3.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <thread>

#include "libtrend/sqlite/file_header.h"
#include "libtrend/sqlite/reader_vfs.h"

namespace toolkit::trend {

namespace {

using std::chrono::milliseconds;

/// Returns whether there is a log or journal that is not empty, as while a writer works. Readers of
/// other programs can leave empty ones.
bool has_journal(sqlite3* db) {
  for (const char* file :
       {sqlite3_filename_wal(file_name(db)), sqlite3_filename_journal(file_name(db))}) {
    struct stat status = {};
    if (stat(file, &status) == 0 ? status.st_size > 0 : errno != ENOENT) return true;
  }
  return false;
}

/// Returns whether the file is not a trend database, or is incomplete. SQLite does not notice an
/// incomplete last page.
bool is_unsound(sqlite3* db) {
  // A writer may be changing the file right now, so look twice.
  for (int look = 0; look < 2; ++look) {
    const bool is_written = has_journal(db);
    const FileHeader header = FileHeader::read(db);
    if (is_written ? header.has_whole_pages() : header.is_sound()) return false;
  }
  return true;
}

/// Takes the lock of a connection in exclusive locking mode. The connection keeps the lock.
bool lock_to_read(sqlite3* db, std::string& error) {
  if (FileHeader::read(db).asks_for_write_ahead_log()) {
    error = "a reader can't lock a database in WAL mode exclusively";
    return false;
  }
  return execute(db, "BEGIN; SELECT 1 FROM sqlite_schema; COMMIT", error);
}

/// Lets SQLite read a file that is shorter than it should be, or whose list of tables is damaged.
/// SQLite ties that to the permission to change that list, which means nothing to a reader.
void tolerate_damage(sqlite3* db) {
  sqlite3_db_config(db, SQLITE_DBCONFIG_DEFENSIVE, 0, nullptr);
  sqlite3_db_config(db, SQLITE_DBCONFIG_WRITABLE_SCHEMA, 1, nullptr);
}

/// Returns whether a connection can be used with `options`. If not, the reason is in `error`.
bool is_good(sqlite3* db, const OpenOptions& options, bool may_be_damaged, std::string& error) {
  if (!may_be_damaged && is_unsound(db)) {
    error = "it is not a complete trend database";
    return false;
  }
  const bool is_configured = configure(db, options, error);
  if (may_be_damaged) tolerate_damage(db);
  if (is_configured && verify(db, error) && (!options.exclusive || lock_to_read(db, error)))
    return true;
  if (const char* refusal = reader_vfs_refusal(db)) error = refusal;
  return false;
}

/// Returns for how long to repeat an attempt to open a database that ended with `db`.
milliseconds patience(sqlite3* db, const OpenOptions& options) {
  // A writer needs much less time to start, or to change the journal mode.
  constexpr milliseconds MOMENT(500);
  const milliseconds longest = std::chrono::seconds(options.busy_timeout);
  if ((sqlite3_errcode(db) & 0xFF) == SQLITE_BUSY) return longest;
  const bool may_help = is_outdated(db) || reader_vfs_refusal(db) != nullptr;
  return may_help ? std::min(MOMENT, longest) : milliseconds(0);
}

}  // namespace

Database open_to_read(const std::string& name, const OpenOptions& options, bool may_be_damaged,
                      std::string& error) {
  constexpr milliseconds PAUSE(10);
  const char* vfs = reader_vfs();
  if (vfs == nullptr) {
    error = "SQLite can't be started";
    return nullptr;
  }
  const auto start = std::chrono::steady_clock::now();
  for (;;) {
    Database db;
    if (connect(name, SQLITE_OPEN_READONLY, vfs, db, error) &&
        is_good(db.get(), options, may_be_damaged, error)) {
      return db;
    }
    if (std::chrono::steady_clock::now() - start >= patience(db.get(), options)) return nullptr;
    db.reset();
    std::this_thread::sleep_for(PAUSE);
  }
}

}  // namespace toolkit::trend
