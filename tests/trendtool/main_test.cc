// The command line of trendtool: what all its subcommands have in common.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/process.h"

namespace {

using testing::HasSubstr;
using testing::StartsWith;

ProcessResult trendtool(const std::vector<std::string>& arguments) {
  return run_tool("trendtool", arguments);
}

TEST(Trendtool, PrintsItsVersion) {
  const ProcessResult result = trendtool({"--version"});
  EXPECT_EQ(result.exit_status, 0);
  EXPECT_THAT(result.out, StartsWith("trendtool 2."));
  EXPECT_EQ(result.err, "");
}

TEST(Trendtool, ListsItsSubcommands) {
  const ProcessResult result = trendtool({"--help"});
  EXPECT_EQ(result.exit_status, 0);
  EXPECT_THAT(result.out, HasSubstr("\n  list "));
  EXPECT_EQ(result.err, "");
}

TEST(Trendtool, ShowsTheOptionsOfASubcommandWithExamples) {
  for (const char* name :
       {"backup", "check", "copy", "export", "init", "list", "load", "plot", "purge", "remove"}) {
    const ProcessResult result = trendtool({name, "--help"});
    EXPECT_EQ(result.exit_status, 0);
    EXPECT_THAT(result.out, HasSubstr("-x,--database FILE"));
    EXPECT_THAT(result.out, HasSubstr("Examples:\n  trendtool " + std::string(name) + " -x "));
    EXPECT_EQ(result.err, "");
  }
}

TEST(Trendtool, RefusesAWrongCommandLineWithStatus2) {
  const std::pair<std::vector<std::string>, std::string> cases[] = {
      {{}, "A subcommand is required; see 'trendtool --help'"},
      {{"lst", "-x", "a.db"}, "'lst' is not a subcommand; see 'trendtool --help'"},
      {{"list"}, "--database is required; see 'trendtool list --help'"},
      {{"list", "-x"}, "--database: 1 required FILE missing; see 'trendtool list --help'"},
      {{"list", "-x", "a.db", "--what"},
       "The following argument was not expected: --what; see 'trendtool list --help'"},
      {{"list", "-x", "a.db", "--format", "xml"},
       "--format: 'xml' is not one of csv, json, table; see 'trendtool list --help'"}};
  for (const auto& [arguments, message] : cases) {
    const ProcessResult result = trendtool(arguments);
    EXPECT_EQ(result.exit_status, 2) << message;
    EXPECT_EQ(result.out, "") << message;
    EXPECT_EQ(result.err, "trendtool: " + message + "\n");
  }
}

TEST(Trendtool, SaysThatADatabaseIsMissing) {
  const ProcessResult result = trendtool({"list", "-x", "/nonexistent/a.db"});
  EXPECT_EQ(result.exit_status, 1);
  EXPECT_EQ(result.err,
            "trendtool: can't open the database '/nonexistent/a.db': No such file or directory\n");
}

TEST(Trendtool, FailsIfItsResultCantBeWritten) {
  const TemporaryFolder folder;
  const std::string db = folder.file("trend.db");
  const std::string csv = folder.file("rows.csv");
  write_file(csv, "time,interval,a:Value\n300,5,1\n");
  ASSERT_EQ(trendtool({"load", "-x", db, "-d", "/d", csv}).exit_status, 0);
  // What changes the database has changed it then.
  const std::vector<std::string> cases[] = {
      {"--help"},
      {"list", "-x", db},
      {"load", "-x", db, "-d", "/e", "--dry-run", csv},
      {"copy", db, folder.file("copy.db")},
      {"purge", "-x", db, "-d", "/d", "-i", "5", "--before", "@301"}};
  for (const std::vector<std::string>& words : cases) {
    std::vector<std::string> command = {"/bin/sh", "-c", "exec \"$@\" >/dev/full", "sh"};
    for (const std::string& word : tool_command("trendtool", words)) command.push_back(word);
    const ProcessResult result = run_process(command);
    EXPECT_EQ(result.exit_status, 1) << words[0];
    EXPECT_EQ(result.err, "trendtool: can't write standard output: No space left on device\n");
  }
}

}  // namespace
