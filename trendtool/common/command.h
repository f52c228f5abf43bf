// What every subcommand of trendtool does with the command line: its options, and its action.
//
// A subcommand `name` has a function `add_name_command(CLI::App& app, Action& action)` in
// trendtool/name/command.h, which run.cc calls. It adds the subcommand to `app`. If the user
// chooses the subcommand, it sets `action` to what is to be done.
#pragma once

#include <CLI/CLI.hpp>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

/// Does the work of the chosen subcommand, after the whole command line was read. Returns the exit
/// status.
using Action = std::function<int()>;

/// Adds a subcommand. `summary` is one line for --help, `examples` are lines that can be typed. If
/// the user chooses the subcommand, `action` calls `run` with `options`.
template <typename Options>
CLI::App& add_command(CLI::App& app, const std::string& name, const std::string& summary,
                      const std::string& examples, const std::shared_ptr<Options>& options,
                      int (*run)(const Options&), Action& action) {
  CLI::App* command = app.add_subcommand(name, summary);
  command->footer("Examples:\n" + examples);
  command->callback([options, run, &action] { action = [options, run] { return run(*options); }; });
  return *command;
}

// The options that several subcommands have. Each of these functions adds one option, or a few that
// belong together, to `command`. What the user gives is put into the last arguments, which must
// live as long as `command`.

/// -x, --database: the trend database, which the user must give.
void add_database_option(CLI::App& command, std::string& path);
/// -d, --device: one device.
CLI::Option* add_device_option(CLI::App& command, std::string& device);
/// -d, --device: any number of devices.
CLI::Option* add_devices_option(CLI::App& command, std::vector<std::string>& devices);
/// -p, --parameter: any number of parameters.
void add_params_option(CLI::App& command, std::vector<std::string>& params);
/// -i, --interval: any number of intervals in minutes; 0 stands for the shortest one.
void add_intervals_option(CLI::App& command, std::vector<std::uint32_t>& minutes);
/// -s, --start and -e, --end: times for `read_range` of times.h.
void add_range_options(CLI::App& command, std::string& start, std::string& end);
/// -m, --limit: a number of rows, at least 1. `rows` keeps its value without the option.
void add_limit_option(CLI::App& command, std::uint64_t& rows);
/// -u, --utc.
void add_utc_option(CLI::App& command, bool& use_utc);
/// -n, --display-names.
void add_display_names_option(CLI::App& command, bool& use_display_names);
/// -f, --file: where the result goes; an empty path stands for standard output.
CLI::Option* add_output_option(CLI::App& command, std::string& path);

/// Adds an option whose value is one of the words of `choices`.
template <typename Choice>
void add_choice_option(CLI::App& command, const std::string& name, Choice& choice,
                       const std::string& text, const std::map<std::string, Choice>& choices) {
  std::string words;
  for (const auto& [word, value] : choices) words += (words.empty() ? "" : ", ") + word;
  const auto check = [choices, words](const std::string& word) -> std::string {
    return choices.count(word) > 0 ? "" : "'" + word + "' is not one of " + words;
  };
  const auto set = [choices, &choice](const std::string& word) { choice = choices.at(word); };
  command.add_option_function<std::string>(name, set, text + ": " + words)
      ->type_name("WORD")
      ->check(CLI::Validator(check, ""));
}
