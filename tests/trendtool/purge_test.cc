// trendtool purge and trendtool init.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "tests/support/process.h"

namespace {

using testing::HasSubstr;
using testing::StartsWith;

class TrendtoolPurge : public testing::Test {
 protected:
  TrendtoolPurge() {
    std::string csv = "Date,Time,level:Value\n";
    for (int i = 1; i <= 2000; ++i)
      csv += std::to_string(300 * i) + "," + "," + std::to_string(i) + "\n";
    for (const char* minutes : {"5", "60"}) {
      EXPECT_EQ(
          run_tool("trendload", {"-x", db_, "-d", "/plant", "-i", minutes, "-t", "%s ", "-"}, csv)
              .exit_status,
          0);
    }
  }

  ProcessResult purge(std::vector<std::string> more) {
    more.insert(more.begin(), {"purge", "-x", db_, "-u"});
    return run_tool("trendtool", more);
  }

  std::string export_rows(const std::string& minutes) {
    return run_tool("trendtool", {"export", "-x", db_, "-d", "/plant", "-i", minutes, "-u"}).out;
  }

  TemporaryFolder folder_;
  std::string db_ = folder_.file("trend.db");
};

TEST_F(TrendtoolPurge, RemovesTheRowsBeforeATime) {
  const std::string coarse = export_rows("60");
  const ProcessResult result = purge({"-d", "/plant", "-i", "5", "--before", "1970-01-02T00:00"});
  EXPECT_EQ(result.exit_status, 0);
  EXPECT_EQ(result.out, "287 rows removed\n");
  EXPECT_EQ(result.err, "");
  EXPECT_THAT(export_rows("5"), HasSubstr("\n1970-01-02T00:00:00Z,5,288\n"));
  EXPECT_THAT(export_rows("5"), testing::Not(HasSubstr("1970-01-01")));
  EXPECT_EQ(export_rows("60"), coarse);
  EXPECT_EQ(run_tool("trendtool", {"check", "-x", db_}).exit_status, 0);
}

TEST_F(TrendtoolPurge, RemovesNothingBeforeTheFirstRow) {
  for (const char* time : {"@-5", "@0", "@300"}) {
    EXPECT_EQ(purge({"-d", "/plant", "-i", "5", "--before", time}).out, "0 rows removed\n");
  }
  EXPECT_EQ(purge({"-d", "/plant", "-i", "5", "--before", "now"}).out, "2000 rows removed\n");
  EXPECT_EQ(purge({"-d", "/plant", "-i", "5", "--before", "now"}).out, "0 rows removed\n");
}

TEST_F(TrendtoolPurge, SaysWhatIsNotThere) {
  ProcessResult result = purge({"-d", "/pump", "-i", "5", "--before", "now"});
  EXPECT_EQ(result.exit_status, 1);
  EXPECT_THAT(result.err, StartsWith("trendtool: the database has no device '/pump'"));
  result = purge({"-d", "/plant", "-i", "7", "--before", "now"});
  EXPECT_EQ(result.exit_status, 1);
  EXPECT_EQ(result.err, "trendtool: device '/plant' has no rows at the interval of 7 minutes\n");
}

TEST_F(TrendtoolPurge, RefusesAWrongCommandLine) {
  for (const std::vector<std::string>& arguments :
       {std::vector<std::string>{"-d", "/plant", "-i", "5"},
        {"-d", "/plant", "--before", "now"},
        {"-i", "5", "--before", "now"},
        {"-d", "/plant", "-i", "0", "--before", "now"},
        {"-d", "/plant", "-i", "5", "--before", "soon"}}) {
    EXPECT_EQ(purge(arguments).exit_status, 2);
  }
}

TEST(TrendtoolInit, MakesAnEmptyDatabase) {
  const TemporaryFolder folder;
  for (const std::vector<std::string>& name :
       {std::vector<std::string>{folder.file("a.db")}, {"-x", folder.file("b.db")}}) {
    std::vector<std::string> arguments = {"init"};
    arguments.insert(arguments.end(), name.begin(), name.end());
    ProcessResult result = run_tool("trendtool", arguments);
    EXPECT_EQ(result.exit_status, 0);
    EXPECT_EQ(result.out + result.err, "");
    EXPECT_EQ(run_tool("trendtool", {"check", "-x", name.back()}).exit_status, 0);
    result = run_tool("trendtool", arguments);
    EXPECT_EQ(result.exit_status, 1);
    EXPECT_EQ(result.err, "trendtool: can't make the database '" + name.back() +
                              "': there is such a file already\n");
  }
}

TEST(TrendtoolInit, TakesBothSchemesForAnArchive) {
  for (const std::string scheme : {"postgresql", "postgres"}) {
    const std::string url = scheme + "://user@/db?host=/nonexistent";
    const ProcessResult result = run_tool("trendtool", {"init", url, "--retention", "2"});
    EXPECT_EQ(result.exit_status, 1);
    EXPECT_THAT(result.err, testing::StartsWith("trendtool: can't make the database '" + url));
  }
}

TEST(TrendtoolInit, RefusesOptionsOfArchivesForAFile) {
  const TemporaryFolder folder;
  for (const char* option : {"--partitions", "--retention"}) {
    const ProcessResult result = run_tool("trendtool", {"init", folder.file("a.db"), option, "2"});
    EXPECT_EQ(result.exit_status, 2);
    EXPECT_EQ(result.err,
              "trendtool: --partitions and --retention are for an archive, not for a file\n");
  }
  EXPECT_FALSE(std::filesystem::exists(folder.file("a.db")));
}

}  // namespace
