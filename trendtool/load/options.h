// The settings of a load, and the command line of trendload.
#pragma once

#include <cstdint>
#include <string>

#include "text/time_formats.h"

/// The settings of one load.
struct LoadOptions {
  std::string db_path;                                  ///< -x
  std::string device;                                   ///< -d
  std::uint32_t minutes = 0;                            ///< -i
  std::string time_format = DEFAULT_INPUT_TIME_FORMAT;  ///< -t, for strptime
  bool use_utc = false;                                 ///< -u
  std::string input_path = "-";                         ///< "-" for standard input
  bool wants_help = false;                              ///< -h
  /// What messages start with. Only trendtool reads what `trendtool export` writes.
  const char* program = "trendload";
  bool reads_exports = false;
  bool skip_existing = false;  ///< --skip-existing: pass over rows that are recorded already
  bool dry_run = false;        ///< --dry-run: record nothing
};

/// Reads the command line into `options`. If it is wrong, prints a message on standard error and
/// returns false.
[[nodiscard]] bool parse_load_options(int argc, char** argv, LoadOptions& options);

/// Prints a summary of the options to standard output.
void print_load_usage();
