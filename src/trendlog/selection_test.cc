#include "trendlog/selection.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "tests/support/scripted_trend_log.h"
#include "tests/support/streams.h"

namespace {

using toolkit::trend::CParamProperties;
using toolkit::trend::CPeriodProperties;
using Names = std::vector<std::string>;
using Numbers = std::vector<std::uint32_t>;

class SelectCatalogue : public testing::Test {
 protected:
  SelectCatalogue() {
    TrendLogScript& script = trend_log_script();
    script = {};
    script.devices = {make_device("boiler"), make_device("pump")};
    script.params = {make_param("b", "n"), make_param("a", "nxvas"), make_param("c/d", "s")};
    script.periods = {make_period(5), make_period(60), make_period(1440)};
    options_.db_path = "db";
    options_.device = "pump";
  }

  /// Selects. The options are to be as validation leaves them: in order, with duplicates at the
  /// end.
  ProcessResult select() {
    return capture([&] { return select_catalogue(context_, options_); });
  }

  void expect_success() {
    const ProcessResult result = select();
    EXPECT_EQ(result.exit_status, 0);
    EXPECT_EQ(result.out + result.err, "");
  }

  void expect_failure(const std::string& message, const Names& calls) {
    const ProcessResult result = select();
    EXPECT_EQ(result.exit_status, 1);
    EXPECT_EQ(result.err, message);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(trend_log_script().calls, calls);
  }

  Names selected_params() const {
    Names paths;
    for (const auto& param : context_.device_params.params) paths.push_back(param.path);
    return paths;
  }

  Numbers selected_intervals() const {
    Numbers intervals;
    for (const auto& period : context_.periods) intervals.push_back(period.interval);
    return intervals;
  }

  DumpOptions options_;
  DumpContext context_;
};

const Names UP_TO_DEVICES = {"get_devices"};
const Names UP_TO_PARAMS = {"get_devices", "get_params"};
const Names ALL_CALLS = {"get_devices", "get_params", "get_periods"};

TEST_F(SelectCatalogue, AsksForEachListOnceInOrder) {
  expect_success();
  EXPECT_EQ(trend_log_script().calls, ALL_CALLS);
}

TEST_F(SelectCatalogue, SetsTheTimeRangeAndTheRowsToSkip) {
  options_.start_time = 100;
  options_.end_time = 50;
  options_.offset = 7;
  expect_success();
  EXPECT_EQ(context_.range_start, 100);
  EXPECT_EQ(context_.range_end, 50);
  EXPECT_EQ(context_.skip, 7U);
}

TEST_F(SelectCatalogue, LeavesTheTimeRangeOpenByDefault) {
  expect_success();
  EXPECT_EQ(context_.range_start, -1);
  EXPECT_EQ(context_.range_end, -1);
  EXPECT_EQ(context_.skip, 0U);
}

TEST_F(SelectCatalogue, ReportsAFailedDeviceList) {
  for (const int status : {-1, 1, 22}) {
    trend_log_script().calls.clear();
    trend_log_script().devices_statuses = {{1, status}};
    expect_failure("Error: can't fetch device list\n", UP_TO_DEVICES);
  }
}

TEST_F(SelectCatalogue, ReportsAnUnknownDevice) {
  options_.device = "fan";
  expect_failure("Error: device 'fan' is not trended\n", UP_TO_DEVICES);
}

TEST_F(SelectCatalogue, ReportsAnUnknownDeviceOfAnEmptyLog) {
  trend_log_script().devices.clear();
  expect_failure("Error: device 'pump' is not trended\n", UP_TO_DEVICES);
}

TEST_F(SelectCatalogue, MatchesTheDeviceByteForByte) {
  for (const char* name : {"Pump", "pump/", "pum", "pump ", "/pump", "pump%s"}) {
    trend_log_script().calls.clear();
    options_.device = name;
    expect_failure("Error: device '" + std::string(name) + "' is not trended\n", UP_TO_DEVICES);
  }
}

TEST_F(SelectCatalogue, TakesTheFirstOfTwoDevicesWithOnePath) {
  trend_log_script().devices = {make_device("boiler"), make_device("pump"), make_device("pump")};
  trend_log_script().devices[1].aux_1 = 11;
  trend_log_script().devices[2].aux_1 = 22;
  expect_success();
  EXPECT_EQ(context_.device_params.device.aux_1, 11);
}

TEST_F(SelectCatalogue, PassesTheDeviceRecordUnchanged) {
  trend_log_script().devices[1].aux_text = "in the cellar";
  trend_log_script().devices[1].aux_1 = -12345678901234;
  expect_success();
  ASSERT_EQ(trend_log_script().params_devices.size(), 1U);
  EXPECT_TRUE(trend_log_script().params_devices[0] == trend_log_script().devices[1]);
  EXPECT_TRUE(context_.device_params.device == trend_log_script().devices[1]);
}

TEST_F(SelectCatalogue, ReportsAFailedParameterList) {
  for (const int status : {-1, 3}) {
    trend_log_script().calls.clear();
    trend_log_script().params_statuses = {{1, status}};
    expect_failure("Error: can't fetch parameter list\n", UP_TO_PARAMS);
  }
}

TEST_F(SelectCatalogue, ReportsADeviceWithoutParameters) {
  trend_log_script().params.clear();
  expect_failure("Device 'pump' exists in the log, but contains no trendable parameters.\n",
                 UP_TO_PARAMS);
}

TEST_F(SelectCatalogue, ReportsADeviceWithoutParametersFirst) {
  trend_log_script().params.clear();
  options_.params = {"a"};
  expect_failure("Device 'pump' exists in the log, but contains no trendable parameters.\n",
                 UP_TO_PARAMS);
}

TEST_F(SelectCatalogue, ReportsAnUnknownParameterWithTwoBlanks) {
  options_.params = {"a", "z"};
  expect_failure("Error: parameter 'z' on device 'pump'  is not trended\n", UP_TO_PARAMS);
}

TEST_F(SelectCatalogue, ReportsOnlyTheFirstUnknownParameter) {
  options_.params = {"y", "z"};
  options_.intervals = {7};
  expect_failure("Error: parameter 'y' on device 'pump'  is not trended\n", UP_TO_PARAMS);
}

TEST_F(SelectCatalogue, MatchesParametersByteForByte) {
  for (const char* name : {"A", "a/", "c", "d", "c/d/"}) {
    trend_log_script().calls.clear();
    options_.params = {name};
    expect_failure(
        "Error: parameter '" + std::string(name) + "' on device 'pump'  is not trended\n",
        UP_TO_PARAMS);
  }
}

TEST_F(SelectCatalogue, SelectsNamedParametersInTheirOrder) {
  trend_log_script().params = {make_param("b", "n"), make_param("a/z", "n"), make_param("B", "n")};
  options_.params = {"B", "a/z", "b"};
  expect_success();
  EXPECT_EQ(selected_params(), (Names{"B", "a/z", "b"}));
}

TEST_F(SelectCatalogue, SelectsParametersTypedTwiceTwice) {
  options_.params = {"a", "b", "b"};
  expect_success();
  EXPECT_EQ(selected_params(), (Names{"a", "b", "b"}));
}

TEST_F(SelectCatalogue, SelectsDuplicatesAfterTheOtherNames) {
  options_.params = {"a", "b", "a"};
  expect_success();
  EXPECT_EQ(selected_params(), (Names{"a", "b", "a"}));
}

TEST_F(SelectCatalogue, CopiesTheWholeRecordOfAParameter) {
  CParamProperties param = make_param("p", "xs");
  param.aux_1 = 1;
  param.aux_2 = 4294967295U;
  param.aux_3 = 3;
  trend_log_script().params.push_back(param);
  options_.params = {"p"};
  expect_success();
  ASSERT_EQ(context_.device_params.params.size(), 1U);
  EXPECT_TRUE(context_.device_params.params[0] == param);
}

TEST_F(SelectCatalogue, TakesTheFirstOfTwoParametersWithOnePath) {
  trend_log_script().params = {make_param("a", "n"), make_param("a", "xs")};
  options_.params = {"a"};
  expect_success();
  ASSERT_EQ(context_.device_params.params.size(), 1U);
  EXPECT_TRUE(context_.device_params.params[0] == make_param("a", "n"));
}

TEST_F(SelectCatalogue, SelectsAllParametersInFolderOrder) {
  trend_log_script().params = {make_param("b/x", "n"), make_param("a", "n"),
                               make_param("b/a/y", "n"), make_param("d", "n"),
                               make_param("a/z", "n")};
  expect_success();
  EXPECT_EQ(selected_params(), (Names{"a", "d", "a/z", "b/x", "b/a/y"}));
}

TEST_F(SelectCatalogue, KeepsDuplicatesAmongAllParameters) {
  trend_log_script().params = {make_param("b", "n"), make_param("a", "x"), make_param("b", "n")};
  expect_success();
  EXPECT_EQ(selected_params(), (Names{"a", "b", "b"}));
}

TEST_F(SelectCatalogue, ReportsAFailedPeriodList) {
  for (const int status : {-1, 1}) {
    trend_log_script().calls.clear();
    trend_log_script().periods_statuses = {{1, status}};
    expect_failure("Error: can't fetch period list\n", ALL_CALLS);
  }
}

TEST_F(SelectCatalogue, SelectsAllIntervalsInTheOrderOfTheLog) {
  trend_log_script().periods = {make_period(60), make_period(5), make_period(60)};
  expect_success();
  EXPECT_EQ(selected_intervals(), (Numbers{60, 5, 60}));
}

TEST_F(SelectCatalogue, SelectsNamedIntervalsInTheirOrder) {
  options_.intervals = {5, 1440};
  expect_success();
  EXPECT_EQ(selected_intervals(), (Numbers{5, 1440}));
}

TEST_F(SelectCatalogue, CopiesTheWholeRecordOfTheFirstOfTwoIntervals) {
  CPeriodProperties period = make_period(60);
  period.aux_1 = 9;
  trend_log_script().periods.insert(trend_log_script().periods.begin(), period);
  options_.intervals = {60};
  expect_success();
  ASSERT_EQ(context_.periods.size(), 1U);
  EXPECT_TRUE(context_.periods[0] == period);
}

TEST_F(SelectCatalogue, TakesZeroForTheFirstInterval) {
  options_.intervals = {0};
  expect_success();
  EXPECT_EQ(selected_intervals(), (Numbers{5}));
}

TEST_F(SelectCatalogue, TakesZeroForTheFirstIntervalNotForOneOfZeroMinutes) {
  trend_log_script().periods = {make_period(60), make_period(0)};
  options_.intervals = {0};
  expect_success();
  EXPECT_EQ(selected_intervals(), (Numbers{60}));
}

TEST_F(SelectCatalogue, SelectsTheSmallestIntervalTwiceForZeroAndItsLength) {
  options_.intervals = {0, 5};
  expect_success();
  EXPECT_EQ(selected_intervals(), (Numbers{5, 5}));
}

TEST_F(SelectCatalogue, SelectsDuplicateIntervalsToo) {
  options_.intervals = {5, 60, 5, 60};
  expect_success();
  EXPECT_EQ(selected_intervals(), (Numbers{5, 60, 5, 60}));
}

TEST_F(SelectCatalogue, ReportsAnUnknownInterval) {
  options_.intervals = {60, 7};
  expect_failure("Error: interval 7 is not trended\n", ALL_CALLS);
}

TEST_F(SelectCatalogue, ComparesAllBitsOfIntervals) {
  if constexpr (sizeof(long) > 4) {
    options_.intervals = {static_cast<unsigned long>(4294967301)};
    expect_failure("Error: interval 4294967301 is not trended\n", ALL_CALLS);
  } else {
    options_.intervals = {4294967295U};
    expect_failure("Error: interval 4294967295 is not trended\n", ALL_CALLS);
  }
}

TEST_F(SelectCatalogue, ReportsEveryIntervalOfALogWithoutIntervals) {
  trend_log_script().periods.clear();
  options_.intervals = {0};
  expect_failure("Error: interval 0 is not trended\n", ALL_CALLS);
  trend_log_script().calls.clear();
  options_.intervals = {5};
  expect_failure("Error: interval 5 is not trended\n", ALL_CALLS);
}

TEST_F(SelectCatalogue, SelectsNoIntervalsOfALogWithoutIntervals) {
  trend_log_script().periods.clear();
  expect_success();
  EXPECT_TRUE(context_.periods.empty());
}

bool less(const std::string& a, const std::string& b) {
  return param_path_less(make_param(a, ""), make_param(b, ""));
}

/// Compares each path of `sorted` with each other one, and checks that they are in ascending order.
void expect_ascending(const Names& sorted) {
  for (std::size_t i = 0; i < sorted.size(); ++i) {
    for (std::size_t j = 0; j < sorted.size(); ++j) {
      EXPECT_EQ(less(sorted[i], sorted[j]), i < j) << sorted[i] << " and " << sorted[j];
    }
  }
}

TEST(ParamPathLess, PutsTopLevelNamesFirst) {
  expect_ascending({"a", "d", "z", "a/b", "b/a", "b/a/a"});
}

TEST(ParamPathLess, PutsAFoldersOwnEntriesBeforeItsSubfolders) {
  expect_ascending({"b/x", "b/z", "b/a/m", "b/a/y", "b/a/a/a"});
}

TEST(ParamPathLess, ComparesByteByByteBetweenFolders) {
  expect_ascending({"a/z", "b/a/y", "c/a", "d/e/f/g", "e/f"});
  expect_ascending({"B", "a", "\xC3\xA4"});
  expect_ascending({"ab/c", "b-b/c", "b/c/d"});
}

TEST(ParamPathLess, MatchesWholeFoldersOnly) {
  // "b/" is not the folder of "bb/a/a".
  expect_ascending({"b/x", "bb/a/a"});
  expect_ascending({"ba/a/a", "bb/x"});
  // '-' comes before '/'.
  expect_ascending({"b-/a/a", "b/x", "b/a/a"});
}

TEST(ParamPathLess, DoesNotCountASlashAtTheStartAsAFolder) {
  EXPECT_TRUE(less("/a/b", "/x"));
  EXPECT_FALSE(less("/x", "/a/b"));
  EXPECT_TRUE(less("/a", "/a/b"));
  // If a folder follows the slash at the start, the rule applies again.
  EXPECT_TRUE(less("/a/x", "/a/b/c"));
}

TEST(ParamPathLess, PutsAnEmptyPathFirst) { expect_ascending({"", "a", "/", "a/b"}); }

TEST(ParamPathLess, IsATotalOrderOfPaths) {
  Names paths = {""};
  for (std::size_t i = 0; paths[i].size() < 5; ++i) {
    for (const char* letter : {"/", "-", "a"}) paths.push_back(paths[i] + letter);
  }
  std::sort(paths.begin(), paths.end(), less);
  for (std::size_t i = 0; i < paths.size(); ++i) {
    for (std::size_t j = 0; j < paths.size(); ++j) {
      ASSERT_EQ(less(paths[i], paths[j]), i < j) << paths[i] << " and " << paths[j];
    }
  }
}

TEST(ParamPathLess, IsFalseForEqualPaths) {
  for (const char* path : {"", "a", "/a", "a/b/c"}) EXPECT_FALSE(less(path, path));
}

}  // namespace
