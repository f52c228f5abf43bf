// Removing a device, a series or a row.
#pragma once

#include <cstdint>
#include <string>

/// What to remove.
struct RemoveOptions {
  std::string db_path;        ///< -x
  std::string device;         ///< -d
  std::uint32_t minutes = 0;  ///< -i; 0 for the whole device
  std::string time;           ///< --at; empty for all rows of the interval
  bool use_utc = false;       ///< -u
  bool is_sure = false;       ///< --yes
};

/// Removes it, after a question to the user. Returns the exit status, after a message if it is not
/// 0.
[[nodiscard]] int run_remove(const RemoveOptions& options);
