// What trendload shows on a terminal.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/terminal.h"

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
    return tool_command("trendload", {"-x", folder_.file("trend.db"), "-d", "/plant", "-i", "1",
                                      "-t", "%s ", folder_.file("rows.csv")});
  }

  TemporaryFolder folder_;
};

TEST_F(TrendloadTerminal, ShowsTheProgressOfALongLoad) {
  write_file(folder_.file("rows.csv"), long_csv());
  const ProcessResult result = run_at_terminal(command());
  EXPECT_EQ(result.exit_status, 0);
  EXPECT_THAT(result.out, HasSubstr("\rtrendload: 4096 rows"));
  EXPECT_THAT(result.out, HasSubstr("\rtrendload: 16384 rows"));
  EXPECT_THAT(result.out, testing::EndsWith("\n"));
}

TEST_F(TrendloadTerminal, PutsAMessageOnALineOfItsOwn) {
  write_file(folder_.file("rows.csv"), long_csv() + "nonsense\n");
  const ProcessResult result = run_at_terminal(command());
  EXPECT_EQ(result.exit_status, 1);
  // The terminal turns a line feed into a carriage return and a line feed.
  EXPECT_THAT(result.out, testing::EndsWith("16384 rows\r\ntrendload: " + folder_.file("rows.csv") +
                                            ":20002: 1 fields, but the header has 3\r\n"));
}

TEST_F(TrendloadTerminal, ShowsNothingForAShortLoad) {
  write_file(folder_.file("rows.csv"), "Date,Time,a:Value\n1700000000,,1\n");
  const ProcessResult result = run_at_terminal(command());
  EXPECT_EQ(result.exit_status, 0);
  EXPECT_EQ(result.out, "");
}

TEST_F(TrendloadTerminal, ShowsNothingElsewhere) {
  write_file(folder_.file("rows.csv"), long_csv());
  const ProcessResult result = run_process(command());
  EXPECT_EQ(result.exit_status, 0);
  EXPECT_EQ(result.out + result.err, "");
}

}  // namespace
