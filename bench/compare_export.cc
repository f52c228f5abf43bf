// Compares `trendtool` with `trendcsv`, and its speed and memory for large databases with those for
// small ones. Prints a table of the results.
//   compare_export PROGRAM_FOLDER DATA_FOLDER
// scripts/bench makes the data.
#include <cstdlib>
#include <string>
#include <utility>

#include "bench/runs.h"

namespace {

std::string programs;
std::string folder;

Command dump(const std::string& db) {
  return {programs + "/trendcsv", "-x", folder + "/" + db, "-d", "bench"};
}

Command run_tool(const std::string& command, const std::string& db, const Command& options = {}) {
  Command all = {programs + "/trendtool", command, "-x", folder + "/" + db, "-d", "bench"};
  all.insert(all.end(), options.begin(), options.end());
  return all;
}

/// Compares the rates of both programs: the less time one takes, the higher is its rate.
void compare_rates(const std::string& what, const std::string& db) {
  for (const auto& [format, least] : {std::pair{"csv", 0.7}, {"jsonl", 0.4}, {"influx", 0.4}}) {
    expect_at_least(what + ": trendcsv / `trendtool export --format " + format + "`", dump(db),
                    run_tool("export", db, {"--format", format}), least, 7);
  }
}

/// Compares the peak memory for 1,000,000 rows with that for 1,000. Fails if it grows.
void compare_memory(const std::string& what, const std::string& command, const Command& options) {
  const long large = run(run_tool(command, "3.db", options)).peak_kib;
  const long small = run(run_tool(command, "small.db", options)).peak_kib;
  print_number("peak memory of " + what + ", 1,000,000 rows / 1,000",
               std::to_string(large) + " KiB", std::to_string(small) + " KiB",
               static_cast<double>(large) / static_cast<double>(small), 1.05);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) return 2;
  programs = argv[1];
  folder = argv[2];
  setenv("TZ", "UTC", 1);

  print_heading();
  compare_rates("100,000 rows of 60 values", "60.db");
  compare_rates("1,000,000 rows of 3 values", "3.db");
  expect_at_most("`trendtool list -d` of 1,000,000 rows / of 1,000", run_tool("list", "3.db"),
                 run_tool("list", "small.db"), 3, 51);
  for (const std::string format : {"csv", "jsonl", "influx"}) {
    compare_memory("`--format " + format + "`", "export", {"--format", format});
  }
  const std::string book = folder + "/export.xlsx";
  compare_memory("`--format xlsx`", "export", {"--format", "xlsx", "-f", book});
  run({"rm", book});
  compare_memory("`trendtool list -d`", "list", {});
}
