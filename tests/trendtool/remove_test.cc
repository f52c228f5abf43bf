// trendtool remove.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>

#include "libtrend/recorder.h"
#include "tests/support/model.h"
#include "tests/support/terminal.h"

using toolkit::trend::CDeviceProperties;
using toolkit::trend::CParamProperties;
using toolkit::trend::CRecorder;
using toolkit::trend::CSeries;

namespace {

using testing::HasSubstr;

class TrendtoolRemove : public testing::Test {
 protected:
  TrendtoolRemove() {
    CRecorder recorder;
    bool is_recorded = recorder.open(db_) == 0 && recorder.begin() == 0;
    for (const char* path : {"/plant", "/pump"}) {
      CDeviceProperties device{.path = path, .aux_text = ""};
      CParamProperties level{.path = "level", .has_actual = true};
      CSeries fine;
      CSeries coarse;
      const double value = 7;
      is_recorded = is_recorded && recorder.add_device(device) == 0 &&
                    recorder.add_param(device, level) == 0 &&
                    recorder.add_series(device, 5, fine) == 0 &&
                    recorder.add_series(device, 60, coarse) == 0 &&
                    recorder.append(fine, 1290000000, 1, {&value, 1}) == 0 &&
                    recorder.append(fine, 1290000300, 1, {&value, 1}) == 0 &&
                    recorder.append(coarse, 1289998800, 1, {&value, 1}) == 0;
    }
    if (!is_recorded || recorder.commit() != 0) throw std::runtime_error(recorder.error());
    pump_ = dump("/pump");
  }

  ProcessResult remove(std::vector<std::string> more) {
    more.insert(more.begin(), {"remove", "-x", db_, "-u", "-d", "/plant"});
    return run_tool("trendtool", more);
  }

  /// Removes what `more` names, which must succeed.
  void remove_surely(std::vector<std::string> more) {
    more.emplace_back("--yes");
    const ProcessResult result = remove(std::move(more));
    EXPECT_EQ(result.exit_status, 0);
    EXPECT_EQ(result.out + result.err, "");
    EXPECT_EQ(run_tool("trendtool", {"check", "-x", db_}).exit_status, 0);
    EXPECT_EQ(dump("/pump"), pump_);
  }

  std::string dump(const std::string& device) {
    return run_tool("trendcsv", {"-x", db_, "-d", device, "-u", "-nh"}).out;
  }

  /// Removes the device at a terminal, where the user types `answer`.
  ProcessResult remove_at_terminal(const std::string& answer) {
    return run_at_terminal(tool_command("trendtool", {"remove", "-x", db_, "-d", "/plant"}),
                           answer);
  }

  TemporaryFolder folder_;
  std::string db_ = folder_.file("trend.db");
  std::string pump_;  ///< what a dump of the other device prints
};

TEST_F(TrendtoolRemove, RemovesADevice) {
  remove_surely({});
  EXPECT_EQ(run_tool("trendtool", {"list", "-x", db_, "--names"}).out, "/pump\n");
}

TEST_F(TrendtoolRemove, RemovesASeries) {
  remove_surely({"-i", "5"});
  EXPECT_EQ(dump("/plant"), "2010-11-17,13:00,7\n");
}

TEST_F(TrendtoolRemove, RemovesOneRow) {
  remove_surely({"-i", "5", "--at", "2010-11-17T13:20"});
  EXPECT_EQ(dump("/plant"), "2010-11-17,13:25,7\n2010-11-17,13:00,7\n");
}

TEST_F(TrendtoolRemove, SaysWhatIsNotThere) {
  const std::pair<std::vector<std::string>, const char*> cases[] = {
      {{"-i", "7", "--yes"}, "device '/plant' has no rows at the interval of 7 minutes"},
      {{"-i", "60", "--at", "@1290000000", "--yes"},
       "device '/plant' at the interval of 60 minutes has no row at 2010-11-17T13:20:00Z"}};
  for (const auto& [arguments, message] : cases) {
    const ProcessResult result = remove(arguments);
    EXPECT_EQ(result.exit_status, 1);
    EXPECT_EQ(result.err, "trendtool: " + std::string(message) + "\n");
  }
}

TEST_F(TrendtoolRemove, RefusesAWrongCommandLine) {
  for (const std::vector<std::string>& arguments :
       {std::vector<std::string>{"--at", "now", "--yes"},
        {"-i", "0", "--yes"},
        {"-i", "5", "--at", "soon", "--yes"}}) {
    EXPECT_EQ(remove(arguments).exit_status, 2);
  }
}

TEST_F(TrendtoolRemove, AsksNobodyWithoutATerminal) {
  const ProcessResult result = remove({});
  EXPECT_EQ(result.exit_status, 2);
  EXPECT_EQ(result.err,
            "trendtool: nobody can be asked whether to remove device '/plant' with 3 rows; "
            "with --yes, nobody is asked\n");
  EXPECT_NE(dump("/plant"), "");
  // The question could not be seen.
  std::vector<std::string> words = {"/bin/sh", "-c", "exec \"$@\" 2>/dev/null", "sh"};
  for (const std::string& word : tool_command("trendtool", {"remove", "-x", db_, "-d", "/plant"})) {
    words.push_back(word);
  }
  EXPECT_EQ(run_at_terminal(words, "y\n").exit_status, 2);
  EXPECT_NE(dump("/plant"), "");
}

TEST_F(TrendtoolRemove, RemovesAfterAYesAlone) {
  ProcessResult result = remove_at_terminal("n\n");
  EXPECT_EQ(result.exit_status, 1);
  EXPECT_THAT(result.out, HasSubstr("Remove device '/plant' with 3 rows? [y/N] "));
  EXPECT_THAT(result.out, HasSubstr("trendtool: nothing was removed"));
  EXPECT_NE(dump("/plant"), "");
  // The end of the input is no answer.
  EXPECT_EQ(remove_at_terminal("\004").exit_status, 1);
  for (const char* answer : {"y\n", "Y\n", "yes\n"}) {
    result = remove_at_terminal(answer);
    EXPECT_EQ(result.exit_status, 0);
    EXPECT_EQ(run_tool("trendtool", {"list", "-x", db_, "--names"}).out, "/pump\n");
    ModelLog plant{.device = "/plant", .params = {{"a", AVG}}, .minutes = {5}, .rows = {}};
    plant.rows = {{5, 300, 1, {1}}, {5, 600, 1, {2}}, {5, 900, 1, {3}}};
    record(plant, db_);
  }
}

}  // namespace
