#include "cli/usage.h"

#include <gtest/gtest.h>

#include "tests/support/streams.h"
#include "tests/support/usage_text.h"

namespace {

std::string printed_usage(const DumpOptions& options, const char* program) {
  const ProcessResult result = capture([&] {
    print_usage(options, program);
    return 0;
  });
  EXPECT_EQ(result.err, "");
  return result.out;
}

TEST(PrintUsage, PrintsTheWholeTextByteForByte) {
  EXPECT_EQ(printed_usage({}, "trendcsv"), expected_usage("trendcsv", "512"));
}

TEST(PrintUsage, NamesTheProgramAsTyped) {
  EXPECT_EQ(printed_usage({}, "../bin/100%s"), expected_usage("../bin/100%s", "512"));
}

TEST(PrintUsage, ShowsTheChunkSizeThatWasTyped) {
  DumpOptions options;
  options.chunk_size = 100;
  EXPECT_EQ(printed_usage(options, "t"), expected_usage("t", "100"));
  options.chunk_size = 0;
  EXPECT_EQ(printed_usage(options, "t"), expected_usage("t", "0"));
  options.chunk_size = 4294967295U;
  EXPECT_EQ(printed_usage(options, "t"), expected_usage("t", "4294967295"));
}

TEST(PrintUsage, AlwaysShowsTheDefaultFormats) {
  DumpOptions options;
  options.input_time_format = "%s";
  options.output_date_format = "%x";
  options.output_time_format = "%X";
  EXPECT_EQ(printed_usage(options, "trendcsv"), expected_usage("trendcsv", "512"));
}

TEST(PrintUsage, ExplainsReverseButNotInTheFirstLine) {
  const std::string text = printed_usage({}, "trendcsv");
  const std::string synopsis = text.substr(0, text.find('\n'));
  EXPECT_EQ(synopsis.find("-r"), std::string::npos);
  EXPECT_NE(text.find("\n\t-r: Reverse order:"), std::string::npos);
}

TEST(PrintUsage, LeavesTheBracketOfTheHeapLimitOpen) {
  EXPECT_NE(printed_usage({}, "trendcsv").find("[-sl <heap_limit] [-J]"), std::string::npos);
}

TEST(PrintVersion, PrintsThreeLinesAndABlankOne) {
  const ProcessResult result = capture([] {
    print_version("/usr/bin/trendcsv");
    return 0;
  });
  EXPECT_EQ(result.out, expected_version("/usr/bin/trendcsv"));
  EXPECT_EQ(result.err, "");
}

}  // namespace
