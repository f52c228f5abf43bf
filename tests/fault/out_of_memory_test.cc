// The program if memory runs out.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/support/process.h"

namespace {

constexpr const char* MESSAGE = "Error: out of memory\n";
constexpr const char* HEADER = "Date,Time,p:.ValueIntAvg\n";
constexpr const char* ROWS = "1970-01-01,00:02,1\n1970-01-01,00:01,0.5\n";

/// Runs the program so that memory runs out in `call`, with chunks of two rows.
ProcessResult run(const std::string& call, const std::vector<std::string>& more = {}) {
  std::vector<std::string> arguments = {"-x", call, "-d", "dev", "-u", "-c", "2"};
  arguments.insert(arguments.end(), more.begin(), more.end());
  return run_tool("tests/out_of_memory_tool", arguments);
}

/// Checks that the program fails in `call` and leaves `output`, on standard output and in a file.
void expect_failure(const std::string& call, const std::string& output) {
  const ProcessResult result = run(call);
  EXPECT_EQ(result.exit_status, 1);
  EXPECT_EQ(result.err, MESSAGE);
  EXPECT_EQ(result.out, output);

  const TemporaryFolder folder;
  const std::string file = folder.file("out.csv");
  write_file(file, "old content");
  const ProcessResult file_result = run(call, {"-f", file});
  EXPECT_EQ(file_result.exit_status, 1);
  EXPECT_EQ(file_result.err, MESSAGE);
  EXPECT_EQ(file_result.out, "");
  EXPECT_EQ(read_file(file), output);
}

TEST(OutOfMemory, EndsTheProgramWhenTheLogIsOpened) { expect_failure("open", ""); }

TEST(OutOfMemory, EndsTheProgramInTheSelection) { expect_failure("catalogue", ""); }

TEST(OutOfMemory, KeepsTheHeaderInTheFirstQuery) { expect_failure("first query", HEADER); }

TEST(OutOfMemory, KeepsTheRowsPrintedBefore) {
  expect_failure("second query", std::string(HEADER) + ROWS);
}

TEST(OutOfMemory, DoesNotAffectADumpThatEndsEarlier) {
  // Here the first query is the one that finds the limit of -m. It finds a row at the time 60.
  const ProcessResult result = run("no call", {"-m", "2", "-nh"});
  EXPECT_EQ(result.exit_status, 0);
  EXPECT_EQ(result.err, "");
  EXPECT_EQ(result.out, ROWS);
}

TEST(OutOfMemory, EndsTrendtoolUnderBothOfItsNames) {
  const ProcessResult tool = run_tool("tests/out_of_memory_trendtool", {});
  EXPECT_EQ(tool.exit_status, 1);
  EXPECT_EQ(tool.err, "trendtool: out of memory\n");
  const ProcessResult load = run_tool("tests/out_of_memory_trendtool", {"as trendload"});
  EXPECT_EQ(load.exit_status, 1);
  EXPECT_EQ(load.err, "trendload: out of memory\n");
}

}  // namespace
