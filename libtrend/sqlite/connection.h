// Connections to database files, for reading or writing: what both have in common.
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

/// Opens the file `name` without reading it yet. `flags` are SQLite's. `vfs` is the name of an
/// SQLite VFS, null for the default one. Returns false on failure, with the reason in `error`; `db`
/// then still has SQLite's error code, or is null if memory ran out.
[[nodiscard]] bool connect(const std::string& name, int flags, const char* vfs, Database& db,
                           std::string& error);

/// Applies `options` to a connection, and settings that protect against a manipulated database.
/// Returns false on failure, with the reason in `error`.
[[nodiscard]] bool configure(sqlite3* db, const OpenOptions& options, std::string& error);

/// Sets `error` to SQLite's message about the last call that failed, and returns false.
bool fail_with_database_error(sqlite3* db, std::string& error);

/// Runs SQL statements and ignores their results. Returns false on failure, with the reason in
/// `error`.
[[nodiscard]] bool execute(sqlite3* db, const std::string& sql, std::string& error);

/// Runs `sql`, which returns one number, and reads that number. Returns false on failure.
[[nodiscard]] bool read_number(sqlite3* db, const char* sql, std::int64_t& number);

/// Returns whether this library supports the version of the format. If not, the reason is in
/// `error`.
[[nodiscard]] bool is_known_version(std::int64_t version, std::string& error);

/// Returns whether `db` is a trend database of a version that this library supports, and has only
/// ordinary tables. If not, the reason is in `error`.
[[nodiscard]] bool verify(sqlite3* db, std::string& error);

/// Returns the absolute path of the database file, with symbolic links resolved.
[[nodiscard]] const char* file_name(sqlite3* db);

/// Returns whether `file` exists. Also returns true if that cannot be found out.
[[nodiscard]] bool may_exist(const char* file);

/// Frees the cached pages if they take more than a small amount of memory. A query reads each page
/// only once, so a query of a long log then needs no more memory than one of a short log.
void trim_cache(sqlite3* db);

}  // namespace toolkit::trend
