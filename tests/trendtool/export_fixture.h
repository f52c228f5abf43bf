// What the tests of trendtool export share.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "tests/support/model.h"

class TrendtoolExport : public testing::Test {
 protected:
  ProcessResult run_export(std::vector<std::string> more, const Environment& environment = {}) {
    std::vector<std::string> arguments = {"export", "-x", db_};
    arguments.insert(arguments.end(), more.begin(), more.end());
    return run_tool("trendtool", arguments, "", environment);
  }

  /// Exports, which must succeed without a message.
  std::string exported(std::vector<std::string> more, const char* zone = "UTC0") {
    const ProcessResult result = run_export(std::move(more), {{"TZ", zone}});
    EXPECT_EQ(result.exit_status, 0);
    EXPECT_EQ(result.err, "");
    return result.out;
  }

  /// Records two devices with a row each, and one with none.
  void record_three() {
    ModelLog one{
        .device = "/one", .params = {{"a", AVG}, {"b", MIN}}, .minutes = {5, 60}, .rows = {}};
    one.rows = {{5, 600, 1, {1, 2}}, {60, 3600, 1, {3, 4}}};
    ModelLog two{.device = "/two", .params = {{"b", MIN | MAX}}, .minutes = {5}, .rows = {}};
    two.rows = {{5, 900, 0.5, {5, 6}}};
    record(one, db_);
    record(two, db_);
    record({.device = "/none", .params = {{"c", SUM}}, .minutes = {}, .rows = {}}, db_);
  }

  TemporaryFolder folder_;
  std::string db_ = folder_.file("trend.db");
};
