#include "trendtool/backup/command.h"

#include "trendtool/backup/backup.h"

void add_backup_command(CLI::App& app, Action& action) {
  const auto options = std::make_shared<BackupOptions>();
  CLI::App& command = add_command(app, "backup", "Copy a database, also while it is recorded",
                                  "  trendtool backup -x weather.db weather-copy.db\n", options,
                                  run_backup, action);
  add_database_option(command, options->db_path);
  command.add_option("FILE", options->copy_path, "The copy; there must be no such file")
      ->required();
}
