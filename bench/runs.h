// Runs commands for the benchmarks, and measures them.
#pragma once

#include <string>
#include <vector>

using Command = std::vector<std::string>;

struct Run {
  double seconds = 0;
  long peak_kib = 0;
};

/// Runs a command and discards its output. Its messages go to the file `messages`. If it fails, the
/// benchmark ends with a message. The status 1 is not a failure: a complete dump returns it.
Run run(const Command& command, const std::string& messages = "/dev/null");

double median(std::vector<double> values);

struct Result {
  double first = 0;   ///< seconds, the median
  double second = 0;  ///< likewise
  long first_peak = 0;
  long second_peak = 0;
};

/// Runs two commands in turn, `repeats` times each.
Result run_in_turn(const Command& first, const Command& second, int repeats);

/// Returns how many bytes the command reads from files, as the kernel counts them.
double count_bytes_read(const Command& command);

/// Prints the heading of a table for the lines below.
void print_heading();

/// Prints a line of the table. `scale` multiplies the ratio, for runs with different numbers of
/// rows. `target` may be empty.
void print_line(const std::string& what, const Result& result, double scale,
                const std::string& target, bool is_met);

/// Prints a line for a number that is not a time of commands.
void print_number(const std::string& what, const std::string& first, const std::string& second,
                  double ratio, double most);

void expect_at_least(const std::string& what, const Command& first, const Command& second,
                     double least, int repeats);
void expect_at_most(const std::string& what, const Command& first, const Command& second,
                    double most, int repeats, double scale = 1);
