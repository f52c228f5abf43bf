// Listing the devices of a database, or the parameters and intervals of one.
#pragma once

#include <string>

enum class ListFormat { TABLE, CSV, JSON };

/// The settings of one list.
struct ListOptions {
  std::string db_path;                    ///< -x
  std::string device;                     ///< -d; empty for all devices
  ListFormat format = ListFormat::TABLE;  ///< --format
  bool names_only = false;                ///< --names
  bool use_display_names = false;         ///< -n
  bool use_utc = false;                   ///< -u
  std::string output_path;                ///< -f; empty for standard output
};

/// Writes the list. Returns the exit status, after a message if it is not 0.
[[nodiscard]] int run_list(const ListOptions& options);
