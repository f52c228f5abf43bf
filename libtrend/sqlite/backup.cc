#include "libtrend/sqlite/backup.h"

#include <sqlite3.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>
#include <vector>

#include "libtrend/sqlite/aside_file.h"
#include "libtrend/sqlite/connection.h"
#include "libtrend/sqlite/reader.h"
#include "libtrend/sqlite/reader_vfs.h"

namespace toolkit::trend {

namespace {

bool fail(const std::string& reason, std::string& error) {
  error = reason;
  return false;
}

constexpr const char* STOPPED = "it was stopped";

/// Ends a copy. SQLite returns the reason of a failure once more, so that is not needed here.
struct BackupFinisher {
  void operator()(sqlite3_backup* backup) const { sqlite3_backup_finish(backup); }
};

/// Copies all pages into the empty file `name`. `progress` counts them twice, as they are read
/// again afterwards.
bool copy_pages(sqlite3* db, const std::string& name, const ReportProgress& progress,
                std::uint64_t& pages, std::string& error) {
  constexpr int PAGES_AT_ONCE = 256;
  Database copy;
  if (!connect(name, SQLITE_OPEN_READWRITE, nullptr, copy, error)) return false;
  // Nobody sees the file before it is complete, so it needs no journal.
  if (!execute(copy.get(), "PRAGMA journal_mode = OFF; PRAGMA cache_size = -512", error)) {
    return false;
  }
  const std::unique_ptr<sqlite3_backup, BackupFinisher> backup(
      sqlite3_backup_init(copy.get(), "main", db, "main"));
  if (!backup) return fail(sqlite3_errmsg(copy.get()), error);
  for (;;) {
    const int status = sqlite3_backup_step(backup.get(), PAGES_AT_ONCE);
    if (status != SQLITE_OK && status != SQLITE_DONE) return fail(sqlite3_errstr(status), error);
    pages = static_cast<std::uint64_t>(sqlite3_backup_pagecount(backup.get()));
    const auto left = static_cast<std::uint64_t>(sqlite3_backup_remaining(backup.get()));
    if (progress && !progress(pages - left, 2 * pages)) return fail(STOPPED, error);
    if (status == SQLITE_DONE) return true;
  }
}

/// Checks the copy of a database of so many pages.
bool check_copy(const std::string& name, std::uint64_t pages, const ReportProgress& progress,
                std::string& error) {
  const std::unique_ptr<SqliteReader> reader = SqliteReader::open(name, {}, error);
  if (!reader) return fail("the copy can't be read: " + error, error);
  const ReportProgress check_progress = [&](std::uint64_t rows, std::uint64_t total) {
    const auto share = total == 0 ? 0 : static_cast<double>(rows) / static_cast<double>(total);
    const auto done = static_cast<std::uint64_t>(share * static_cast<double>(pages));
    return !progress || progress(pages + std::min(done, pages), 2 * pages);
  };
  std::vector<CDamage> damage;
  const bool is_checked = reader->run([&] {
    damage.clear();
    return reader->check(damage, check_progress);
  });
  if (!is_checked) return fail(reader->error(), error);
  if (damage.empty()) return true;
  return fail("the database is damaged: " + damage.front().text, error);
}

}  // namespace

bool back_up(sqlite3* db, const std::string& path, const ReportProgress& progress,
             std::string& error) {
  const std::string place = resolve(path);
  if (place.empty()) return fail("its path can't be resolved", error);
  // SQLite would apply a log or journal that another database left there to the copy.
  for (const char* suffix : {"", "-wal", "-journal"}) {
    const std::string name = place + suffix;
    if (may_exist(name.c_str())) return fail("there is a file " + name + " already", error);
  }
  AsideFile file;
  if (!file.create(place) || !file.fill({})) return fail_with_system_error(error);
  std::uint64_t pages = 0;
  if (!copy_pages(db, file.name(), progress, pages, error) ||
      !check_copy(file.name(), pages, progress, error)) {
    return false;
  }
  // A copy that may be wrong is made again.
  if (is_outdated(db)) return fail("the database was switched to another journal mode", error);
  if (!file.move_to(place)) return fail_with_system_error(error);
  if (sync_folder(place)) return true;
  // Whether the name is on the disk is not known, so it must not look like a copy that was made.
  error = std::strerror(errno);
  unlink(place.c_str());
  return false;
}

}  // namespace toolkit::trend
