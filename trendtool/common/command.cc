#include "trendtool/common/command.h"

void add_database_option(CLI::App& command, std::string& path) {
  command.add_option("-x,--database", path, "The trend database")->type_name("FILE")->required();
}

CLI::Option* add_device_option(CLI::App& command, std::string& device) {
  return command.add_option("-d,--device", device, "The device")->type_name("PATH");
}

CLI::Option* add_devices_option(CLI::App& command, std::vector<std::string>& devices) {
  // Without this, an option takes all arguments up to the next option, and reads [a,b] as a list.
  return command.add_option("-d,--device", devices, "A device; may be repeated")
      ->type_name("PATH")
      ->allow_extra_args(false);
}

void add_params_option(CLI::App& command, std::vector<std::string>& params) {
  command.add_option("-p,--parameter", params, "Only this parameter; may be repeated")
      ->type_name("PATH")
      ->allow_extra_args(false);
}

void add_intervals_option(CLI::App& command, std::vector<std::uint32_t>& minutes) {
  command
      .add_option("-i,--interval", minutes,
                  "Only rows of this interval; 0 is the shortest; may be repeated")
      ->type_name("MINUTES")
      ->allow_extra_args(false);
}

void add_range_options(CLI::App& command, std::string& start, std::string& end) {
  command.add_option("-s,--start", start, "Only rows from this time on, for example 2010-11-01")
      ->type_name("TIME");
  command.add_option("-e,--end", end, "Only rows up to this time, for example -7d or now")
      ->type_name("TIME");
}

void add_limit_option(CLI::App& command, std::uint64_t& rows) {
  command.add_option("-m,--limit", rows, "At most this many rows")
      ->type_name("ROWS")
      ->check(CLI::PositiveNumber);
}

void add_utc_option(CLI::App& command, bool& use_utc) {
  command.add_flag("-u,--utc", use_utc, "All times are in UTC instead of local time");
}

void add_display_names_option(CLI::App& command, bool& use_display_names) {
  command.add_flag("-n,--display-names", use_display_names, "Show parameters by display name");
}

CLI::Option* add_output_option(CLI::App& command, std::string& path) {
  return command.add_option("-f,--file", path, "Write to this file instead of standard output")
      ->type_name("FILE");
}
