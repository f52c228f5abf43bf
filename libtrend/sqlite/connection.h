// A connection to a database file: how it is opened and set up, whether it is to read or to write.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "libtrend/log.h"

struct sqlite3;

namespace toolkit::trend {

struct DatabaseDeleter {
  void operator()(sqlite3* db) const;
};

/// An open SQLite connection.
using Database = std::unique_ptr<sqlite3, DatabaseDeleter>;

/// Opens the file `name` without reading it yet. `flags` are SQLite's, `vfs` is the name of its way
/// to the file, null for the usual one. False on failure, with the reason in `error`; `db` then
/// still has SQLite's error code, unless it is null because memory ran out.
[[nodiscard]] bool connect(const std::string& name, int flags, const char* vfs, Database& db,
                           std::string& error);

/// Sets a connection up as `options` ask, and so that a database from an untrusted source can do no
/// harm. False on failure, with the reason in `error`.
[[nodiscard]] bool configure(sqlite3* db, const OpenOptions& options, std::string& error);

/// Runs SQL statements whose results are not needed; false on failure.
[[nodiscard]] bool execute(sqlite3* db, const std::string& sql);

/// Reads the one number that `sql` yields; false on failure.
[[nodiscard]] bool read_number(sqlite3* db, const char* sql, std::int64_t& number);

/// Whether this library knows the version of the format; if not, the reason is in `error`.
[[nodiscard]] bool is_known_version(std::int64_t version, std::string& error);

/// Whether `db` holds a trend database of a version that this library knows; if not, the reason is
/// in `error`.
[[nodiscard]] bool verify(sqlite3* db, std::string& error);

/// The absolute path of the database file, without links.
[[nodiscard]] const char* file_name(sqlite3* db);

/// Whether `file` exists, or may exist out of sight.
[[nodiscard]] bool may_exist(const char* file);

/// Gives cached pages back once they take more than a small part of the memory, so that a walk
/// through a long log, which comes back to no page, takes no more than one through a short log.
void trim_cache(sqlite3* db);

}  // namespace toolkit::trend
