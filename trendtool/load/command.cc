#include "trendtool/load/command.h"

#include "trendtool/load/loader.h"

void add_load_command(CLI::App& app, Action& action) {
  const auto options = std::make_shared<LoadOptions>();
  options->program = "trendtool";
  options->reads_exports = true;
  CLI::App& command =
      add_command(app, "load", "Record CSV that trendcsv or trendtool export wrote",
                  "  trendtool load -x weather.db -d site/weather -i 60 -u rows.csv\n"
                  "  trendtool load -x weather.db -d site/weather exported.csv\n"
                  "  trendtool load -x weather.db --skip-existing --dry-run all-devices.csv\n",
                  options, run_load, action);
  add_database_option(command, options->db_path);
  add_device_option(command, options->device);
  command
      .add_option("-i,--interval", options->minutes,
                  "The interval of the rows, if the file does not have it")
      ->type_name("MINUTES")
      ->check(CLI::PositiveNumber);
  command
      .add_option("-t,--time-format", options->time_format,
                  "The strptime format of date and time of trendcsv, joined by a blank")
      ->type_name("FORMAT");
  add_utc_option(command, options->use_utc);
  command.add_flag("--skip-existing", options->skip_existing,
                   "Pass over rows that are recorded with the same values");
  command.add_flag("--dry-run", options->dry_run, "Record nothing; say whether it would work");
  command.add_option("FILE", options->input_path,
                     "The CSV; standard input if it is missing or '-'");
}
