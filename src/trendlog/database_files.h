// The files that a trend database consists of.
#pragma once

#include <string>

/// Whether writing to the file at `path` would write to the trend database at `db_path`: to its
/// file, or to one of the three files that SQLite keeps beside it. It does not matter under which
/// name, or through which links, either path leads there, nor whether the files exist.
[[nodiscard]] bool is_database_file(const std::string& path, const std::string& db_path);
