#include "columns/header.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <new>
#include <string>
#include <vector>

#include "tests/support/scripted_cds.h"
#include "tests/support/scripted_trend_log.h"
#include "tests/support/streams.h"

namespace {

using Names = std::vector<std::string>;

class PrintHeaderRow : public testing::Test {
 protected:
  PrintHeaderRow() {
    cds_script() = {};
    context_.device_params.device = make_device("D");
    context_.out = std::tmpfile();
  }

  void select(const std::string& path, const std::string& flags) {
    context_.device_params.params.push_back(make_param(path, flags));
  }

  /// Returns the header row, and checks that `err` is what standard error shows.
  std::string header(const std::string& err = "") {
    const ProcessResult result = capture([&] { return print_header_row(context_, options_); });
    EXPECT_EQ(result.exit_status, 0);
    EXPECT_EQ(result.err, err);
    EXPECT_EQ(result.out, "");
    return read_stream(context_.out);
  }

  DumpOptions options_;
  DumpContext context_;
};

TEST_F(PrintHeaderRow, NamesColumnsByPathAndStatistic) {
  select("Temp", "nxv");
  select("Pump/Run", "a");
  EXPECT_EQ(header(),
            "Date,Time,Temp:.ValueIntMin,Temp:.ValueIntMax,Temp:.ValueIntAvg,Pump/Run:Value\n");
  EXPECT_EQ(cds_script().calls, Names());
}

TEST_F(PrintHeaderRow, NamesColumnsByDisplayNameAndStatistic) {
  cds_script().name_node("D/Temp", "Temperature");
  cds_script().name_node("D/Pump", "Pump");
  cds_script().name_node("D/Pump/Run", "Running");
  options_.display_names = true;
  options_.percent_valid = true;
  select("Temp", "nxv");
  select("Pump/Run", "a");
  EXPECT_EQ(header(),
            "Date,Time,Percent Valid,Temperature (min),Temperature (max),Temperature (avg),Pump / "
            "Running\n");
}

TEST_F(PrintHeaderRow, KeepsTheOrderOfStatistics) {
  select("p", "savxn");
  EXPECT_EQ(header(),
            "Date,Time,p:.ValueIntMin,p:.ValueIntMax,p:.ValueIntAvg,p:Value,p:.ValueIntSum\n");
}

TEST_F(PrintHeaderRow, KeepsTheOrderOfStatisticsOfDisplayNames) {
  cds_script().name_node("D/p", "P");
  options_.display_names = true;
  select("p", "savxn");
  EXPECT_EQ(header(), "Date,Time,P (min),P (max),P (avg),P (actual),P (sum)\n");
}

TEST_F(PrintHeaderRow, SuffixesTheOnlyStatisticOfAPath) {
  for (const auto& [flag, name] :
       std::vector<std::pair<std::string, std::string>>{{"n", "Level:.ValueIntMin"},
                                                        {"x", "Level:.ValueIntMax"},
                                                        {"v", "Level:.ValueIntAvg"},
                                                        {"a", "Level:Value"},
                                                        {"s", "Level:.ValueIntSum"}}) {
    context_.device_params.params = {make_param("Level", flag)};
    Names columns = {"left from before"};
    EXPECT_EQ(build_column_names(context_, false, columns), 0);
    EXPECT_EQ(columns, Names{name});
  }
}

TEST_F(PrintHeaderRow, LeavesTheOnlyStatisticOfADisplayNameBare) {
  cds_script().name_node("D/Level", "Tank level");
  for (const char* flag : {"n", "x", "v", "a", "s"}) {
    context_.device_params.params = {make_param("Level", flag)};
    Names columns = {"left from before"};
    EXPECT_EQ(build_column_names(context_, true, columns), 0);
    EXPECT_EQ(columns, Names{"Tank level"});
  }
}

TEST_F(PrintHeaderRow, SuffixesBothOfTwoStatisticsOfADisplayName) {
  cds_script().name_node("D/p", "P");
  options_.display_names = true;
  select("p", "as");
  EXPECT_EQ(header(), "Date,Time,P (actual),P (sum)\n");
}

TEST_F(PrintHeaderRow, WritesNoColumnForAParameterWithoutStatistics) {
  select("none", "");
  EXPECT_EQ(header(), "Date,Time\n");
  options_.percent_valid = true;
  EXPECT_EQ(header(), "Date,Time\nDate,Time,Percent Valid\n");
}

TEST_F(PrintHeaderRow, WritesNoNamedColumnForAParameterWithoutStatistics) {
  cds_script().name_node("D/b", "B");
  options_.display_names = true;
  options_.percent_valid = true;
  select("a", "");
  select("b", "v");
  select("c", "");
  EXPECT_EQ(header(), "Date,Time,Percent Valid,B\n");
}

TEST_F(PrintHeaderRow, KeepsTheOrderOfParametersAndRepeatsThem) {
  select("b", "a");
  select("a", "a");
  select("b", "a");
  EXPECT_EQ(header(), "Date,Time,b:Value,a:Value,b:Value\n");
}

TEST_F(PrintHeaderRow, LeavesAFieldEmptyForAnEmptyDisplayName) {
  cds_script().name_node("D/a", "");
  cds_script().name_node("D/b", "B");
  options_.display_names = true;
  select("a", "v");
  select("b", "v");
  select("a", "v");
  EXPECT_EQ(header(), "Date,Time,,B,\n");
}

TEST_F(PrintHeaderRow, QuotesNothing) {
  cds_script().name_node("D/a", "hot, \"main\"");
  options_.display_names = true;
  select("a", "v");
  select("b,\"c\"", "v");
  EXPECT_EQ(header(), "Date,Time,hot, \"main\",b,\"c\"\n");
}

TEST_F(PrintHeaderRow, WritesPathsWithCommasAndPercentSignsAsTheyAre) {
  select("a,b%s%n", "v");
  EXPECT_EQ(header(), "Date,Time,a,b%s%n:.ValueIntAvg\n");
}

TEST_F(PrintHeaderRow, WritesNothingIfThereIsToBeNoHeader) {
  options_.print_header = false;
  options_.display_names = true;
  options_.percent_valid = true;
  select("a", "v");
  EXPECT_EQ(header(), "");
  EXPECT_EQ(cds_script().calls, Names());
}

TEST_F(PrintHeaderRow, FallsBackToPathsIfTheCdsIsUnreachable) {
  cds_script().is_reachable = false;
  options_.display_names = true;
  select("a/b", "nv");
  EXPECT_EQ(header("Error: can't connect to CDS\n"),
            "Date,Time,a/b:.ValueIntMin,a/b:.ValueIntAvg\n");
  EXPECT_EQ(cds_script().calls, (Names{"pcd_init"}));
}

TEST_F(PrintHeaderRow, FallsBackToPathsIfTheRequestFails) {
  cds_script().request_status = -1;
  options_.display_names = true;
  select("a", "a");
  EXPECT_EQ(header("Warning: can't fetch display names\n"), "Date,Time,a:Value\n");
  EXPECT_EQ(cds_script().calls, (Names{"pcd_init", "get_leaves", "pcd_close"}));
}

TEST_F(PrintHeaderRow, WritesNothingIfMemoryRunsOut) {
  cds_script().is_out_of_memory = true;
  options_.display_names = true;
  select("a", "a");
  EXPECT_THROW(static_cast<void>(print_header_row(context_, options_)), std::bad_alloc);
  EXPECT_EQ(read_stream(context_.out), "");
}

}  // namespace
