// Compares the programs with those of an older version, each with databases of its own, and prints
// a table. A ratio below 1 means that the new ones are faster.
//   compare_older PROGRAM_FOLDER DATA_FOLDER OLDER_PROGRAM_FOLDER OLDER_DATA_FOLDER
// scripts/bench makes the data, and the program `commits` in both folders of data.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

#include "bench/runs.h"

namespace {

struct Version {
  std::string programs;
  std::string data;
};

Command dump(const Version& version, const std::string& db, const Command& options = {}) {
  Command command = {version.programs + "/trendcsv", "-x", version.data + "/" + db, "-d", "bench"};
  command.insert(command.end(), options.begin(), options.end());
  return command;
}

Command load(const Version& version, const std::string& csv) {
  const std::string db = version.data + "/load.db";
  return {"sh", "-c",
          "rm -f " + db + "*; exec " + version.programs + "/trendload -x " + db +
              " -d bench -i 5 -u " + csv};
}

/// Prints a line without a target.
void compare(const std::string& what, const Command& first, const Command& second, int repeats) {
  print_line(what, run_in_turn(first, second, repeats), 1, "", true);
}

struct Commits {
  double rows_per_second = 0;
  double slowest = 0;  ///< in milliseconds
};

/// Records rows, each with a commit of its own, in `folder`.
Commits measure_commits(const Version& version, const std::string& folder,
                        const std::string& rows) {
  const std::string db = folder + "/trend-bench-commits.db";
  const std::string result = version.data + "/commits.txt";
  run({"sh", "-c",
       version.data + "/commits " + db + " " + rows + " >" + result + "; rm -f " + db + "*"});
  Commits commits;
  std::ifstream(result) >> commits.rows_per_second >> commits.slowest;
  return commits;
}

/// Prints medians of runs in turn. The slowest commit is measured in memory, where synchronising
/// with the disk costs nothing; checkpoints are included. The disk is slow, so it gets fewer rows.
void compare_commits(const Version& ours, const Version& older) {
  for (const bool is_on_disk : {false, true}) {
    const std::string rows = is_on_disk ? "2000" : "10000";
    std::vector<double> ratios;
    std::vector<double> rates[2];
    std::vector<double> slowest[2];
    for (int i = 0; i < 5; ++i) {
      for (int k = 0; k < 2; ++k) {
        const Version& version = k == 0 ? ours : older;
        const Commits commits =
            measure_commits(version, is_on_disk ? version.data : "/dev/shm", rows);
        rates[k].push_back(commits.rows_per_second);
        slowest[k].push_back(commits.slowest);
      }
      ratios.push_back(rates[0].back() / rates[1].back());
    }
    std::printf(
        "\nCommits of single rows, 60 values, %s: %.0f and %.0f per second, ratio %.2f (target: at "
        "least 0.7); slowest of %s: %.2f ms and %.2f ms\n",
        is_on_disk ? "on the disk" : "in memory", median(rates[0]), median(rates[1]),
        median(ratios), rows.c_str(), median(slowest[0]), median(slowest[1]));
    std::fflush(stdout);
  }
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 5) return 2;
  const Version ours = {argv[1], argv[2]};
  const Version older = {argv[3], argv[4]};
  setenv("TZ", "UTC", 1);

  print_heading();
  const auto both = [&](const std::string& what, const std::string& db, const Command& options,
                        int repeats) {
    compare(what, dump(ours, db, options), dump(older, db, options), repeats);
  };
  both("100,000 rows of 60 values", "60.db", {}, 7);
  both("1,000,000 rows of 3 values", "3.db", {}, 7);
  both("10,000 rows of 900 values", "300.db", {}, 7);
  both("one parameter of 300", "300.db", {"-p", "group0/p7"}, 15);
  both("four intervals merged", "merged.db", {}, 7);
  both("100,000 rows of 60 values, `-c 16`", "60.db", {"-c", "16"}, 7);
  both("1,000,000 rows of 3 values, `-m 10 -o 900000`", "3.db", {"-m", "10", "-o", "900000"}, 15);
  both("1,000 rows of 3 values", "small.db", {}, 51);
  compare("100,000 rows of 60 values in a database of version 1",
          {ours.programs + "/trendcsv", "-x", older.data + "/60.db", "-d", "bench"},
          dump(older, "60.db"), 7);
  for (const std::string name : {"3", "60"}) {
    const std::string csv = ours.data + "/load.csv";
    run(dump(ours, name + ".db", {"-u", "-a", "-f", csv}));
    compare("`trendload` of rows of " + name + " values", load(ours, csv), load(older, csv), 5);
  }
  compare_commits(ours, older);
}
