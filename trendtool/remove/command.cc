#include "trendtool/remove/command.h"

#include "trendtool/remove/remove.h"

void add_remove_command(CLI::App& app, Action& action) {
  const auto options = std::make_shared<RemoveOptions>();
  CLI::App& command =
      add_command(app, "remove", "Remove a device, all rows of an interval, or one row",
                  "  trendtool remove -x weather.db -d site/weather\n"
                  "  trendtool remove -x weather.db -d site/weather -i 60\n"
                  "  trendtool remove -x weather.db -d site/weather -i 60 --at 2010-11-01T13:00\n",
                  options, run_remove, action);
  add_database_option(command, options->db_path);
  add_device_option(command, options->device)->required();
  CLI::Option* interval =
      command.add_option("-i,--interval", options->minutes, "Only the rows of this interval")
          ->type_name("MINUTES")
          ->check(CLI::PositiveNumber);
  command.add_option("--at", options->time, "Only the row with this time, the end of its interval")
      ->type_name("TIME")
      ->needs(interval);
  add_utc_option(command, options->use_utc);
  command.add_flag("-y,--yes", options->is_sure, "Do not ask");
}
