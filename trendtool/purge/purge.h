// Removing old rows.
#pragma once

#include <cstdint>
#include <string>

/// What to remove.
struct PurgeOptions {
  std::string db_path;        ///< -x
  std::string device;         ///< -d
  std::uint32_t minutes = 0;  ///< -i
  std::string before;         ///< --before
  bool use_utc = false;       ///< -u
};

/// Removes the rows, and prints how many there were. Returns the exit status, after a message if it
/// is not 0.
[[nodiscard]] int run_purge(const PurgeOptions& options);
