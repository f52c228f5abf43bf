#include "libtrend/sqlite/new_database.h"

#include <sqlite3.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <memory>
#include <span>
#include <thread>

#include "libtrend/sqlite/aside_file.h"
#include "libtrend/sqlite/connection.h"
#include "libtrend/sqlite/statement.h"
#include "libtrend/sqlite/upgrade.h"

namespace toolkit::trend {

namespace {

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
  if (!execute(db.get(), set_page_size + "BEGIN", error)) return false;
  if (!create_tables(db.get(), error)) return false;
  if (!execute(db.get(), "COMMIT", error)) return false;
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
  if (!execute(db, "BEGIN IMMEDIATE", error)) return false;
  if ((!has_no_tables(db) || create_tables(db, error)) && execute(db, "COMMIT", error)) return true;
  std::string ignored;
  static_cast<void>(execute(db, "ROLLBACK", ignored));
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
