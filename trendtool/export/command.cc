#include "trendtool/export/command.h"

#include "trendtool/export/export.h"

namespace {

const std::map<std::string, char> SEPARATORS = {{",", ','},    {";", ';'},   {"|", '|'},
                                                {"tab", '\t'}, {"\t", '\t'}, {"\\t", '\t'}};

/// Adds an option whose value is one of `characters`, which `--help` shows as `shown`.
void add_character_option(CLI::App& command, const std::string& name, char& character,
                          const std::string& text, const std::map<std::string, char>& characters,
                          const std::string& shown) {
  const auto check = [characters, shown](const std::string& word) -> std::string {
    return characters.count(word) > 0 ? "" : "'" + word + "' is not one of " + shown;
  };
  const auto set = [characters, &character](const std::string& word) {
    character = characters.at(word);
  };
  command.add_option_function<std::string>(name, set, text + ": " + shown)
      ->type_name("CHARACTER")
      ->check(CLI::Validator(check, ""));
}

void add_format_options(CLI::App& command, ExportOptions& options) {
  add_choice_option<ExportFormat>(command, "--format", options.format, "The format",
                                  {{"csv", ExportFormat::CSV},
                                   {"jsonl", ExportFormat::JSONL},
                                   {"xlsx", ExportFormat::XLSX},
                                   {"influx", ExportFormat::INFLUX}});
  add_choice_option<bool>(command, "--layout", options.is_long,
                          "CSV with a column for each value of a row, or a line for each",
                          {{"wide", false}, {"long", true}});
  add_character_option(command, "--separator", options.separator, "What separates fields of CSV",
                       SEPARATORS, "',', ';', '|', tab");
  add_character_option(command, "--decimal", options.decimal, "The decimal sign of CSV",
                       {{".", '.'}, {",", ','}}, "'.', ','");
  command.add_flag("--epoch", options.use_epoch, "Times in seconds since 1970 in UTC");
  command.add_flag("--exact", options.exact, "As many digits as the value needs, instead of six");
  command.add_flag("--percent-valid", options.with_validity,
                   "Also how much of each interval has valid data");
  command.add_flag("--sheet-per-interval", options.sheet_per_interval,
                   "In xlsx, a sheet for each interval");
}

}  // namespace

void add_export_command(CLI::App& app, Action& action) {
  const auto options = std::make_shared<ExportOptions>();
  CLI::App& command = add_command(
      app, "export", "Write rows for other programs",
      "  trendtool export -x weather.db -d site/weather -f weather.csv\n"
      "  trendtool export -x weather.db -d site/weather --decimal , -f for-a-german-calc.csv\n"
      "  trendtool export -x weather.db --all-devices --format jsonl --exact -s -7d\n"
      "  trendtool export -x weather.db -d site/weather --format xlsx -f weather.xlsx\n",
      options, run_export, action);
  add_database_option(command, options->db_path);
  add_devices_option(command, options->devices);
  command.add_flag("--all-devices", options->all_devices, "All devices of the database");
  add_params_option(command, options->params);
  add_intervals_option(command, options->intervals);
  add_range_options(command, options->start, options->end);
  add_limit_option(command, options->limit);
  command.add_flag("-a,--ascending", options->ascending, "The oldest rows first");
  add_utc_option(command, options->use_utc);
  add_display_names_option(command, options->use_display_names);
  add_output_option(command, options->output_path);
  command.add_flag("--skip-damaged", options->skip_damaged,
                   "Leave out rows that can't be read, and say which");
  add_format_options(command, *options);
}
