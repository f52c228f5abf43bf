// The order of the stages of a run. The stages here replace the real ones, so that each can fail,
// and so that a selection can succeed without any parameter.
#include <gtest/gtest.h>

#include <cstdio>
#include <functional>
#include <string>
#include <vector>

#include "cli/run.h"
#include "columns/header.h"
#include "output/retrieval.h"
#include "tests/support/scripted_trend_log.h"
#include "tests/support/streams.h"
#include "trendlog/selection.h"

namespace {

/// What the stages return, and whether the selection finds a parameter.
struct Stages {
  int selection_result = 0;
  bool has_param = true;
  int header_result = 0;
  int data_result = 0;
};

Stages stages;

}  // namespace

int select_catalogue(DumpContext& context, const DumpOptions& /*options*/) {
  trend_log_script().calls.emplace_back("selection");
  if (stages.has_param) context.device_params.params.push_back(make_param("p", "v"));
  return stages.selection_result;
}

int print_header_row(DumpContext& context, const DumpOptions& /*options*/) {
  trend_log_script().calls.emplace_back("header");
  std::fputs("header\n", context.out);
  return stages.header_result;
}

int dump_rows(DumpContext& context, const DumpOptions& /*options*/) {
  trend_log_script().calls.emplace_back("data");
  std::fputs("data\n", context.out);
  return stages.data_result;
}

namespace {

using Names = std::vector<std::string>;

class RunStages : public testing::Test {
 protected:
  RunStages() : file_(folder_.file("out.csv")) {
    stages = {};
    trend_log_script() = {};
    write_file(file_, "old content");
  }

  void expect_run(int exit_status, const std::string& err, const std::string& output,
                  const Names& calls) {
    const char* const argv[] = {"trendcsv", "-x", "db", "-d", "dev", "-f", file_.c_str()};
    const ProcessResult result = capture([&] { return run_program(7, argv); });
    EXPECT_EQ(result.exit_status, exit_status);
    EXPECT_EQ(result.err, err);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(read_file(file_), output);
    EXPECT_EQ(trend_log_script().calls, calls);
  }

  TemporaryFolder folder_;
  std::string file_;
};

TEST_F(RunStages, RunInOrder) {
  expect_run(0, "", "header\ndata\n", {"open", "selection", "header", "data", "close", "release"});
}

TEST_F(RunStages, EndWithZeroIfNoParameterIsSelected) {
  stages.has_param = false;
  expect_run(0, "The specified device has no trendable parameters [yet].\n", "",
             {"open", "selection", "close", "release"});
}

TEST_F(RunStages, EndAtAFailedSelection) {
  for (const int result : {1, -1, 2}) {
    stages.selection_result = result;
    trend_log_script().calls.clear();
    expect_run(1, "", "", {"open", "selection", "release"});
  }
}

TEST_F(RunStages, EndAtAFailedSelectionWithoutParameters) {
  stages.selection_result = 1;
  stages.has_param = false;
  expect_run(1, "", "", {"open", "selection", "release"});
}

TEST_F(RunStages, EndAtAFailedHeader) {
  stages.header_result = 1;
  expect_run(1, "", "header\n", {"open", "selection", "header", "release"});
}

TEST_F(RunStages, EndWithOneIfTheDataReturnsAnythingElse) {
  for (const int result : {1, -1, 5, 256}) {
    stages.data_result = result;
    trend_log_script().calls.clear();
    expect_run(1, "", "header\ndata\n", {"open", "selection", "header", "data", "release"});
  }
}

}  // namespace
