// How programs reach the server of an archive: passwords, services, TLS, a network that fails.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <thread>

#include "libtrend/log.h"
#include "tests/support/archive_server.h"
#include "tests/support/model.h"

namespace {

using testing::HasSubstr;
using toolkit::trend::CDeviceProperties;
using toolkit::trend::CLog;

constexpr const char* ROWS = "Date,Time,p:.ValueIntAvg\n1970-01-01,00:01,5\n";

ArchiveServer& local_server() {
  static ArchiveServer one;
  return one;
}

/// An archive of one row.
class ArchiveAccess : public testing::Test {
 protected:
  explicit ArchiveAccess(ArchiveServer& server = local_server())
      : server_(server), url_(server.make_archive()), schema_(url_.substr(url_.rfind('=') + 1)) {
    ModelLog log;
    log.minutes = {1};
    log.params = {{.path = "p", .statistics = AVG}};
    log.rows = {{.minutes = 1, .time = 60, .values = {5}}};
    record(log, url_);
  }

  [[nodiscard]] static std::vector<std::string> arguments(const std::string& url) {
    return {"-x", url, "-d", "/plant", "-u"};
  }
  /// Dumps the archive at `url` with these variables, and expects its row.
  static void expect_rows(const std::string& url, const Environment& environment) {
    const ProcessResult result = run_tool("trendcsv", arguments(url), "", environment);
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(result.out, ROWS);
  }
  static void expect_refusal(const std::string& url, const Environment& environment) {
    const ProcessResult result = run_tool("trendcsv", arguments(url), "", environment);
    EXPECT_EQ(result.exit_status, 1);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err, "Error opening trend db: '" + url + "'\n");
  }

  ArchiveServer& server_;
  std::string url_;
  std::string schema_;
  TemporaryFolder home_;
};

TEST_F(ArchiveAccess, APasswordComesFromTheFileOfLibpq) {
  server_.sql("CREATE ROLE ann LOGIN PASSWORD 'se:cret' IN ROLE pg_read_all_data");
  write_file(server_.folder() + "/data/pg_hba.conf",
             "local all ann scram-sha-256\nlocal all all trust\n");
  server_.sql("SELECT pg_reload_conf()");
  const std::string url = server_.url(schema_, "ann");
  const Environment environment = {{"HOME", home_.path()}, {"PGPASSFILE", home_.file(".pgpass")}};
  expect_refusal(url, environment);
  write_file(home_.file(".pgpass"), "*:*:trends:ann:se\\:cret\n");
  std::filesystem::permissions(home_.file(".pgpass"), std::filesystem::perms::owner_read |
                                                          std::filesystem::perms::owner_write);
  expect_rows(url, environment);
  write_file(home_.file(".pgpass"), "*:*:trends:ann:wrong\n");
  expect_refusal(url, environment);
}

TEST_F(ArchiveAccess, AServiceNamesTheServer) {
  write_file(home_.file("services"),
             "[plant]\nhost=" + server_.folder() + "\nuser=trend\ndbname=trends\n");
  const Environment services = {{"PGSERVICEFILE", home_.file("services")}};
  expect_rows("postgresql://?service=plant&schema=" + schema_, services);
  expect_refusal("postgresql://?service=other&schema=" + schema_, services);
  expect_rows("postgresql://?schema=" + schema_,
              {{"PGSERVICEFILE", home_.file("services")}, {"PGSERVICE", "plant"}});
  expect_rows("postgresql:///?schema=" + schema_,
              {{"PGHOST", server_.folder()}, {"PGUSER", "trend"}, {"PGDATABASE", "trends"}});
}

ArchiveServer& remote_server() {
  static ArchiveServer one;
  return one;
}

/// The server listens on a network of its own, which no other program of the machine sees.
class ArchiveNetwork : public ArchiveAccess {
 protected:
  ArchiveNetwork() : ArchiveAccess(remote_server()) {}

  void SetUp() override {
    if (geteuid() != 0) GTEST_SKIP() << "only root can make a network";
    const std::string data = server_.folder() + "/data";
    const ProcessResult made =
        run_process({"openssl", "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-days", "2",
                     "-subj", "/CN=db.example", "-addext", "subjectAltName=DNS:db.example",
                     "-keyout", data + "/server.key", "-out", data + "/server.crt"});
    ASSERT_EQ(made.exit_status, 0) << made.err;
    ASSERT_EQ(
        run_process({"chown", "postgres", data + "/server.key", data + "/server.crt"}).exit_status,
        0);
    server_.sql("ALTER SYSTEM SET ssl = on");
    server_.sql("ALTER SYSTEM SET listen_addresses = '127.0.0.1'");
    write_file(data + "/pg_hba.conf", "local all all trust\nhostssl all all 127.0.0.1/32 trust\n");
    std::filesystem::copy(data + "/server.crt", home_.file("ca.pem"));
    server_.restart_in({"-n"}, "ip link set lo up");
    std::ifstream(data + "/postmaster.pid") >> server_process_;
    network_ = "/proc/" + server_process_ + "/ns/net";
  }

  [[nodiscard]] ProcessResult run_there(std::vector<std::string> command) const {
    std::vector<std::string> all = {"nsenter", "--net=" + network_};
    all.insert(all.end(), command.begin(), command.end());
    return run_process(all);
  }
  [[nodiscard]] ProcessResult dump_there(const std::string& url) const {
    std::vector<std::string> command = tool_command("trendcsv");
    for (const std::string& argument : arguments(url)) command.push_back(argument);
    return run_there(command);
  }
  /// Where the server is, under the name `host`.
  [[nodiscard]] std::string tls_url(const std::string& host, const std::string& authority) const {
    return "postgresql://trend@" + host + "/trends?hostaddr=127.0.0.1&schema=" + schema_ +
           "&sslmode=verify-full&sslrootcert=" + authority;
  }

  std::string server_process_;
  std::string network_;
};

TEST_F(ArchiveNetwork, TlsShowsThatTheServerIsTheRightOne) {
  const ProcessResult right = dump_there(tls_url("db.example", home_.file("ca.pem")));
  EXPECT_EQ(right.err, "");
  EXPECT_EQ(right.out, ROWS);
  const ProcessResult other_name = dump_there(tls_url("other.example", home_.file("ca.pem")));
  EXPECT_EQ(other_name.exit_status, 1);
  EXPECT_THAT(other_name.err, HasSubstr("Error opening trend db: 'postgresql://"));
  EXPECT_EQ(dump_there(tls_url("db.example", home_.file("none.pem"))).exit_status, 1);
  ASSERT_EQ(
      run_process({"openssl", "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-subj",
                   "/CN=db.example", "-keyout", home_.file("key"), "-out", home_.file("other.pem")})
          .exit_status,
      0);
  EXPECT_NE(dump_there(tls_url("db.example", home_.file("other.pem"))).err, "");
}

TEST_F(ArchiveNetwork, ALostNetworkFailsAQueryWithinTheTimeLimit) {
  std::thread([&] {
    const int network = open(network_.c_str(), O_RDONLY | O_CLOEXEC);
    ASSERT_EQ(setns(network, CLONE_NEWNET), 0);
    close(network);
    CLog log;
    ASSERT_EQ(log.open(tls_url("db.example", home_.file("ca.pem")), {.busy_timeout = 2}), 0)
        << log.error();
    std::vector<CDeviceProperties> devices;
    ASSERT_EQ(log.get_devices(devices), 0) << log.error();
    ASSERT_EQ(run_there({"ip", "link", "set", "lo", "down"}).exit_status, 0);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(log.get_devices(devices), -1);
    EXPECT_NE(log.error(), "");
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(8));
    ASSERT_EQ(run_there({"ip", "link", "set", "lo", "up"}).exit_status, 0);
    EXPECT_EQ(log.get_devices(devices), 0) << log.error();
  }).join();
}

}  // namespace
