// Compares the speed of the programs on an archive with that of psql, and prints a table of the
// results.
//   compare_archive PROGRAM_FOLDER DATA_FOLDER SERVER_FOLDER PSQL
// The server has its socket in SERVER_FOLDER, and an archive of each log in a schema of its own.
// scripts/bench starts it and makes the archives. PSQL is the path of psql.
#include <algorithm>
#include <cstdlib>
#include <string>
#include <vector>

#include "bench/runs.h"

namespace {

std::string programs;
std::string folder;
std::string server;
std::string psql_path;

std::string get_url(const std::string& schema) {
  return "postgresql:///trends?host=" + server + "&user=trend&schema=" + schema;
}

Command dump(const std::string& schema, const Command& options = {}) {
  Command command = {programs + "/trendcsv", "-x", get_url(schema), "-d", "bench"};
  command.insert(command.end(), options.begin(), options.end());
  return command;
}

Command psql(const std::string& statement) {
  return {psql_path, "-X", "-q",     "-v", "ON_ERROR_STOP=1", "-h", server, "-U",
          "trend",   "-d", "trends", "-c", statement};
}

/// Compares a dump with COPY, which prints the same rows in the form of the server.
void compare_dump(const std::string& what, const std::string& schema, double least) {
  const std::string sql = "COPY (SELECT to_char(time, 'YYYY-MM-DD,HH24:MI'), samples FROM " +
                          schema + ".snapshot WHERE series_id = 1 ORDER BY time DESC) TO STDOUT";
  expect_at_least(what + " of an archive: `psql` with COPY / trendcsv", psql(sql), dump(schema),
                  least, 7);
}

/// Returns how long a command runs that fills an archive, which is made before.
Run fill_archive(const Command& command) {
  run(psql("DROP SCHEMA IF EXISTS filled CASCADE"));
  run({programs + "/trendtool", "init", get_url("filled")});
  run(psql("CHECKPOINT"));
  return run(command);
}

/// Compares how fast an archive is filled with the rows of a log, from its file and from text.
void compare_copy(const std::string& what, const std::string& db, const std::string& schema) {
  const std::string text = folder + "/archive.text";
  run(psql("\\copy " + schema + ".snapshot TO '" + text + "'"));
  const Command theirs = psql("\\copy filled.snapshot FROM '" + text + "'");
  const Command ours = {programs + "/trendtool", "copy", folder + "/" + db, get_url("filled")};
  std::vector<double> their_times;
  std::vector<double> our_times;
  Result result;
  for (int i = 0; i < 7; ++i) {
    const Run first = fill_archive(theirs);
    const Run second = fill_archive(ours);
    their_times.push_back(first.seconds);
    our_times.push_back(second.seconds);
    result.first_peak = std::max(result.first_peak, first.peak_kib);
    result.second_peak = std::max(result.second_peak, second.peak_kib);
  }
  result.first = median(their_times);
  result.second = median(our_times);
  print_line("filling an archive with " + what + ": `psql` with \\copy / `trendtool copy`", result,
             1, "at least 0.5", result.first / result.second >= 0.5);
  run({"rm", text});
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 5) return 2;
  programs = argv[1];
  folder = argv[2];
  server = argv[3];
  psql_path = argv[4];
  setenv("TZ", "UTC", 1);
  setenv("PGTZ", "UTC", 1);

  print_heading();
  compare_dump("100,000 rows of 60 values", "log_60", 1.8);
  compare_dump("1,000,000 rows of 3 values", "log_3", 1.2);
  expect_at_most("one parameter of 300 / all 300, 10,000 rows of an archive",
                 dump("log_300", {"-p", "group0/p0"}), dump("log_300"), 0.35, 7);
  compare_copy("100,000 rows of 60 values", "60.db", "log_60");
  expect_at_most("`-m 10` on 1,000,000 rows of an archive / `psql -c 'select 1'`",
                 dump("log_3", {"-m", "10"}), psql("select 1"), 2, 51);
}
