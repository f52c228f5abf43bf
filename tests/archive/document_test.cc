// What docs/archive.md promises.
#include "tests/support/document.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>

#include "libtrend/archive.h"
#include "libtrend/log.h"
#include "tests/support/archive_server.h"
#include "tests/support/process.h"

namespace {

using testing::HasSubstr;

constexpr const char* DOCUMENT = "docs/archive.md";
constexpr const char* ROWS =
    "Date,Time,temperature:.ValueIntMin,temperature:.ValueIntMax,temperature:.ValueIntAvg\n"
    "2024-03-05,14:00,20.75,,21.5\n"
    "2024-03-05,13:00,20.5,22,21.25\n";
constexpr const char* ONE_MORE = "Date,Time,temperature:.ValueIntAvg\n2024-03-05,15:00,5\n";

/// An archive in the schema of the document, with its device and its roles.
class ArchiveDocument : public testing::Test {
 protected:
  ArchiveDocument() {
    std::string error;
    EXPECT_EQ(toolkit::trend::create_archive(server_.url("trend"), {.partitions = 3}, error), 0)
        << error;
    for (const char* file : {"record.sql", "reader.sql", "writer.sql", "users.sql"}) run(file);
  }

  ~ArchiveDocument() override {
    server_.sql("DROP SCHEMA trend CASCADE");
    server_.sql("DROP ROLE ann, recorder, trend_reader, trend_writer");
  }

  std::string run(const std::string& file) { return server_.sql(read_sql(DOCUMENT, file)); }

  [[nodiscard]] ProcessResult dump(const std::string& user) const {
    return run_tool("trendcsv", {"-x", server_.url("trend", user), "-d", "plant/pump", "-u"});
  }
  [[nodiscard]] ProcessResult load(const std::string& user, const std::string& device) const {
    return run_tool("trendload", {"-x", server_.url("trend", user), "-d", device, "-i", "60", "-u"},
                    ONE_MORE);
  }
  /// Expects that the server does not let `user` run `statement`.
  void expect_refusal(const std::string& user, const std::string& statement) const {
    const ProcessResult result =
        server_.psql("SET search_path = trend; " + statement, {"-U", user});
    EXPECT_THAT(result.err,
                testing::AnyOf(HasSubstr("permission denied"), HasSubstr("must be owner")))
        << statement;
  }

  ArchiveServer& server_ = server();
};

TEST_F(ArchiveDocument, RowsOfPlainSqlAreDumpedAndCopied) {
  EXPECT_EQ(dump("trend").out, ROWS);
  toolkit::trend::CLog log;
  ASSERT_EQ(log.open(server_.url("trend"), toolkit::trend::OpenOptions{}), 0) << log.error();
  std::vector<toolkit::trend::CDeviceProperties> devices;
  ASSERT_EQ(log.get_devices(devices), 0);
  toolkit::trend::CSeriesChanges changes;
  ASSERT_EQ(log.get_changes(devices.at(0), 60, 0, changes), 0) << log.error();
  EXPECT_EQ(changes.number, 1U);
  EXPECT_EQ(load("trend", "plant/pump").err, "");
  ASSERT_EQ(log.get_changes(devices.at(0), 60, 0, changes), 0) << log.error();
  EXPECT_EQ(changes.number, 2U);
  // The changes of the document and of the library follow one another, so they are joined.
  EXPECT_EQ(server_.sql("SELECT number, rows, last_time - first_time FROM trend.change"),
            "2|3|02:00:00\n");
}

TEST_F(ArchiveDocument, ExamplesOfQueriesReturnWhatTheyShould) {
  EXPECT_EQ(run("days.sql"), "2024-03-05 00:00:00+00|20.5|22|21.375\n");
  EXPECT_EQ(run("silent.sql"), "plant/pump|2024-03-05 14:00:00+00\n");
  EXPECT_GT(std::stol(run("size.sql")), 8192);
}

TEST_F(ArchiveDocument, AReaderReadsAndCannotWrite) {
  EXPECT_EQ(dump("ann").out, ROWS);
  EXPECT_EQ(dump("ann").err, "");
  const ProcessResult listed = run_tool("trendtool", {"list", "-x", server_.url("trend", "ann")});
  EXPECT_EQ(listed.exit_status, 0) << listed.err;
  EXPECT_EQ(server_.psql("SELECT count(*) FROM trend.trend_value", {"-U", "ann"}).out, "2\n");

  for (const char* device : {"plant/pump", "other"}) {
    const ProcessResult result = load("ann", device);
    EXPECT_EQ(result.exit_status, 1);
    EXPECT_THAT(result.err, HasSubstr("permission denied"));
  }
  std::size_t tables = 0;
  for (const char* table :
       {"archive", "change", "copied", "device", "parameter", "series", "snapshot", "snapshot_0"}) {
    const std::string name = table;
    expect_refusal("ann", "INSERT INTO " + name + " DEFAULT VALUES");
    expect_refusal("ann", "DELETE FROM " + name);
    expect_refusal("ann", "TRUNCATE " + name);
    expect_refusal("ann", "DROP TABLE " + name);
    ++tables;
  }
  // All but two more partitions.
  EXPECT_EQ(server_.sql("SELECT count(*) FROM pg_tables WHERE schemaname = 'trend'"),
            std::to_string(tables + 2) + "\n");
  expect_refusal("ann", "UPDATE series SET changes = 7");
  expect_refusal("ann", "CREATE TABLE more (n integer)");
  EXPECT_EQ(dump("trend").out, ROWS);
}

TEST_F(ArchiveDocument, AWriterRecordsAndCannotRemove) {
  for (const char* device : {"plant/pump", "other"}) {
    const ProcessResult result = load("recorder", device);
    EXPECT_EQ(result.exit_status, 0) << result.err;
  }
  EXPECT_EQ(server_.sql("SELECT count(*) FROM trend.snapshot"), "4\n");
  for (const char* table : {"archive", "device", "parameter", "series", "copied"}) {
    expect_refusal("recorder", std::string("DELETE FROM ") + table);
  }
  expect_refusal("recorder", "UPDATE snapshot SET valid_ratio = 0");
  expect_refusal("recorder", "UPDATE archive SET version = 2");
  expect_refusal("recorder", "DROP TABLE snapshot");
}

TEST_F(ArchiveDocument, SomebodyWithoutARoleIsRefused) {
  server_.sql("CREATE ROLE bob LOGIN");
  const ProcessResult result = dump("bob");
  EXPECT_EQ(result.exit_status, 1);
  EXPECT_EQ(result.err, "Error opening trend db: '" + server_.url("trend", "bob") + "'\n");
  server_.sql("DROP ROLE bob");
}

TEST_F(ArchiveDocument, EveryTableViewAndColumnHasAComment) {
  EXPECT_EQ(server_.sql("SELECT relname FROM pg_class WHERE relnamespace = 'trend'::regnamespace "
                        "AND relkind IN ('r', 'v', 'p') AND NOT relispartition "
                        "AND obj_description(oid) IS NULL"),
            "");
  EXPECT_EQ(
      server_.sql(
          "SELECT relname, attname FROM pg_attribute JOIN pg_class ON attrelid = pg_class.oid "
          "WHERE relnamespace = 'trend'::regnamespace AND relkind IN ('r', 'v', 'p') "
          "AND NOT relispartition AND attnum > 0 "
          "AND col_description(attrelid, attnum) IS NULL"),
      "");
}

TEST_F(ArchiveDocument, EveryColumnIsInTheDocument) {
  const std::string text = read_document(DOCUMENT);
  std::istringstream columns(server_.sql(
      "SELECT DISTINCT attname FROM pg_attribute JOIN pg_class ON attrelid = pg_class.oid "
      "WHERE relnamespace = 'trend'::regnamespace AND relkind IN ('r', 'v', 'p') AND attnum > 0"));
  int count = 0;
  for (std::string column; std::getline(columns, column); ++count) {
    EXPECT_THAT(text, HasSubstr("`" + column + "`"));
  }
  EXPECT_GT(count, 30);
}

}  // namespace
