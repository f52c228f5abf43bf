// Runs trendcsv and the programs that it is compared with in turn, and prints a table of the
// results.
//   compare TRENDCSV FLOOR DATA_FOLDER
// scripts/bench makes the data.
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace {

using Command = std::vector<std::string>;

struct Run {
  double seconds = 0;
  long peak_kib = 0;
};

std::string folder;

/// Runs a command and discards its output. Its messages go to `messages`.
Run run(const Command& command, const std::string& messages = "/dev/null") {
  std::vector<char*> arguments;
  for (const std::string& argument : command) {
    arguments.push_back(const_cast<char*>(argument.c_str()));
  }
  arguments.push_back(nullptr);
  const auto start = std::chrono::steady_clock::now();
  const pid_t child = fork();
  if (child == 0) {
    dup2(open("/dev/null", O_WRONLY), STDOUT_FILENO);
    dup2(open(messages.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600), STDERR_FILENO);
    execvp(arguments[0], arguments.data());
    _exit(127);
  }
  int status = 0;
  rusage usage = {};
  wait4(child, &status, 0, &usage);
  const std::chrono::duration<double> spent = std::chrono::steady_clock::now() - start;
  // A dump that reached the end of the data returns 1.
  if (!WIFEXITED(status) || WEXITSTATUS(status) > 1) {
    std::fprintf(stderr, "compare: '%s' failed\n", command.front().c_str());
    std::exit(1);
  }
  return {spent.count(), usage.ru_maxrss};
}

double median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  return values[values.size() / 2];
}

struct Result {
  double first = 0;   ///< seconds, the median
  double second = 0;  ///< likewise
  long first_peak = 0;
  long second_peak = 0;
};

/// Runs two commands in turn, `repeats` times each.
Result run_in_turn(const Command& first, const Command& second, int repeats) {
  std::vector<double> first_times;
  std::vector<double> second_times;
  Result result;
  for (int i = 0; i < repeats; ++i) {
    const Run a = run(first);
    const Run b = run(second);
    first_times.push_back(a.seconds);
    second_times.push_back(b.seconds);
    result.first_peak = std::max(result.first_peak, a.peak_kib);
    result.second_peak = std::max(result.second_peak, b.peak_kib);
  }
  result.first = median(first_times);
  result.second = median(second_times);
  return result;
}

/// Prints a line of the table. `scale` multiplies the ratio, for runs with different numbers of
/// rows.
void print_line(const char* what, const Result& result, double scale, const char* target,
                bool is_met) {
  std::printf("| %s | %.1f ms | %.1f ms | %.2f | %s | %s | %ld / %ld KiB |\n", what,
              1000 * result.first, 1000 * result.second, scale * result.first / result.second,
              target, is_met ? "yes" : "NO", result.first_peak, result.second_peak);
  std::fflush(stdout);
}

void expect_at_least(const char* what, const Command& first, const Command& second, double least,
                     int repeats) {
  const Result result = run_in_turn(first, second, repeats);
  const std::string target = "at least " + std::to_string(static_cast<int>(least));
  print_line(what, result, 1, target.c_str(), result.first / result.second >= least);
}

void expect_at_most(const char* what, const Command& first, const Command& second, double most,
                    int repeats, double scale = 1) {
  const Result result = run_in_turn(first, second, repeats);
  char target[32];
  std::snprintf(target, sizeof target, "at most %.1f", most);
  print_line(what, result, scale, target, scale * result.first / result.second <= most);
}

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

  std::puts("| what | first | second | ratio | target | met | peak memory |");
  std::puts("|---|---|---|---|---|---|---|");
  expect_at_least("100,000 rows of 60 values: `sqlite3 -csv` / trendcsv", sqlite("60.wide", 60),
                  dump("60.db"), 12, 7);
  expect_at_least("the same: `rrdtool fetch` of MIN, MAX and AVERAGE / trendcsv",
                  {"sh", "-c", fetch}, dump("60.db"), 10, 5);
  expect_at_least("1,000,000 rows of 3 values: `sqlite3 -csv` / trendcsv", sqlite("3.wide", 3),
                  dump("3.db"), 7, 7);
  expect_at_most("100,000 rows of 60 values: trendcsv / floor", dump("60.db"), floor, 4, 7);
  expect_at_most("`-m 10` on 1,000,000 rows / on 1,000", dump("3.db", {"-m", "10"}),
                 dump("small.db", {"-m", "10"}), 1.5, 51);
  expect_at_most("1,000,000 rows of 3 values / 500,000", dump("3.db"), dump("half.db"), 2.1, 7);
  run(dump("merged.db", {"-nh", "-f", data("merged.csv")}));
  std::ifstream merged(data("merged.csv"), std::ios::binary);
  const auto merged_rows = std::count(std::istreambuf_iterator<char>(merged), {}, '\n');
  expect_at_most("four intervals merged, per row printed / one", dump("merged.db"), dump("3.db"),
                 1.3, 7, 1e6 / static_cast<double>(merged_rows));
  expect_at_most("one parameter of 300 / all 300", dump("300.db", {"-p", "group0/p7"}),
                 dump("300.db"), 0.1, 7);
  expect_at_most("100,000 rows of 60 values: `-c 16` / default", dump("60.db", {"-c", "16"}),
                 dump("60.db"), 1.5, 7);

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
