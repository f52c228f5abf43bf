#include "trendtool/init/command.h"

#include "trendtool/init/init.h"

void add_init_command(CLI::App& app, Action& action) {
  const auto options = std::make_shared<InitOptions>();
  CLI::App& command =
      add_command(app, "init", "Make a new, empty database, a file or an archive",
                  "  trendtool init -x weather.db\n"
                  "  trendtool init postgresql://archive/trends --partitions 8 --retention 24\n",
                  options, run_init, action);
  command.add_option("-x,--database,DATABASE", options->db_path, "The new database")
      ->type_name("FILE")
      ->required();
  command
      .add_option("--partitions", options->archive.partitions,
                  "Divide the rows of an archive into so many parts, by their series")
      ->type_name("N")
      ->check(CLI::Range(1U, InitOptions::MAX_PARTITIONS));
  command
      .add_option("--retention", options->archive.retention_months,
                  "Note in an archive that its rows are to be kept for so many months")
      ->type_name("MONTHS")
      ->check(CLI::Range(1U, InitOptions::MAX_MONTHS));
}
