#include "bench/runs.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>

namespace {

/// Returns how many bytes this process and the programs that it waited for have read.
double bytes_read_so_far() {
  std::ifstream file("/proc/self/io");
  std::string name;
  double bytes = 0;
  file >> name >> bytes;
  return name == "rchar:" ? bytes : 0;
}

std::string text_of(const char* format, double value) {
  char text[32];
  std::snprintf(text, sizeof text, format, value);
  return text;
}

}  // namespace

Run run(const Command& command, const std::string& messages) {
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
  if (!WIFEXITED(status) || WEXITSTATUS(status) > 1) {
    std::fprintf(stderr, "bench: '%s' failed\n", command.front().c_str());
    std::exit(1);
  }
  return {spent.count(), usage.ru_maxrss};
}

double median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  return values[values.size() / 2];
}

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

double count_bytes_read(const Command& command) {
  const double before = bytes_read_so_far();
  run(command);
  return bytes_read_so_far() - before;
}

void print_heading() {
  std::puts("| what | first | second | ratio | target | met | peak memory |");
  std::puts("|---|---|---|---|---|---|---|");
}

void print_line(const std::string& what, const Result& result, double scale,
                const std::string& target, bool is_met) {
  const double ratio = scale * result.first / result.second;
  const char* met = target.empty() ? "" : is_met ? "yes" : "NO";
  std::printf("| %s | %.1f ms | %.1f ms | %.*f | %s | %s |", what.c_str(), 1000 * result.first,
              1000 * result.second, ratio < 0.1 ? 4 : 2, ratio, target.c_str(), met);
  if (result.first_peak > 0) std::printf(" %ld / %ld KiB", result.first_peak, result.second_peak);
  std::puts(" |");
  std::fflush(stdout);
}

void print_number(const std::string& what, const std::string& first, const std::string& second,
                  double ratio, double most) {
  std::printf("| %s | %s | %s | %.4g | at most %g | %s | |\n", what.c_str(), first.c_str(),
              second.c_str(), ratio, most, ratio <= most ? "yes" : "NO");
  std::fflush(stdout);
}

void expect_at_least(const std::string& what, const Command& first, const Command& second,
                     double least, int repeats) {
  const Result result = run_in_turn(first, second, repeats);
  print_line(what, result, 1, text_of("at least %g", least), result.first / result.second >= least);
}

void expect_at_most(const std::string& what, const Command& first, const Command& second,
                    double most, int repeats, double scale) {
  const Result result = run_in_turn(first, second, repeats);
  print_line(what, result, scale, text_of("at most %g", most),
             scale * result.first / result.second <= most);
}
