// Copying a database.
#pragma once

#include <string>

/// The settings of one backup.
struct BackupOptions {
  std::string db_path;    ///< -x
  std::string copy_path;  ///< where the copy goes
};

/// Copies the database. Returns the exit status, after a message if it is not 0. SIGINT, SIGTERM
/// and SIGHUP end the program without leaving a part of a copy.
[[nodiscard]] int run_backup(const BackupOptions& options);
