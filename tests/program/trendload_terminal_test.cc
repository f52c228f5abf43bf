// What trendload shows on a terminal.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "tests/support/terminal.h"

namespace {

using testing::MatchesRegex;

class TrendloadTerminal : public testing::Test {
 protected:
  std::vector<std::string> command() const {
    return tool_command("trendload", {"-x", folder_.file("trend.db"), "-d", "/plant", "-i", "1",
                                      "-t", "%s ", csv_});
  }

  /// Loads from a pipe, where two rows come, and `end` after three seconds. `run` runs the command.
  template <typename Run>
  ProcessResult load_slowly(const std::string& end, const Run& run) const {
    EXPECT_EQ(mkfifo(csv_.c_str(), 0600), 0);
    const std::string start = "Date,Time,a:Value\\n1700000000,,1\\n1700000060,,2\\n";
    const pid_t writer = start_process(
        {"/bin/sh", "-c", "{ printf \"$1\"; sleep 3; printf \"$2\"; } >\"$0\"", csv_, start, end});
    const ProcessResult result = run(command());
    EXPECT_EQ(wait_for(writer), 0);
    return result;
  }

  static ProcessResult at_terminal(const std::vector<std::string>& words) {
    return run_at_terminal(words);
  }

  TemporaryFolder folder_;
  std::string csv_ = folder_.file("rows.csv");
};

// A carriage return and \033[K remove what is on the line.

TEST_F(TrendloadTerminal, ShowsTheProgressOfALongLoad) {
  const ProcessResult result = load_slowly("1700000120,,3\\n", at_terminal);
  EXPECT_EQ(result.exit_status, 0);
  EXPECT_THAT(result.out, MatchesRegex("\r\033\\[Ktrendload: 3 rows, [0-9] rows/s\r\033\\[K"));
}

TEST_F(TrendloadTerminal, PutsAMessageOnALineOfItsOwn) {
  const ProcessResult result = load_slowly("1700000120,,3\\nnonsense\\n", at_terminal);
  EXPECT_EQ(result.exit_status, 1);
  EXPECT_THAT(result.out, testing::EndsWith("rows/s\r\033[Ktrendload: " + csv_ +
                                            ":5: 1 fields, but the header has 3\r\n"));
}

TEST_F(TrendloadTerminal, ShowsNothingForAShortLoad) {
  write_file(csv_, "Date,Time,a:Value\n1700000000,,1\n");
  const ProcessResult result = run_at_terminal(command());
  EXPECT_EQ(result.exit_status, 0);
  EXPECT_EQ(result.out, "");
}

TEST_F(TrendloadTerminal, ShowsNothingElsewhere) {
  const ProcessResult result = load_slowly(
      "1700000120,,3\\n", [](const std::vector<std::string>& words) { return run_process(words); });
  EXPECT_EQ(result.exit_status, 0);
  EXPECT_EQ(result.out + result.err, "");
}

}  // namespace
