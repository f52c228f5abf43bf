// Files that are, or look like, trend databases, made without the library under test.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

/// The tables of a trend database as SQL, but not STRICT, so that columns accept wrong types.
extern const char* const LOOSE_SCHEMA;

/// The marks that make a database a trend database.
extern const char* const IDENTITY;

/// One device, "/plant", with one parameter, "a", which has an actual value, and one series of one
/// minute with the id 1.
extern const char* const CATALOGUE;

/// Runs `sql` on the SQLite database at `path`, which is created if it does not exist. Throws on
/// failure. Calls `look` before the connection ends.
void run_sql(const std::string& path, const std::string& sql,
             const std::function<void()>& look = {});

/// The SQL that records the row of minute `minute` in the series, with `minute` as its value.
[[nodiscard]] std::string insert_row(std::int64_t minute);

/// The names of the files in a folder, in order.
[[nodiscard]] std::vector<std::string> list_folder(const std::string& path);
