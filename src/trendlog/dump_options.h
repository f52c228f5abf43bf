// Every setting of the command line.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

/// The settings of one run. `parse_args` sets them, and nothing changes them after that. The
/// comment of each field names the option that sets it.
struct DumpOptions {
  std::string db_path;                   ///< -x
  std::string device;                    ///< -d
  std::vector<std::string> params;       ///< -p; sorted, duplicates at the end
  std::vector<unsigned long> intervals;  ///< -i, minutes, 0 for the smallest; sorted as params
  std::string start_text;                ///< -s
  std::string end_text;                  ///< -e
  long start_time = -1;                  ///< from start_text, seconds since the epoch; -1 no bound
  long end_time = -1;                    ///< from end_text, the same
  long max_records = 0;                  ///< -m; 0 no limit
  long offset = 0;                       ///< -o
  std::uint32_t chunk_size = 512;        ///< -c; 0 no chunks
  std::int32_t page_size = 0;            ///< -sp, bytes
  std::int32_t cache_size = 0;           ///< -sc, bytes
  std::int32_t heap_limit = 0;           ///< -sl, bytes
  // Deliberate: nothing reads this. "-J" is accepted, but the log is opened in the same way.
  bool use_wal = true;             ///< -J clears it
  std::string output_path;         ///< -f; empty for standard output
  bool ascending = false;          ///< -a
  bool reverse = false;            ///< -r
  bool display_names = false;      ///< -n
  bool print_header = true;        ///< -nh clears it
  std::string input_time_format;   ///< -t, for strptime
  std::string output_date_format;  ///< -w, for strftime
  std::string output_time_format;  ///< -y, for strftime
  bool use_utc = false;            ///< -u
  bool interval_begin = false;     ///< -b
  bool percent_valid = false;      ///< -pv
};
