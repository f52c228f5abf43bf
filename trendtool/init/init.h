// Making a new database.
#pragma once

#include <string>

#include "libtrend/archive.h"

/// What to make.
struct InitOptions {
  static constexpr unsigned MAX_PARTITIONS = 1024;
  static constexpr unsigned MAX_MONTHS = 1200;

  std::string db_path;                     ///< -x, or the argument
  toolkit::trend::ArchiveOptions archive;  ///< --partitions and --retention
};

/// Makes the database. Returns the exit status, after a message if it is not 0.
[[nodiscard]] int run_init(const InitOptions& options);
