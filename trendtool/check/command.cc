#include "trendtool/check/command.h"

#include "trendtool/check/check.h"

void add_check_command(CLI::App& app, Action& action) {
  const auto options = std::make_shared<CheckOptions>();
  CLI::App& command = add_command(app, "check", "Find out whether a database can be trusted",
                                  "  trendtool check -x weather.db\n"
                                  "  trendtool check -x weather.db -u > damage.txt\n",
                                  options, run_check, action);
  add_database_option(command, options->db_path);
  add_utc_option(command, options->use_utc);
}
