#include "trendtool/list/command.h"

#include <map>

#include "trendtool/list/list.h"

void add_list_command(CLI::App& app, Action& action) {
  const auto options = std::make_shared<ListOptions>();
  CLI::App& command = add_command(app, "list", "Show what is in a database",
                                  "  trendtool list -x weather.db\n"
                                  "  trendtool list -x weather.db -d site/weather\n"
                                  "  trendtool list -x weather.db --format json -f weather.json\n"
                                  "  trendtool list -x weather.db -d site/weather --names\n",
                                  options, run_list, action);
  add_database_option(command, options->db_path);
  add_device_option(command, options->device);
  const std::map<std::string, ListFormat> formats = {
      {"table", ListFormat::TABLE}, {"csv", ListFormat::CSV}, {"json", ListFormat::JSON}};
  add_choice_option(command, "--format", options->format, "The format", formats);
  command.add_flag("--names", options->names_only, "Only names, one a line");
  add_display_names_option(command, options->use_display_names);
  add_utc_option(command, options->use_utc);
  add_output_option(command, options->output_path);
}
