#include "columns/display_names.h"

#include <gtest/gtest.h>

#include <new>
#include <string>
#include <vector>

#include "tests/support/scripted_cds.h"
#include "tests/support/scripted_trend_log.h"
#include "tests/support/streams.h"

namespace {

using Names = std::vector<std::string>;

const Names ONE_LOOKUP = {"pcd_init", "get_leaves", "pcd_close"};

class FetchDisplayNames : public testing::Test {
 protected:
  FetchDisplayNames() {
    cds_script() = {};
    context_.device_params.device = make_device("D");
  }

  void select(const Names& paths) {
    for (const std::string& path : paths) {
      context_.device_params.params.push_back(make_param(path, "n"));
    }
  }

  /// The names of parameters with these paths.
  Names fetch(const Names& paths) {
    select(paths);
    Names names = {"left from before"};
    const ProcessResult result = capture([&] { return fetch_display_names(context_, names); });
    EXPECT_EQ(result.exit_status, 0);
    EXPECT_EQ(result.out + result.err, "");
    EXPECT_EQ(cds_script().calls, ONE_LOOKUP);
    return names;
  }

  DumpContext context_;
};

TEST_F(FetchDisplayNames, JoinsTheNamesOfAllLevels) {
  cds_script().name_node("D/Boiler", "Boiler 1");
  cds_script().name_node("D/Boiler/Temp", "Flow temperature");
  EXPECT_EQ(fetch({"Boiler/Temp"}), (Names{"Boiler 1 / Flow temperature"}));
}

TEST_F(FetchDisplayNames, ConnectsOnceWithTheDefaultServerAndFlagOne) {
  EXPECT_EQ(fetch({"a", "b/c"}).size(), 2U);
  EXPECT_EQ(cds_script().inits, (std::vector<InitCall>{{true, 1}}));
  EXPECT_EQ(cds_script().foreign_closes, 0);
  EXPECT_TRUE(cds_script().were_replies_empty);
}

TEST_F(FetchDisplayNames, AsksForOneLeafPerLevel) {
  EXPECT_EQ(fetch({"x/y/z"}), (Names{"x / x/y / x/y/z"}));
  EXPECT_EQ(cds_script().requests,
            (std::vector<Names>{{"D/x/DisplayName", "D/x/y/DisplayName", "D/x/y/z/DisplayName"}}));
}

TEST_F(FetchDisplayNames, AsksOnceInOrderWithoutDuplicates) {
  EXPECT_EQ(fetch({"b/y", "a", "b/x", "B", "b/y"}),
            (Names{"b / b/y", "a", "b / b/x", "B", "b / b/y"}));
  EXPECT_EQ(cds_script().requests,
            (std::vector<Names>{{"D/B/DisplayName", "D/a/DisplayName", "D/b/DisplayName",
                                 "D/b/x/DisplayName", "D/b/y/DisplayName"}}));
}

TEST_F(FetchDisplayNames, SortsTheRequestByBytes) {
  // A blank comes before '/', and bytes above 127 come after all others.
  fetch({"a/b", "a c", "\xC3\xA4", "z"});
  EXPECT_EQ(cds_script().requests,
            (std::vector<Names>{{"D/a c/DisplayName", "D/a/DisplayName", "D/a/b/DisplayName",
                                 "D/z/DisplayName", "D/\xC3\xA4/DisplayName"}}));
}

TEST_F(FetchDisplayNames, PairsRepliesWithTheirParameters) {
  cds_script().name_node("D/z", "Last");
  cds_script().name_node("D/a", "First");
  cds_script().name_node("D/m", "Middle");
  EXPECT_EQ(fetch({"z", "a", "m"}), (Names{"Last", "First", "Middle"}));
}

TEST_F(FetchDisplayNames, UsesTheNameOfASharedNodeForAllItsParameters) {
  cds_script().name_node("D/Pump", "Main pump");
  cds_script().name_node("D/Pump/Run", "Running");
  EXPECT_EQ(fetch({"Pump/Run", "Pump/Speed"}),
            (Names{"Main pump / Running", "Main pump / Pump/Speed"}));
}

TEST_F(FetchDisplayNames, FallsBackToThePathOfALevelThatHasNoName) {
  EXPECT_EQ(fetch({"a/b"}), (Names{"a / a/b"}));
}

TEST_F(FetchDisplayNames, FallsBackIfALeafIsMissingOrNotAText) {
  cds_script().leaves["D/a/DisplayName"] = {0, 6, "status 0"};
  cds_script().leaves["D/b/DisplayName"] = {2, 6, "status 2"};
  cds_script().leaves["D/c/DisplayName"] = {1, 5, "type 5"};
  cds_script().leaves["D/d/DisplayName"] = {1, 0, "type 0"};
  cds_script().leaves["D/e/DisplayName"] = {1, 6, "found text"};
  cds_script().leaves["D/f/DisplayName"] = {0xFFFFFFFFU, 6, "status -1"};
  EXPECT_EQ(fetch({"a", "b", "c", "d", "e", "f"}), (Names{"a", "b", "c", "d", "found text", "f"}));
}

TEST_F(FetchDisplayNames, LeavesOutLevelsWithAnEmptyName) {
  cds_script().name_node("D/a", "");
  cds_script().name_node("D/a/b", "Inner");
  cds_script().name_node("D/a/b/c", "");
  cds_script().name_node("D/a/d", "");
  EXPECT_EQ(fetch({"a/b", "a/b/c", "a/d"}), (Names{"Inner", "Inner", ""}));
}

TEST_F(FetchDisplayNames, KeepsCommas) {
  cds_script().name_node("D/a", "Flow, hot, \"main\"");
  EXPECT_EQ(fetch({"a"}), (Names{"Flow, hot, \"main\""}));
}

TEST_F(FetchDisplayNames, ReturnsAnEmptyNameForAnEmptyPath) {
  EXPECT_EQ(fetch({""}), (Names{""}));
  EXPECT_EQ(cds_script().requests, (std::vector<Names>{{}}));
}

TEST_F(FetchDisplayNames, CountsNoLevelForASlashAtTheEnd) {
  EXPECT_EQ(fetch({"a/b/"}), (Names{"a / a/b"}));
  EXPECT_EQ(cds_script().requests, (std::vector<Names>{{"D/a/DisplayName", "D/a/b/DisplayName"}}));
}

TEST_F(FetchDisplayNames, CountsALevelForAnEmptyComponent) {
  EXPECT_EQ(fetch({"a//b"}), (Names{"a / a/ / a//b"}));
  EXPECT_EQ(cds_script().requests,
            (std::vector<Names>{{"D/a//DisplayName", "D/a//b/DisplayName", "D/a/DisplayName"}}));
}

TEST_F(FetchDisplayNames, CountsALevelForASlashAtTheStart) {
  cds_script().name_node("D//a", "Named");
  EXPECT_EQ(fetch({"/a"}), (Names{"Named"}));
  EXPECT_EQ(cds_script().requests, (std::vector<Names>{{"D//DisplayName", "D//a/DisplayName"}}));
}

TEST_F(FetchDisplayNames, LooksUnderTheWholePathOfTheDevice) {
  context_.device_params.device = make_device("/plant/north");
  cds_script().name_node("/plant/north/a", "A");
  EXPECT_EQ(fetch({"a", "b"}), (Names{"A", "b"}));
}

TEST_F(FetchDisplayNames, ReportsAnUnreachableCds) {
  cds_script().is_reachable = false;
  select({"a"});
  Names names = {"left from before"};
  const ProcessResult result = capture([&] { return fetch_display_names(context_, names); });
  EXPECT_EQ(result.exit_status, 1);
  EXPECT_EQ(result.err, "Error: can't connect to CDS\n");
  EXPECT_EQ(result.out, "");
  EXPECT_EQ(names, Names());
  EXPECT_EQ(cds_script().calls, (Names{"pcd_init"}));
}

TEST_F(FetchDisplayNames, ReportsAFailedRequest) {
  for (const int status : {-1, 1}) {
    cds_script() = {};
    cds_script().request_status = status;
    select({"a"});
    Names names = {"left from before"};
    const ProcessResult result = capture([&] { return fetch_display_names(context_, names); });
    EXPECT_EQ(result.exit_status, 1);
    EXPECT_EQ(result.err, "Warning: can't fetch display names\n");
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(names, Names());
    EXPECT_EQ(cds_script().calls, ONE_LOOKUP);
  }
}

TEST_F(FetchDisplayNames, ClosesTheConnectionIfMemoryRunsOut) {
  cds_script().is_out_of_memory = true;
  select({"a"});
  Names names;
  EXPECT_THROW(static_cast<void>(fetch_display_names(context_, names)), std::bad_alloc);
  EXPECT_EQ(cds_script().calls, ONE_LOOKUP);
}

TEST(CdsClient, ConnectsOnlyOnceAndOnlyIfAsked) {
  cds_script() = {};
  {
    const toolkit::CCds idle(0);
    EXPECT_EQ(idle.handle(), nullptr);
  }
  EXPECT_EQ(cds_script().calls, Names());
  {
    toolkit::CCds client(1);
    EXPECT_NE(client.handle(), nullptr);
    EXPECT_EQ(client.connect(1), 0);
    client.close();
    EXPECT_EQ(client.handle(), nullptr);
  }
  EXPECT_EQ(cds_script().calls, (Names{"pcd_init", "pcd_close"}));
}

TEST(CdsClient, TellsIfItCannotConnect) {
  cds_script() = {};
  cds_script().is_reachable = false;
  toolkit::CCds client(0);
  EXPECT_EQ(client.connect(1), -1);
  EXPECT_EQ(client.handle(), nullptr);
}

}  // namespace
