// Copying from one database into another.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

/// What to copy.
struct CopyOptions {
  std::string from;                    ///< -x; empty if it is the first of `databases`
  std::vector<std::string> databases;  ///< the arguments; the last one is copied into
  std::vector<std::string> devices;    ///< -d; none for all
  std::vector<std::uint32_t> minutes;  ///< -i; none for all
  std::string start;                   ///< -s; empty for no bound
  std::string prefix;                  ///< --prefix, of devices in the database copied into
  bool compares_all = false;           ///< --all
  bool use_utc = false;                ///< -u
};

/// Copies devices, parameters, series and rows that the other database lacks, and prints a summary.
/// Nothing there is overwritten: what differs is named on standard error. Returns the exit status,
/// which is not 0 if anything could not be copied. SIGINT, SIGTERM and SIGHUP end the program
/// between two transactions.
[[nodiscard]] int run_copy(const CopyOptions& options);
