// The settings of an export.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

enum class ExportFormat { CSV, JSONL, XLSX, INFLUX };

struct ExportOptions {
  std::string db_path;                   ///< -x
  std::vector<std::string> devices;      ///< -d
  bool all_devices = false;              ///< --all-devices
  std::vector<std::string> params;       ///< -p
  std::vector<std::uint32_t> intervals;  ///< -i
  std::string start;                     ///< -s
  std::string end;                       ///< -e
  std::uint64_t limit = 0;               ///< -m, rows of each device; 0 for all of them
  bool ascending = false;                ///< -a
  bool use_utc = false;                  ///< -u
  bool use_display_names = false;        ///< -n
  bool skip_damaged = false;             ///< --skip-damaged: leave out rows that can't be read
  std::string output_path;               ///< -f; empty for standard output
  ExportFormat format = ExportFormat::CSV;
  bool is_long = false;             ///< --layout long: a line for each value
  bool with_validity = false;       ///< --percent-valid
  bool use_epoch = false;           ///< --epoch: times in seconds since the epoch
  bool exact = false;               ///< --exact
  char separator = 0;               ///< --separator, of CSV; 0 if it was not given
  char decimal = '.';               ///< --decimal, of CSV
  bool sheet_per_interval = false;  ///< --sheet-per-interval, of xlsx
};
