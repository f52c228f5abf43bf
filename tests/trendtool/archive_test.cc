// The subcommands of trendtool on an archive, which do what they do on a file.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/archive_server.h"
#include "tests/support/log_content.h"
#include "tests/trendtool/copy_fixture.h"

namespace {

using testing::HasSubstr;

class TrendtoolArchive : public testing::Test {
 protected:
  TrendtoolArchive() {
    for (const std::string& db : {file_, archive_}) {
      append_rows(db, "site/a", 5, make_rows(300, 300, 200));
      append_rows(db, "site/a", 60, make_rows(3600, 3600, 30));
      append_rows(db, "site/b", 5, make_rows(300, 300, 3));
    }
  }

  /// Expects that the tool prints the same for the archive and for the file.
  void expect_same(std::vector<std::string> arguments) {
    arguments.insert(arguments.end(), {"-x", file_});
    const ProcessResult expected = run_tool("trendtool", arguments);
    EXPECT_NE(expected.out, "") << expected.err;
    arguments.back() = archive_;
    const ProcessResult found = run_tool("trendtool", arguments);
    EXPECT_EQ(found.out, expected.out);
    EXPECT_EQ(found.err, expected.err);
    EXPECT_EQ(found.exit_status, expected.exit_status);
  }

  void execute(const std::string& sql) {
    server().sql("SET search_path = " + archive_.substr(archive_.rfind('=') + 1) + "; " + sql);
  }

  TemporaryFolder folder_;
  std::string file_ = folder_.file("trend.db");
  std::string archive_ = server().make_archive();
};

TEST_F(TrendtoolArchive, ListsNamesAndCountsRows) {
  expect_same({"list", "--names"});
  expect_same({"list", "--names", "-d", "site/a"});
  const ProcessResult result = run_tool("trendtool", {"list", "-d", "site/a", "-x", archive_});
  EXPECT_EQ(result.exit_status, 0) << result.err;
  EXPECT_THAT(result.out, HasSubstr("200"));
  EXPECT_THAT(result.out, HasSubstr("1970-01-02"));
}

TEST_F(TrendtoolArchive, ExportsAndDraws) {
  expect_same({"export", "--all-devices", "-u"});
  expect_same(
      {"export", "-d", "site/a", "-p", "b", "-i", "60", "--format", "jsonl", "-m", "7", "-u"});
  expect_same({"plot", "-d", "site/a", "-p", "a", "-u", "--format", "svg"});
}

TEST_F(TrendtoolArchive, ChecksRowsAndCatalogue) {
  EXPECT_EQ(run_tool("trendtool", {"check", "-x", archive_}).exit_status, 0);
  execute(
      "UPDATE snapshot SET time = time + interval '1.5 seconds' WHERE time = to_timestamp(900)");
  execute("UPDATE parameter SET first_slot = 0 WHERE path = 'b'");
  const ProcessResult result = run_tool("trendtool", {"check", "-x", archive_});
  EXPECT_EQ(result.exit_status, 1);
  const std::string text = result.out + result.err;
  EXPECT_THAT(text, HasSubstr("a row that is not one of a trend"));
  EXPECT_THAT(text, HasSubstr("its values are also those of another parameter"));
}

TEST_F(TrendtoolArchive, TakesInADump) {
  const ProcessResult dump = run_tool("trendcsv", {"-x", file_, "-d", "site/a", "-u", "-i", "5"});
  const std::string other = server().make_archive();
  const ProcessResult result =
      run_tool("trendload", {"-x", other, "-d", "site/c", "-i", "5", "-u"}, dump.out);
  EXPECT_EQ(result.exit_status, 0) << result.err;
  EXPECT_EQ(run_tool("trendcsv", {"-x", other, "-d", "site/c", "-u"}).out, dump.out);
}

TEST_F(TrendtoolArchive, RemovesRowsAndDevices) {
  ASSERT_EQ(run_tool("trendtool", {"remove", "-x", archive_, "-d", "site/b", "--yes"}).exit_status,
            0);
  EXPECT_EQ(read_content(archive_).devices.count("site/b"), 0U);
  EXPECT_EQ(read_content(archive_).devices.count("site/a"), 1U);
}

TEST_F(TrendtoolArchive, LeavesBackupsToTheServer) {
  const ProcessResult result =
      run_tool("trendtool", {"backup", "-x", archive_, folder_.file("copy.db")});
  EXPECT_EQ(result.exit_status, 1);
  EXPECT_THAT(result.err, HasSubstr("pg_dump"));
}

}  // namespace
