// Display names in whole dumps, from all kinds of servers.
#include <gmock/gmock.h>

#include <array>
#include <cerrno>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <vector>

#include "libtrend/recorder.h"
#include "tests/support/failing_call.h"
#include "tests/support/fake_server.h"
#include "tests/support/process.h"
#include "tests/support/redis_server.h"

using testing::StartsWith;
using toolkit::trend::CDeviceProperties;
using toolkit::trend::CParamProperties;
using toolkit::trend::CRecorder;
using toolkit::trend::CSeries;

namespace {

constexpr const char* CANT_CONNECT = "Error: can't connect to CDS\n";
constexpr const char* CANT_FETCH = "Warning: can't fetch display names\n";
constexpr const char* HEADER_OF_PATHS =
    "Date,Time,Level:Value,Boiler/Temp:.ValueIntMin,Boiler/Temp:.ValueIntMax,"
    "Boiler/Temp:.ValueIntAvg,Pump/Run:Value\n";
constexpr const char* ROW = "1970-01-02,00:00,1,2,3,4,5\n";

void check(int status) {
  if (status != 0) throw std::runtime_error("can't record");
}

CParamProperties parameter(const std::string& path, bool has_range) {
  CParamProperties param;
  param.path = path;
  param.has_min = param.has_max = param.has_avg = has_range;
  param.has_actual = !has_range;
  return param;
}

/// Dumps one row of the device "site/plant".
class DisplayNames : public testing::Test {
 protected:
  void SetUp() override {
    CRecorder recorder;
    check(recorder.open(folder_.file("trend.db")));
    check(recorder.begin());
    CDeviceProperties device;
    device.path = "site/plant";
    check(recorder.add_device(device));
    for (CParamProperties param : {parameter("Level", false), parameter("Boiler/Temp", true),
                                   parameter("Pump/Run", false)}) {
      check(recorder.add_param(device, param));
    }
    CSeries series;
    check(recorder.add_series(device, 60, series));
    check(recorder.append(series, 86400, 1, std::array<double, 5>{1, 2, 3, 4, 5}));
    check(recorder.commit());
  }

  /// The socket that the program connects to. It runs in the folder of the test.
  [[nodiscard]] std::string socket_path() const { return folder_.file("cds.sock"); }
  [[nodiscard]] const TemporaryFolder& folder() const { return folder_; }

  [[nodiscard]] ProcessResult dump(const std::vector<std::string>& options,
                                   const Environment& environment = {}) const {
    std::vector<std::string> arguments = {"-x", "trend.db", "-d", "site/plant", "-u", "-m", "1"};
    arguments.insert(arguments.end(), options.begin(), options.end());
    return run_tool("tests/trendcsv_with_local_cds", arguments, "", environment,
                    enter(folder_.path()));
  }

  void expect_dump_with_paths(const std::string& message) const {
    const ProcessResult result = dump({"-n"});
    EXPECT_EQ(result.exit_status, 0);
    EXPECT_EQ(result.err, message);
    EXPECT_EQ(result.out, std::string(HEADER_OF_PATHS) + ROW);
  }

  void expect_dump_with_names(const std::string& header) const {
    const ProcessResult result = dump({"-n"});
    EXPECT_EQ(result.exit_status, 0);
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(result.out, header + "\n" + ROW);
  }

 private:
  const TemporaryFolder folder_;
};

/// Sets a leaf with the command that a user types.
void set_leaf(const RedisServer& server, const std::string& path, const std::string& text) {
  EXPECT_EQ(server.cli({"SET", path, text}), "OK\n");
}

}  // namespace

TEST_F(DisplayNames, ContainTheNamesOfAllLevels) {
  const RedisServer server(socket_path());
  set_leaf(server, "site/plant/Boiler/DisplayName", "Boiler 1");
  set_leaf(server, "site/plant/Boiler/Temp/DisplayName", "Flow temperature");
  set_leaf(server, "site/plant/Level/DisplayName", "Füllstand");
  set_leaf(server, "site/plant/Pump/DisplayName", "Pump");
  set_leaf(server, "site/plant/Pump/Run/DisplayName", "Running");
  expect_dump_with_names(
      "Date,Time,Füllstand,Boiler 1 / Flow temperature (min),Boiler 1 / Flow temperature (max),"
      "Boiler 1 / Flow temperature (avg),Pump / Running");
}

TEST_F(DisplayNames, AreAllThereOrNoneIfACallFails) {
  const RedisServer server(socket_path());
  set_leaf(server, "site/plant/Level/DisplayName", "Level in the tank");
  set_leaf(server, "site/plant/Pump/Run/DisplayName", "Running");
  const std::string names = dump({"-n"}).out;
  ASSERT_NE(names, std::string(HEADER_OF_PATHS) + ROW);
  const std::string mark = folder().file("mark");
  const FailingCall cases[] = {{"connect", ECONNREFUSED},
                               {"connect", EINTR},
                               {"connect", EACCES, true},
                               {"poll", EINTR},
                               {"poll", ENOMEM},
                               {"send", EINTR},
                               {"send", EPIPE},
                               {"send", 0},
                               {"send", 0, true},
                               {"recv", EINTR},
                               {"recv", ECONNRESET},
                               {"recv", EIO, true},
                               {"recv", 0},
                               {"recv", 0, true},
                               {"recv", EAGAIN}};
  for (const FailingCall& failing : cases) {
    bool has_happened = true;
    for (int number = 1; has_happened; ++number) {
      SCOPED_TRACE(std::string(failing.call) + ' ' + std::to_string(number) + ", error " +
                   std::to_string(failing.error) + (failing.lasts ? ", lasting" : ""));
      std::filesystem::remove(mark);
      const ProcessResult result = dump({"-n"}, make_environment(failing, number, mark));
      has_happened = std::filesystem::exists(mark);
      ASSERT_EQ(result.exit_status, 0);
      if (result.err.empty()) {
        ASSERT_EQ(result.out, names);
      } else {
        ASSERT_TRUE(result.err == CANT_FETCH || result.err == CANT_CONNECT) << result.err;
        ASSERT_EQ(result.out, std::string(HEADER_OF_PATHS) + ROW);
      }
    }
  }
}

TEST_F(DisplayNames, ContainThePathsOfLevelsWithoutAName) {
  const RedisServer server(socket_path());
  set_leaf(server, "site/plant/Boiler/DisplayName", "Boiler 1");
  EXPECT_EQ(server.cli({"RPUSH", "site/plant/Boiler/Temp/DisplayName", "a list"}), "1\n");
  set_leaf(server, "site/plant/Pump/Run/DisplayName", "Running");
  set_leaf(server, "Level/DisplayName", "of another device");
  expect_dump_with_names(
      "Date,Time,Level,Boiler 1 / Boiler/Temp (min),Boiler 1 / Boiler/Temp (max),"
      "Boiler 1 / Boiler/Temp (avg),Pump / Running");
}

TEST_F(DisplayNames, ArePathsIfNothingIsPublished) {
  const RedisServer server(socket_path());
  expect_dump_with_names(
      "Date,Time,Level,Boiler / Boiler/Temp (min),Boiler / Boiler/Temp (max),"
      "Boiler / Boiler/Temp (avg),Pump / Pump/Run");
}

TEST_F(DisplayNames, LeaveEmptyLevelsOut) {
  const RedisServer server(socket_path());
  set_leaf(server, "site/plant/Boiler/DisplayName", "");
  set_leaf(server, "site/plant/Boiler/Temp/DisplayName", "Temperature");
  set_leaf(server, "site/plant/Level/DisplayName", "");
  set_leaf(server, "site/plant/Pump/DisplayName", "Pump");
  set_leaf(server, "site/plant/Pump/Run/DisplayName", "");
  expect_dump_with_names("Date,Time,,Temperature (min),Temperature (max),Temperature (avg),Pump");
}

TEST_F(DisplayNames, KeepCommasAndQuotes) {
  const RedisServer server(socket_path());
  set_leaf(server, "site/plant/Level/DisplayName", "\"Level\", tank 2");
  expect_dump_with_names(
      "Date,Time,\"Level\", tank 2,Boiler / Boiler/Temp (min),Boiler / Boiler/Temp (max),"
      "Boiler / Boiler/Temp (avg),Pump / Pump/Run");
}

TEST_F(DisplayNames, CanBeReadByAUserWhoMayOnlyPingAndGet) {
  const RedisServer server(socket_path());
  set_leaf(server, "site/plant/Level/DisplayName", "Level 1");
  EXPECT_EQ(server.cli({"ACL", "SETUSER", "default", "-@all", "+ping", "+mget"}), "OK\n");
  expect_dump_with_names(
      "Date,Time,Level 1,Boiler / Boiler/Temp (min),Boiler / Boiler/Temp (max),"
      "Boiler / Boiler/Temp (avg),Pump / Pump/Run");
}

TEST_F(DisplayNames, ComeAfterThePercentValidColumn) {
  const RedisServer server(socket_path());
  set_leaf(server, "site/plant/Level/DisplayName", "Level 1");
  EXPECT_THAT(dump({"-n", "-pv"}).out, StartsWith("Date,Time,Percent Valid,Level 1,Boiler / "));
}

TEST_F(DisplayNames, AreNotLookedUpWithoutTheOptionOrWithoutAHeader) {
  bool was_contacted = false;
  {
    const FakeServer server(socket_path(), [&](int /*client*/) { was_contacted = true; });
    EXPECT_EQ(dump({}).out, std::string(HEADER_OF_PATHS) + ROW);
    const ProcessResult result = dump({"-n", "-nh"});
    EXPECT_EQ(result.out, ROW);
    EXPECT_EQ(result.err, "");
  }
  EXPECT_FALSE(was_contacted);
}

TEST_F(DisplayNames, FallBackToPathsWithoutAService) { expect_dump_with_paths(CANT_CONNECT); }

TEST_F(DisplayNames, FallBackToPathsIfTheServiceHasStopped) {
  RedisServer server(socket_path());
  set_leaf(server, "site/plant/Level/DisplayName", "Level");
  server.stop();
  expect_dump_with_paths(CANT_CONNECT);
}

TEST_F(DisplayNames, FallBackToPathsIfTheServiceHangs) {
  const RedisServer server(socket_path());
  server.suspend();
  expect_dump_with_paths(CANT_CONNECT);
}

TEST_F(DisplayNames, FallBackToPathsIfTheServiceRequiresAPassword) {
  const RedisServer server(socket_path(), {"--requirepass", "secret"});
  expect_dump_with_paths(CANT_CONNECT);
}

TEST_F(DisplayNames, FallBackToPathsIfTheSocketIsAFile) {
  write_file(socket_path(), "");
  expect_dump_with_paths(CANT_CONNECT);
}

TEST_F(DisplayNames, FallBackToPathsIfTheServiceHangsDuringTheRequest) {
  const FakeServer server(socket_path(), [](int client) {
    answer_ping(client);
    ignore(client);
  });
  expect_dump_with_paths(CANT_FETCH);
}

TEST_F(DisplayNames, FallBackToPathsIfTheServiceDiesDuringTheRequest) {
  const FakeServer server(socket_path(), answer_ping);
  expect_dump_with_paths(CANT_FETCH);
}

TEST_F(DisplayNames, FallBackToPathsIfTheServiceDiesDuringItsAnswer) {
  const FakeServer server(socket_path(), [](int client) {
    answer_ping(client);
    receive_some(client);
    send_text(client, "*5\r\n$6\r\nBoiler\r\n$4\r\nTe");
  });
  expect_dump_with_paths(CANT_FETCH);
}

TEST_F(DisplayNames, FallBackToPathsIfTheServiceRefusesTheRequest) {
  const RedisServer server(socket_path());
  EXPECT_EQ(server.cli({"ACL", "SETUSER", "default", "-@all", "+ping"}), "OK\n");
  expect_dump_with_paths(CANT_FETCH);
}

TEST_F(DisplayNames, FallBackToPathsIfTheServiceAnswersGarbage) {
  const FakeServer server(socket_path(), [](int client) {
    answer_ping(client);
    receive_some(client);
    flood(client, "garbage\r\n");
  });
  expect_dump_with_paths(CANT_FETCH);
}

TEST_F(DisplayNames, OfTheExampleComeFromItsFile) {
  const RedisServer server(socket_path());
  const std::filesystem::path examples = std::filesystem::path(TRENDCSV_SOURCE_DIR) / "examples";
  const std::string names = read_file(examples / "display-names.txt");
  std::string answers;
  for (const char byte : names) answers += byte == '\n' ? "OK\n" : "";
  EXPECT_EQ(server.cli({}, names), answers);

  const std::string db_path = folder().file("weather.db");
  ASSERT_EQ(run_tool("trendload", {"-x", db_path, "-d", "site/weather", "-i", "60", "-u",
                                   examples / "seattle-normals-60.csv"})
                .exit_status,
            0);
  const ProcessResult result = run_tool(
      "tests/trendcsv_with_local_cds", {"-x", db_path, "-d", "site/weather", "-u", "-n", "-m", "1"},
      "", {}, enter(folder().path()));
  EXPECT_EQ(result.err, "");
  EXPECT_EQ(result.out.substr(0, result.out.find('\n')),
            "Date,Time,Air pressure [hPa],Outdoor / Temperature [°C] (min),"
            "Outdoor / Temperature [°C] (max),Outdoor / Temperature [°C] (avg),"
            "Outdoor / Wind [m/s] (max),Outdoor / Wind [m/s] (avg)");
}
