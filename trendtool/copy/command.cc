#include "trendtool/copy/command.h"

#include "trendtool/copy/copy.h"

void add_copy_command(CLI::App& app, Action& action) {
  const auto options = std::make_shared<CopyOptions>();
  CLI::App& command =
      add_command(app, "copy", "Copy what is new into another database, a file or an archive",
                  "  trendtool copy -x weather.db copy.db\n"
                  "  trendtool copy weather.db postgresql://archive/trends --prefix oslo/\n"
                  "  trendtool copy weather.db copy.db -d site/weather -i 60 -s -30d\n",
                  options, run_copy, action);
  command.add_option("-x,--database", options->from, "The database to copy from")
      ->type_name("FILE");
  command
      .add_option("DATABASES", options->databases,
                  "The database to copy from, without -x, and the one to copy into")
      ->type_name("FROM TO")
      ->expected(1, 2)
      ->required();
  add_devices_option(command, options->devices);
  add_intervals_option(command, options->minutes);
  command.add_option("-s,--start", options->start, "Only rows from this time on")
      ->type_name("TIME");
  command
      .add_option("--prefix", options->prefix,
                  "Put this in front of the paths of devices, for example oslo/")
      ->type_name("TEXT");
  command.add_flag("--all", options->compares_all,
                   "Compare all rows, not only those that are new since the last copy");
  add_utc_option(command, options->use_utc);
}
