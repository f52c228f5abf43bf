// Runs trendcsv and the programs that it is compared with in turn, and prints a table of the
// results.
//   compare TRENDCSV FLOOR DATA_FOLDER
// scripts/bench makes the data.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "bench/runs.h"

namespace {

std::string folder;

/// The number of instructions that a command executes.
double count_instructions(Command command) {
  const std::string messages = folder + "/callgrind.log";
  const Command valgrind = {"valgrind", "--tool=callgrind", "--callgrind-out-file=/dev/null"};
  command.insert(command.begin(), valgrind.begin(), valgrind.end());
  run(command, messages);
  std::ifstream file(messages);
  const std::string text{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  const std::size_t found = text.find("Collected : ");
  return found == std::string::npos ? 0 : std::strtod(text.c_str() + found + 12, nullptr);
}

std::string data(const char* name) { return folder + "/" + name; }

/// The query that prints the same text from a table with one column per value.
std::string wide_query(int values) {
  std::string sql =
      "SELECT strftime('%Y-%m-%d', time, 'unixepoch'), "
      "strftime('%H:%M', time, 'unixepoch')";
  for (int i = 0; i < values; ++i) sql += ", printf('%.6g', v" + std::to_string(i) + ")";
  return sql + " FROM trend ORDER BY time DESC";
}

Command sqlite(const char* db, int values) {
  return {"sqlite3", "-csv", "-header", data(db), wide_query(values)};
}

/// Prints what one parameter of 300 needs: the time without the start of the program, which is that
/// of one row of a small database, and all bytes that are read.
void one_parameter(const Command& one, const Command& all, const Command& start) {
  Result result = run_in_turn(one, all, 15);
  const double start_time = run_in_turn(start, start, 25).first;
  result.first -= start_time;
  result.second -= start_time;
  print_line("one parameter of 300 / all 300, 10,000 rows, without the start of the program",
             result, 1, "at most 0.02", result.first / result.second <= 0.02);
  const double bytes = count_bytes_read(one);
  const auto size = static_cast<double>(std::filesystem::file_size(data("300.db")));
  print_number("bytes read for one parameter of 300 / size of the file",
               std::to_string(static_cast<long>(bytes)), std::to_string(static_cast<long>(size)),
               bytes / size, 0.02);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 4) return 2;
  const std::string trendcsv = argv[1];
  folder = argv[3];
  setenv("TZ", "UTC", 1);
  const auto dump = [&](const char* db, const Command& options = {}) {
    Command command = {trendcsv, "-x", data(db), "-d", "bench"};
    command.insert(command.end(), options.begin(), options.end());
    return command;
  };
  run(dump("60.db", {"-f", data("60.csv")}));
  std::ifstream dumped(data("60.csv"), std::ios::binary | std::ios::ate);
  const Command floor = {argv[2], data("60.db"), std::to_string(dumped.tellg())};
  std::string fetch;
  for (const char* kind : {"MIN", "MAX", "AVERAGE"}) {
    fetch +=
        "rrdtool fetch " + data("60.rrd") + " " + kind + " --start 1869998400 --end 1899999900;";
  }

  print_heading();
  expect_at_least("100,000 rows of 60 values: `sqlite3 -csv` / trendcsv", sqlite("60.wide", 60),
                  dump("60.db"), 15, 7);
  expect_at_least("the same: `rrdtool fetch` of MIN, MAX and AVERAGE / trendcsv",
                  {"sh", "-c", fetch}, dump("60.db"), 13, 5);
  expect_at_least("1,000,000 rows of 3 values: `sqlite3 -csv` / trendcsv", sqlite("3.wide", 3),
                  dump("3.db"), 14, 7);
  expect_at_most("100,000 rows of 60 values: trendcsv / floor", dump("60.db"), floor, 4, 7);
  expect_at_most("`-m 10` on 1,000,000 rows / on 1,000", dump("3.db", {"-m", "10"}),
                 dump("small.db", {"-m", "10"}), 1.5, 51);
  expect_at_most("1,000,000 rows of 3 values / 500,000", dump("3.db"), dump("half.db"), 2.1, 7);
  run(dump("merged.db", {"-nh", "-f", data("merged.csv")}));
  std::ifstream merged(data("merged.csv"), std::ios::binary);
  const auto merged_rows = std::count(std::istreambuf_iterator<char>(merged), {}, '\n');
  expect_at_most("four intervals merged, per row printed / one", dump("merged.db"), dump("3.db"),
                 1.2, 7, 1e6 / static_cast<double>(merged_rows));
  expect_at_most("100,000 rows of 60 values: `-c 16` / default", dump("60.db", {"-c", "16"}),
                 dump("60.db"), 1.3, 7);
  expect_at_most("`-m 10 -o 900000` of 1,000,000 rows / `-m 10`",
                 dump("3.db", {"-m", "10", "-o", "900000"}), dump("3.db", {"-m", "10"}), 2, 51);
  one_parameter(dump("300.db", {"-p", "group0/p7"}), dump("300.db"), dump("small.db", {"-m", "1"}));

  const auto large = static_cast<double>(run(dump("3.db")).peak_kib);
  const auto small = static_cast<double>(run(dump("small.db")).peak_kib);
  std::printf(
      "\nPeak memory: %.0f KiB for 1,000,000 rows, %.0f KiB for 1,000 (target: within 5%%, "
      "under 8192 KiB): %s\n",
      large, small, large <= small * 1.05 && large < 8192 ? "met" : "NOT met");

  // The difference of two sizes excludes the cost of starting a program.
  const double values = 1000 * 60;
  const double ours = count_instructions(dump("60.db", {"-m", "2000"})) -
                      count_instructions(dump("60.db", {"-m", "1000"}));
  const auto limited = [&](const char* limit) {
    Command command = sqlite("60.wide", 60);
    command.back() += std::string(" LIMIT ") + limit;
    return command;
  };
  const double theirs = count_instructions(limited("2000")) - count_instructions(limited("1000"));
  std::printf("Instructions per value, rows of 60: trendcsv %.0f, `sqlite3 -csv` %.0f\n",
              ours / values, theirs / values);
  return 0;
}
