// Names in a database or a file must not reach a terminal as commands to it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>

#include "libtrend/recorder.h"
#include "tests/support/model.h"

using toolkit::trend::CDeviceProperties;
using toolkit::trend::CParamProperties;
using toolkit::trend::CRecorder;
using toolkit::trend::CSeries;

namespace {

using testing::HasSubstr;

constexpr const char* DEVICE = "pump\x1b[2J";
constexpr const char* PARAM = "flow\n\u009b31m\x7f";

/// Records a row of a device whose names have control characters.
void record_pump(const std::string& path) {
  CRecorder recorder;
  CDeviceProperties pump{.path = DEVICE, .aux_text = "\x07\t\xff"};
  CParamProperties flow{.path = PARAM, .has_actual = true};
  CSeries series;
  const double value = 1;
  const bool is_recorded =
      recorder.open(path) == 0 && recorder.begin() == 0 && recorder.add_device(pump) == 0 &&
      recorder.add_param(pump, flow) == 0 && recorder.add_series(pump, 60, series) == 0 &&
      recorder.append(series, 1288612800, 1, {&value, 1}) == 0 && recorder.commit() == 0;
  if (!is_recorded) throw std::runtime_error(recorder.error());
}

class ControlCharacters : public testing::Test {
 protected:
  ControlCharacters() { record_pump(db_); }

  ProcessResult run(std::vector<std::string> arguments, const std::string& input = "") {
    arguments.insert(arguments.begin() + 1, {"-x", db_});
    return run_tool("trendtool", arguments, input, {{"TZ", "UTC0"}});
  }

  TemporaryFolder folder_;
  std::string db_ = folder_.file("trend.db");
};

TEST_F(ControlCharacters, AreEscapedInTables) {
  EXPECT_EQ(run({"list"}).out,
            "device       parameters  intervals  rows  first             last              size  "
            "description\n"
            "pump\\x1b[2J           1          1     1  2010-11-01 12:00  2010-11-01 12:00  24 B  "
            "\\x07\\t\\xff\n");
  EXPECT_THAT(run({"list", "-d", DEVICE}).out, HasSubstr("\nflow\\n\\u009b31m\\x7f  actual\n"));
}

TEST_F(ControlCharacters, AreEscapedInListsOfNames) {
  EXPECT_EQ(run({"list", "--names"}).out, "pump\\x1b[2J\n");
  EXPECT_EQ(run({"list", "--names", "-d", DEVICE}).out, "flow\\n\\u009b31m\\x7f\n");
}

TEST_F(ControlCharacters, StayInCsv) {
  EXPECT_THAT(run({"list", "--format", "csv", "-d", DEVICE}).out,
              HasSubstr(std::string("parameter,\"") + PARAM + "\","));
}

TEST_F(ControlCharacters, AreEscapedInMessages) {
  EXPECT_EQ(run({"export", "-d", DEVICE, "-p", "\x1b"}).err,
            "trendtool: device 'pump\\x1b[2J' has no parameter '\\x1b'; 'trendtool list -d' shows "
            "its parameters\n");
  EXPECT_EQ(run({"remove", "-d", DEVICE}).err,
            "trendtool: nobody can be asked whether to remove device 'pump\\x1b[2J' with 1 row; "
            "with --yes, nobody is asked\n");
  EXPECT_EQ(run({"load", "-u", "-d", "tank", "-i", "60"}, "Date,Time,\x1b]0;x\x07\n").err,
            "trendtool: -:1: column '\\x1b]0;x\\x07' is not a parameter path with a colon and a "
            "statistic\n");
}

TEST_F(ControlCharacters, AreEscapedInMessagesOfTrendload) {
  const std::string missing = folder_.file("\x1b[1m");
  EXPECT_EQ(run_tool("trendload", {"-x", db_, "-d", "tank", "-i", "60", missing}).err,
            "trendload: " + folder_.file("\\x1b[1m") + ": No such file or directory\n");
}

}  // namespace
