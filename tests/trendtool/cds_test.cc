// trendtool with display names from a server.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <stdexcept>

#include "libtrend/recorder.h"
#include "tests/support/fake_server.h"
#include "tests/support/process.h"
#include "tests/support/redis_server.h"

using toolkit::trend::CDeviceProperties;
using toolkit::trend::CParamProperties;
using toolkit::trend::CRecorder;
using toolkit::trend::CSeries;

namespace {

using testing::HasSubstr;
using testing::Not;

class TrendtoolDisplayNames : public testing::Test {
 protected:
  TrendtoolDisplayNames() {
    CRecorder recorder;
    CDeviceProperties plant{.path = "site/plant", .aux_text = ""};
    CParamProperties level{.path = "Level", .has_actual = true};
    CParamProperties flow{.path = "Boiler/Flow", .has_min = true, .has_max = true};
    CSeries series;
    bool is_recorded = recorder.open(folder_.file("trend.db")) == 0 && recorder.begin() == 0 &&
                       recorder.add_device(plant) == 0 && recorder.add_param(plant, level) == 0 &&
                       recorder.add_param(plant, flow) == 0 &&
                       recorder.add_series(plant, 60, series) == 0;
    for (int hour = 1; hour <= 10; ++hour) {
      const std::array<double, 3> values = {1.0 * hour, 2, 3};
      is_recorded = is_recorded && recorder.append(series, 3600 * hour, 1, values) == 0;
    }
    if (!is_recorded || recorder.commit() != 0) throw std::runtime_error(recorder.error());
  }

  /// Runs a subcommand in the folder of the test, where it looks for the socket of the server.
  ProcessResult run(const std::string& command, const std::vector<std::string>& more) {
    std::vector<std::string> arguments = {command, "-x", "trend.db", "-d", "site/plant", "-n"};
    arguments.insert(arguments.end(), more.begin(), more.end());
    return run_tool("tests/trendtool_with_local_cds", arguments, "", {}, enter(folder_.path()));
  }

  /// Runs a subcommand that must succeed without a message, and returns what it prints.
  std::string run_well(const std::string& command, const std::vector<std::string>& more) {
    const ProcessResult result = run(command, more);
    EXPECT_EQ(result.exit_status, 0);
    EXPECT_EQ(result.err, "");
    return result.out;
  }

  TemporaryFolder folder_;
  std::string socket_ = folder_.file("cds.sock");
};

TEST_F(TrendtoolDisplayNames, AreShownInAPicture) {
  const RedisServer server(socket_);
  server.publish("site/plant/Level/DisplayName", "Fill {/=30 level} & <more>");
  server.publish("site/plant/Boiler/DisplayName", "Boiler 1");
  server.publish("site/plant/Boiler/Flow/DisplayName", "Flow");
  run_well("plot", {"-f", "a.svg"});
  const std::string svg = read_file(folder_.file("a.svg"));
  EXPECT_THAT(svg, HasSubstr(">Fill {/=30 level} &amp; &lt;more><"));
  EXPECT_THAT(svg, HasSubstr(">Boiler 1 / Flow<"));
  EXPECT_THAT(svg, Not(HasSubstr(">Level<")));
  EXPECT_THAT(svg, HasSubstr(">site/plant<"));
}

TEST_F(TrendtoolDisplayNames, AreShownInAListAndAnExport) {
  const RedisServer server(socket_);
  server.publish("site/plant/Level/DisplayName", "Fill level");
  server.publish("site/plant/Boiler/DisplayName", "Boiler 1");
  server.publish("site/plant/Boiler/Flow/DisplayName", "Flow");
  EXPECT_EQ(run_well("list", {"--names"}), "Fill level\nBoiler 1 / Flow\n");
  EXPECT_THAT(run_well("list", {"-u"}), HasSubstr("Boiler/Flow  min max     Boiler 1 / Flow\n"));
  EXPECT_THAT(run_well("list", {"--format", "csv"}), HasSubstr("\nparameter,Level,Fill level,"));
  EXPECT_THAT(run_well("list", {"--format", "json"}),
              HasSubstr("{\"path\": \"Level\", \"display_name\": \"Fill level\", "));
  EXPECT_EQ(run_well("export", {"-u", "-m", "1"}),
            "time,interval,Fill level,Boiler 1 / Flow (min),Boiler 1 / Flow (max)\n"
            "1970-01-01T10:00:00Z,60,10,2,3\n");
}

TEST_F(TrendtoolDisplayNames, AreReplacedByPathsWithoutAServer) {
  const ProcessResult result = run("plot", {"-f", "a.svg"});
  EXPECT_EQ(result.exit_status, 0);
  EXPECT_EQ(result.err,
            "trendtool: can't connect to the CDS for display names; paths are shown instead\n");
  EXPECT_THAT(read_file(folder_.file("a.svg")), HasSubstr(">Boiler/Flow<"));
}

TEST_F(TrendtoolDisplayNames, AreReplacedByPathsIfTheServerFails) {
  const FakeServer server(socket_, [](int client) {
    answer_ping(client);
    static_cast<void>(receive_some(client));
    send_text(client, "-ERR out of order\r\n");
  });
  const ProcessResult result = run("list", {"--names"});
  EXPECT_EQ(result.exit_status, 0);
  EXPECT_EQ(result.out, "Level\nBoiler/Flow\n");
  EXPECT_EQ(result.err, "trendtool: can't read the display names; paths are shown instead\n");
}

}  // namespace
