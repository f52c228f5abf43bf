#include "trendtool/purge/command.h"

#include "trendtool/purge/purge.h"

void add_purge_command(CLI::App& app, Action& action) {
  const auto options = std::make_shared<PurgeOptions>();
  CLI::App& command =
      add_command(app, "purge", "Remove the rows of an interval before a time",
                  "  trendtool purge -x weather.db -d site/weather -i 5 --before -365d\n"
                  "  trendtool purge -x weather.db -d site/weather -i 60 --before 2010-01-01\n",
                  options, run_purge, action);
  add_database_option(command, options->db_path);
  add_device_option(command, options->device)->required();
  command.add_option("-i,--interval", options->minutes, "The interval of the rows")
      ->type_name("MINUTES")
      ->check(CLI::PositiveNumber)
      ->required();
  command.add_option("--before", options->before, "Rows with this time and later ones stay")
      ->type_name("TIME")
      ->required();
  add_utc_option(command, options->use_utc);
}
