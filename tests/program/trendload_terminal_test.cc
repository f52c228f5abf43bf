// What trendload shows on a terminal.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pty.h>
#include <sys/wait.h>
#include <unistd.h>

#include "tests/support/process.h"

namespace {

using testing::HasSubstr;

/// A long file of good rows.
std::string long_csv() {
  std::string csv = "Date,Time,a:Value\n";
  for (int i = 0; i < 20'000; ++i) csv += std::to_string(1'700'000'000 + 60 * i) + ",,1\n";
  return csv;
}

class TrendloadTerminal : public testing::Test {
 protected:
  std::vector<std::string> command() const {
    std::vector<std::string> result = tool_command("trendload");
    result.insert(result.end(), {"-x", folder_.file("trend.db"), "-d", "/plant", "-i", "1", "-t",
                                 "%s ", folder_.file("rows.csv")});
    return result;
  }

  /// Loads rows.csv with a terminal as input and output, and returns what the terminal shows.
  std::string load_on_terminal(int& exit_status) const {
    std::vector<std::string> words = command();
    std::vector<char*> arguments;
    for (std::string& word : words) arguments.push_back(word.data());
    arguments.push_back(nullptr);
    int terminal = -1;
    const pid_t child = forkpty(&terminal, nullptr, nullptr, nullptr);
    if (child == 0) {
      execvp(arguments[0], arguments.data());
      _exit(127);
    }
    EXPECT_GT(child, 0);
    std::string shown;
    char buffer[4096];
    ssize_t size = 0;
    while ((size = read(terminal, buffer, sizeof buffer)) > 0) {
      shown.append(buffer, static_cast<std::size_t>(size));
    }
    int status = 0;
    waitpid(child, &status, 0);
    close(terminal);
    exit_status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return shown;
  }

  TemporaryFolder folder_;
};

TEST_F(TrendloadTerminal, ShowsTheProgressOfALongLoad) {
  write_file(folder_.file("rows.csv"), long_csv());
  int exit_status = -1;
  const std::string shown = load_on_terminal(exit_status);
  EXPECT_EQ(exit_status, 0);
  EXPECT_THAT(shown, HasSubstr("\rtrendload: 4096 rows"));
  EXPECT_THAT(shown, HasSubstr("\rtrendload: 16384 rows"));
  EXPECT_THAT(shown, testing::EndsWith("\n"));
}

TEST_F(TrendloadTerminal, PutsAMessageOnALineOfItsOwn) {
  write_file(folder_.file("rows.csv"), long_csv() + "nonsense\n");
  int exit_status = -1;
  const std::string shown = load_on_terminal(exit_status);
  EXPECT_EQ(exit_status, 1);
  // The terminal turns a line feed into a carriage return and a line feed.
  EXPECT_THAT(shown, testing::EndsWith("16384 rows\r\ntrendload: " + folder_.file("rows.csv") +
                                       ":20002: 1 fields, but the header has 3\r\n"));
}

TEST_F(TrendloadTerminal, ShowsNothingForAShortLoad) {
  write_file(folder_.file("rows.csv"), "Date,Time,a:Value\n1700000000,,1\n");
  int exit_status = -1;
  EXPECT_EQ(load_on_terminal(exit_status), "");
  EXPECT_EQ(exit_status, 0);
}

TEST_F(TrendloadTerminal, ShowsNothingElsewhere) {
  write_file(folder_.file("rows.csv"), long_csv());
  const ProcessResult result = run_process(command());
  EXPECT_EQ(result.exit_status, 0);
  EXPECT_EQ(result.out + result.err, "");
}

}  // namespace
