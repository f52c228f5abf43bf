// Checking a whole database.
#pragma once

#include <string>

/// The settings of one check.
struct CheckOptions {
  std::string db_path;   ///< -x
  bool use_utc = false;  ///< -u
};

/// Prints one line for each part of the database that is damaged, and nothing if there is none.
/// Returns the exit status: FAILURE if there is damage, or if the database can't be checked.
[[nodiscard]] int run_check(const CheckOptions& options);
