// Opening a trend database: who may, what is refused, and what a new one holds.
#pragma once

#include <memory>
#include <string>

struct sqlite3;

namespace toolkit::trend {

struct DatabaseDeleter {
  void operator()(sqlite3* db) const;
};

/// An open SQLite connection.
using Database = std::unique_ptr<sqlite3, DatabaseDeleter>;

/// How a writer secures its transactions. A new database is in WAL mode where this is AS_FOUND.
enum class Journal { AS_FOUND, WRITE_AHEAD, ROLLBACK };

/// What `CLog::open` says of its arguments holds for these.
struct OpenOptions {
  bool read_only = true;
  bool create = false;
  unsigned busy_timeout = 40;
  bool exclusive = false;
  unsigned page_size = 0;
  unsigned cache_size = 0;
  unsigned heap_limit = 0;
  Journal journal = Journal::AS_FOUND;
};

/// Opens the trend database at `path`. Returns null on failure, with the reason in `error`; no
/// file was created or changed then.
[[nodiscard]] Database open_database(const std::string& path, const OpenOptions& options,
                                     std::string& error);

/// Gives cached pages back once they take more than a small part of the memory, so that a walk
/// through a long log, which comes back to no page, takes no more than one through a short log.
void trim_cache(sqlite3* db);

}  // namespace toolkit::trend
