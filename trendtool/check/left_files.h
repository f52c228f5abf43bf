// Files of SQLite that stay next to a database if a program dies.
#pragma once

#include <string>
#include <vector>

/// Returns the paths of the `-wal`, `-shm` and `-journal` files next to the database at `db_path`,
/// if no other program has the database open. To be called while this process does not have it
/// open: it would lose its locks.
[[nodiscard]] std::vector<std::string> find_left_files(const std::string& db_path);
