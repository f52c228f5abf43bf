// The queries of examples/grafana-dashboard.json, on a real server.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <sstream>
#include <utility>

#include "libtrend/archive.h"
#include "tests/support/archive_server.h"
#include "tests/support/document.h"
#include "tests/support/process.h"

namespace {

/// Two parameters, one with a quote in its name; the second row is half valid and has no average.
constexpr const char* ROWS =
    "Date,Time,Percent Valid,flow:.ValueIntAvg,flow:.ValueIntSum,"
    "it's:.ValueIntMin,it's:.ValueIntMax,it's:Value\n"
    "2024-03-05,01:00,100,1.5,90,2,4,3\n"
    "2024-03-05,02:00,50,,30,5,7,6\n"
    "2024-03-06,01:00,100,2.5,150,8,10,9\n"
    "2024-04-01,00:00,100,99,99,99,99,99\n";

std::string replace_all(std::string text, const std::string& from, const std::string& to) {
  for (std::size_t at = text.find(from); at != std::string::npos; at = text.find(from, at)) {
    text.replace(at, from.size(), to);
    at += to.size();
  }
  return text;
}

class Dashboard : public testing::Test {
 protected:
  Dashboard() {
    const std::string url = server_.url("trend");
    std::string error;
    EXPECT_EQ(toolkit::trend::create_archive(url, {}, error), 0) << error;
    for (const char* device : {"the 'pump'", "other"}) {
      const ProcessResult result =
          run_tool("trendload", {"-x", url, "-d", device, "-i", "60", "-u"}, ROWS);
      EXPECT_EQ(result.exit_status, 0) << result.err;
    }
  }

  /// The texts in the dashboard that `path` leads to, one in a line.
  [[nodiscard]] std::string find(const std::string& path) const {
    return server_.sql("SELECT found #>> '{}' FROM jsonb_path_query($json$" +
                       read_document("examples/grafana-dashboard.json") + "$json$, '" + path +
                       "') AS found");
  }
  /// Runs a query with what Grafana puts in the place of its variables, as somebody who may only
  /// read.
  [[nodiscard]] std::string run(std::string query) const {
    query = replace_all(query, "${device:sqlstring}", "'the ''pump'''");
    query = replace_all(query, "${parameter:sqlstring}", "'flow','it''s'");
    query = replace_all(query, "$__timeFilter(time)",
                        "time BETWEEN '2024-03-01T00:00:00Z' AND '2024-03-31T00:00:00Z'");
    EXPECT_EQ(query.find('$'), std::string::npos) << query;
    const ProcessResult result = server_.psql(query, {"-U", "ann"});
    EXPECT_EQ(result.err, "") << query;
    return result.out;
  }

  ArchiveServer server_;
};

TEST_F(Dashboard, QueriesReturnTheRowsOfTheirPanels) {
  server_.sql(read_sql("docs/archive.md", "reader.sql"));
  server_.sql("CREATE ROLE ann LOGIN IN ROLE trend_reader");
  const std::array<std::pair<std::string, std::string>, 6> panels = {{
      {"Averages", "2024-03-05 01:00:00+00|flow|1.5\n2024-03-06 01:00:00+00|flow|2.5\n"},
      {"Minimum and maximum",
       "2024-03-05 01:00:00+00|it's maximum|4\n2024-03-05 01:00:00+00|it's minimum|2\n"
       "2024-03-05 02:00:00+00|it's maximum|7\n2024-03-05 02:00:00+00|it's minimum|5\n"
       "2024-03-06 01:00:00+00|it's maximum|10\n2024-03-06 01:00:00+00|it's minimum|8\n"},
      {"Actual values",
       "2024-03-05 01:00:00+00|it's|3\n2024-03-05 02:00:00+00|it's|6\n"
       "2024-03-06 01:00:00+00|it's|9\n"},
      {"Sums per day", "2024-03-05 00:00:00+00|flow|120\n2024-03-06 00:00:00+00|flow|150\n"},
      {"Valid data",
       "2024-03-05 01:00:00+00|60 minutes|1\n2024-03-05 02:00:00+00|60 minutes|0.5\n"
       "2024-03-06 01:00:00+00|60 minutes|1\n"},
      {"Last row of each device",
       "other|2024-04-01 00:00:00+00\nthe 'pump'|2024-04-01 00:00:00+00\n"},
  }};
  std::string titles;
  for (const auto& [title, rows] : panels) {
    titles += title + "\n";
    const std::string query =
        find("$.panels[*] ? (@.title == \"" + title + "\").targets[*].rawSql");
    EXPECT_EQ(run(query), rows) << title;
  }
  EXPECT_EQ(find("$.panels[*].title"), titles);
  EXPECT_EQ(run(find("$.templating.list[*] ? (@.name == \"device\").query")),
            "other\nthe 'pump'\n");
  EXPECT_EQ(run(find("$.templating.list[*] ? (@.name == \"parameter\").query")), "flow\nit's\n");
}

}  // namespace
