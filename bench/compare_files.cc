// Compares the size of files, reading from a cold cache, loading and recording with other programs,
// and prints a table of the results.
//   compare_files PROGRAM_FOLDER DATA_FOLDER
// scripts/bench makes the data.
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "bench/runs.h"

namespace {

std::string programs;
std::string folder;

std::string data(const std::string& name) { return folder + "/" + name; }

Command dump(const std::string& db, const Command& options = {}) {
  Command command = {programs + "/trendcsv", "-x", data(db), "-d", "bench"};
  command.insert(command.end(), options.begin(), options.end());
  return command;
}

void compare_sizes(const std::string& what, const std::string& name, double most) {
  const auto first = static_cast<double>(std::filesystem::file_size(data(name + ".db")));
  const auto second = static_cast<double>(std::filesystem::file_size(data(name + ".v1")));
  print_number("file size, " + what + ": version 2 / version 1",
               std::to_string(static_cast<long>(first)), std::to_string(static_cast<long>(second)),
               first / second, most);
}

/// Empties the page cache. Fails if the user is not root.
bool drop_caches() {
  sync();
  std::ofstream file("/proc/sys/vm/drop_caches");
  file << "3" << std::flush;
  return file.good();
}

/// Returns the median of dumps of which each finds nothing of its file in the page cache. The
/// program itself is in the cache: another dump has just run it.
double time_cold(const Command& command) {
  std::vector<double> times;
  for (int i = 0; i < 5; ++i) {
    drop_caches();
    run(dump("small.db"));
    times.push_back(run(command).seconds);
  }
  return median(times);
}

void compare_cold(const std::string& what, const std::string& db) {
  for (const bool is_oldest_first : {false, true}) {
    const Command command = is_oldest_first ? dump(db, {"-a"}) : dump(db);
    Result result;
    result.first = time_cold(command);
    result.second = run_in_turn(command, command, 5).second;
    print_line(what + (is_oldest_first ? ", oldest" : ", newest") + " first: cold cache / warm",
               result, 1, "at most 1.5", result.first / result.second <= 1.5);
  }
}

/// Compares how fast a file of so many values in each row is loaded.
void compare_loading(const std::string& what, const std::string& db, int values, double most) {
  const std::string csv = data("load.csv");
  run(dump(db, {"-u", "-a", "-f", csv}));
  std::string columns = "date TEXT, time TEXT";
  for (int i = 0; i < values; ++i) columns += ", v" + std::to_string(i) + " REAL";
  const std::string theirs = data("load-theirs.db");
  const std::string ours = data("load-ours.db");
  const std::string remove = "rm -f " + theirs + "* " + ours + "*; ";
  const std::string import = "sqlite3 " + theirs + " 'CREATE TABLE trend (" + columns +
                             ")' '.mode csv' '.import --skip 1 " + csv + " trend'";
  const std::string load = programs + "/trendload -x " + ours + " -d bench -i 5 -u " + csv;
  expect_at_most("loading " + what + ": `trendload` / `sqlite3 .import`",
                 {"sh", "-c", remove + load}, {"sh", "-c", remove + import}, most, 5);
  run({"sh", "-c", remove + "rm " + csv});
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) return 2;
  programs = argv[1];
  folder = argv[2];
  setenv("TZ", "UTC", 1);

  print_heading();
  compare_sizes("values with one decimal, averages of any digits", "sensor", 0.55);
  compare_sizes("values with one decimal", "decimal", 0.3);
  compare_loading("1,000,000 rows of 3 values", "3.db", 3, 0.4);
  compare_loading("100,000 rows of 60 values", "60.db", 60, 0.45);
  if (drop_caches()) {
    compare_cold("100,000 rows of 60 values", "60.db");
    compare_cold("1,000,000 rows of 3 values", "3.db");
    compare_cold("10,000 rows of 900 values", "300.db");
  } else {
    std::puts("\nNot measured: a cold cache, because only root can empty the cache");
  }
}
