// One archive over three servers, as docs/fleet.md sets it up, and backups.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "libtrend/archive.h"
#include "tests/support/archive_server.h"
#include "tests/support/document.h"
#include "tests/support/model.h"

namespace {

using testing::HasSubstr;

constexpr const char* DOCUMENT = "docs/fleet.md";
constexpr int DEVICES = 6;

std::string device_name(int device) { return "/plant/" + std::to_string(device); }

/// What the programs find of one device.
ProcessResult dump(const std::string& url, int device, const std::vector<std::string>& more = {}) {
  std::vector<std::string> arguments = {"-x", url, "-d", device_name(device), "-u"};
  arguments.insert(arguments.end(), more.begin(), more.end());
  return run_tool("trendcsv", arguments);
}

/// A coordinator and two data servers, and the same rows in an archive on one server.
struct Servers {
  Servers() {
    std::string error;
    for (const ArchiveServer* server : {&data[0], &data[1], &coordinator}) {
      EXPECT_EQ(toolkit::trend::create_archive(server->url("trend"), {.partitions = 4}, error), 0)
          << error;
    }
    for (const ArchiveServer& server : data) server.sql(read_sql(DOCUMENT, "data.sql"));
    const ProcessResult result =
        coordinator.psql(read_sql(DOCUMENT, "coordinator.sql"),
                         {"-v", "data1=" + data[0].folder(), "-v", "data2=" + data[1].folder()});
    EXPECT_EQ(result.err, "");

    Random random(7);
    for (int device = 0; device < DEVICES; ++device) {
      ModelLog log = random_log(random, false);
      log.device = device_name(device);
      for (const std::string& url : {fleet, one}) record(log, url);
    }
  }

  ArchiveServer data[2];
  ArchiveServer coordinator;
  std::string fleet = coordinator.url("trend");
  std::string one = coordinator.make_archive();
};

class Fleet : public testing::Test {
 protected:
  static void SetUpTestSuite() { servers_ = new Servers; }
  static void TearDownTestSuite() { delete servers_; }

  /// A device whose rows are all on the data server `number`, which is 1 or 2.
  [[nodiscard]] static int find_device(int number) {
    const std::string paths = servers_->coordinator.sql(
        "SELECT device.path FROM trend.snapshot JOIN trend.series ON series.id = series_id "
        "JOIN trend.device ON device.id = device_id "
        "JOIN pg_foreign_table ON ftrelid = snapshot.tableoid "
        "JOIN pg_foreign_server ON pg_foreign_server.oid = ftserver "
        "GROUP BY device.path HAVING min(srvname) = max(srvname) AND min(srvname) = 'data" +
        std::to_string(number) + "' ORDER BY device.path LIMIT 1");
    EXPECT_TRUE(paths.starts_with("/plant/")) << "no device on data server " << number;
    return std::stoi(paths.substr(paths.rfind('/') + 1));
  }
  /// A time amid the rows of a device.
  [[nodiscard]] static std::string find_middle(int device) {
    std::string time = servers_->coordinator.sql(
        "SELECT to_char(percentile_disc(0.5) WITHIN GROUP (ORDER BY time) AT TIME ZONE 'UTC', "
        "'YYYY-MM-DD HH24:MI') FROM archive_1.trend_row_all WHERE device = '" +
        device_name(device) + "'");
    time.pop_back();
    return time;
  }
  /// Loads one row of a series that the device has already.
  static ProcessResult load(int device, const std::string& date) {
    std::string minutes = servers_->coordinator.sql(
        "SELECT min(minutes) FROM trend.series JOIN trend.device ON device.id = device_id "
        "WHERE path = '" +
        device_name(device) + "'");
    minutes.pop_back();
    return run_tool("trendload",
                    {"-x", servers_->fleet, "-d", device_name(device), "-i", minutes, "-u"},
                    "Date,Time,late:.ValueIntAvg\n" + date + ",00:00,5\n");
  }

  static Servers* servers_;
};

Servers* Fleet::servers_ = nullptr;

TEST_F(Fleet, HasTheRowsOnTheDataServers) {
  EXPECT_EQ(servers_->coordinator.sql("SELECT count(*) FROM ONLY trend.snapshot"), "0\n");
  long rows = 0;
  for (const ArchiveServer& server : servers_->data) {
    const long part = std::stol(server.sql("SELECT count(*) FROM trend.snapshot"));
    EXPECT_GT(part, 0);
    rows += part;
  }
  EXPECT_EQ(servers_->coordinator.sql("SELECT count(*) FROM archive_1.snapshot"),
            std::to_string(rows) + "\n");
}

TEST_F(Fleet, IsDumpedLikeOneServer) {
  for (int device = 0; device < DEVICES; ++device) {
    const std::string middle = find_middle(device);
    for (const std::vector<std::string>& more :
         {std::vector<std::string>{}, {"-a"}, {"-a", "-s", middle}, {"-m", "3", "-o", "2"}}) {
      const ProcessResult expected = dump(servers_->one, device, more);
      EXPECT_EQ(expected.err, "");
      EXPECT_GT(std::count(expected.out.begin(), expected.out.end(), '\n'), 1);
      const ProcessResult result = dump(servers_->fleet, device, more);
      EXPECT_EQ(result.err, "");
      EXPECT_EQ(result.out, expected.out);
      EXPECT_EQ(result.exit_status, expected.exit_status);
    }
  }
}

TEST_F(Fleet, IsCopiedLikeOneServer) {
  const TemporaryFolder folder;
  const std::string file = folder.file("copy.db");
  const ProcessResult copied = run_tool("trendtool", {"copy", "-x", servers_->fleet, file});
  EXPECT_EQ(copied.exit_status, 0) << copied.err;
  const std::string back = servers_->coordinator.make_archive(3);
  const ProcessResult returned = run_tool("trendtool", {"copy", "-x", file, back});
  EXPECT_EQ(returned.exit_status, 0) << returned.err;
  for (int device = 0; device < DEVICES; ++device) {
    EXPECT_EQ(dump(file, device).out, dump(servers_->one, device).out);
    EXPECT_EQ(dump(back, device).out, dump(servers_->one, device).out);
  }
}

TEST_F(Fleet, HasTheSameViewsAsOneServer) {
  for (const char* view : {"trend_row", "trend_row_all", "trend_value", "trend_value_all"}) {
    std::string results[2];
    for (const int i : {0, 1}) {
      results[i] = servers_->coordinator.sql(
          std::string("SELECT * FROM ") + (i == 0 ? "trend." : "archive_1.") + view +
          " AS found ORDER BY device, minutes, time, found::text");
    }
    EXPECT_GT(results[0].size(), 1000U);
    EXPECT_EQ(results[0], results[1]) << view;
  }
}

TEST_F(Fleet, AsksOneServerForTheRowsOfASeries) {
  for (int series = 1; series <= 4; ++series) {
    const std::string condition = "series_id = " + std::to_string(series);
    const std::string plan = servers_->coordinator.sql(
        "EXPLAIN (VERBOSE) SELECT time, valid_ratio, samples[1:3] FROM trend.snapshot WHERE " +
        condition + " AND time BETWEEN '2000-01-01' AND '2030-01-01' ORDER BY time DESC LIMIT 512");
    const std::size_t scan = plan.find("Foreign Scan on trend.snapshot_");
    ASSERT_NE(scan, std::string::npos) << plan;
    EXPECT_EQ(plan.find("Foreign Scan", scan + 1), std::string::npos) << plan;
    EXPECT_THAT(plan, HasSubstr(condition));
    EXPECT_THAT(plan, HasSubstr("ORDER BY \"time\" DESC"));
  }
}

TEST_F(Fleet, ObeysTheRolesOfTheCoordinator) {
  const ArchiveServer& coordinator = servers_->coordinator;
  for (const char* file : {"reader.sql", "writer.sql", "users.sql"}) {
    coordinator.sql(read_sql("docs/archive.md", file));
  }
  EXPECT_EQ(dump(coordinator.url("trend", "ann"), 0).out, dump(servers_->one, 0).out);
  EXPECT_THAT(coordinator.psql("DELETE FROM trend.snapshot", {"-U", "ann"}).err,
              HasSubstr("permission denied"));
  const ProcessResult result = run_tool(
      "trendload", {"-x", coordinator.url("trend", "recorder"), "-d", "new", "-i", "5", "-u"},
      "Date,Time,p:.ValueIntAvg\n2024-01-01,00:00,5\n");
  EXPECT_EQ(result.exit_status, 0) << result.err;
}

TEST_F(Fleet, GoesOnWithoutTheDataServerOfOtherDevices) {
  const int stays = find_device(1);
  const int goes = find_device(2);
  servers_->data[1].stop();
  EXPECT_EQ(dump(servers_->fleet, stays).out, dump(servers_->one, stays).out);
  EXPECT_EQ(dump(servers_->fleet, stays).err, "");
  const std::vector<std::string> oldest_first = {"-a", "-s", find_middle(stays)};
  EXPECT_EQ(dump(servers_->fleet, stays, oldest_first).out,
            dump(servers_->one, stays, oldest_first).out);
  const ProcessResult cut = dump(servers_->fleet, goes);
  EXPECT_EQ(cut.exit_status, 1);
  EXPECT_EQ(cut.err, "Error: couldn't fetch chunk\n");
  EXPECT_EQ(std::count(cut.out.begin(), cut.out.end(), '\n'), 1) << "only the header";
  EXPECT_EQ(load(stays, "2091-01-01").err, "");
  EXPECT_THAT(load(goes, "2091-01-01").err, HasSubstr("could not connect to server \"data2\""));
  servers_->data[1].restart();
  EXPECT_EQ(dump(servers_->fleet, goes).out, dump(servers_->one, goes).out);
}

TEST(ArchiveBackup, IsRestoredByPgRestore) {
  const ArchiveServer server;
  std::string error;
  ASSERT_EQ(toolkit::trend::create_archive(server.url("trend"), {.partitions = 2}, error), 0)
      << error;
  Random random(5);
  ModelLog log = random_log(random, false);
  log.device = device_name(0);
  record(log, server.url("trend"));
  const std::string before = dump(server.url("trend"), 0).out;
  ASSERT_GT(before.size(), 100U);

  const TemporaryFolder folder;
  const std::string file = folder.file("trends.dump");
  const std::vector<std::string> where = {"-h", server.folder(), "-U", "trend"};
  const auto run = [&](std::vector<std::string> command, const std::vector<std::string>& rest) {
    command.insert(command.end(), where.begin(), where.end());
    command.insert(command.end(), rest.begin(), rest.end());
    const ProcessResult result = run_process(command);
    EXPECT_EQ(result.exit_status, 0) << result.err;
  };
  run({"pg_dump"}, {"-Fc", "-f", file, "trends"});
  run({"createdb"}, {"restored"});
  run({"pg_restore"}, {"-d", "restored", file});
  std::string url = server.url("trend");
  url.replace(url.find("/trends"), 7, "/restored");
  EXPECT_EQ(dump(url, 0).out, before);
  EXPECT_EQ(run_tool("trendtool", {"check", "-x", url}).exit_status, 0);
  // New rows get new numbers, too.
  log.device = device_name(1);
  record(log, url);
  EXPECT_NE(dump(url, 1).out, "");
}

}  // namespace
