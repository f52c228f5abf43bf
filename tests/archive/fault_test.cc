// Dumps of an archive whose server fails.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdio>
#include <limits>
#include <map>
#include <thread>

#include "libtrend/log.h"
#include "libtrend/postgres/connection.h"
#include "tests/support/archive_server.h"
#include "tests/support/model.h"

namespace {

using testing::HasSubstr;
using toolkit::trend::CDeviceProperties;
using toolkit::trend::CLog;
using toolkit::trend::OpenOptions;
using Devices = std::vector<CDeviceProperties>;

/// A log whose dump is much longer than what fits into a pipe.
ModelLog long_log() {
  ModelLog log;
  log.minutes = {1};
  for (int i = 0; i < 8; ++i)
    log.params.push_back({.path = "p" + std::to_string(i), .statistics = AVG});
  for (int row = 1; row <= 20'000; ++row) {
    log.rows.push_back({.minutes = 1, .time = 60 * row, .values = std::vector<double>(8, row)});
  }
  return log;
}

ProcessResult dump(const std::string& url) {
  return run_tool("trendcsv", {"-x", url, "-d", "/plant", "-u", "-a"});
}

std::string open_error(const std::string& url) {
  CLog log;
  EXPECT_EQ(log.open(url, OpenOptions{.busy_timeout = 2}), -1);
  return log.error();
}

void expect_open_fails(const std::string& url) {
  const ProcessResult result = dump(url);
  EXPECT_EQ(result.exit_status, 1);
  EXPECT_EQ(result.out, "");
  EXPECT_EQ(result.err, "Error opening trend db: '" + url + "'\n");
}

double seconds_since(std::chrono::steady_clock::time_point start) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

/// A dump that waits in the middle, because nobody reads what it prints.
class WaitingDump {
 public:
  explicit WaitingDump(const std::string& url) {
    std::string command;
    for (const std::string& word : tool_command("trendcsv")) command += "'" + word + "' ";
    command += "-x '" + url + "' -d /plant -u -a 2>'" + folder_.file("err") + "'";
    pipe_ = popen(command.c_str(), "re");
    read_line();
  }

  ProcessResult finish() {
    while (read_line()) {
    }
    result_.exit_status = WEXITSTATUS(pclose(pipe_));
    result_.err = read_file(folder_.file("err"));
    return result_;
  }

 private:
  bool read_line() {
    char line[4096];
    if (std::fgets(line, sizeof line, pipe_) == nullptr) return false;
    result_.out += line;
    return true;
  }

  TemporaryFolder folder_;
  std::FILE* pipe_ = nullptr;
  ProcessResult result_;
};

class ArchiveFault : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    server_ = new ArchiveServer;
    url_ = server_->make_archive();
    record(long_log(), url_);
    whole_ = dump(url_).out;
  }
  static void TearDownTestSuite() { delete server_; }

  /// The dump must have printed a part of all rows, whole lines alone, and then a message.
  static void expect_cut(const ProcessResult& result) {
    EXPECT_EQ(result.exit_status, 1);
    EXPECT_EQ(result.err, "Error: couldn't fetch chunk\n");
    EXPECT_GT(result.out.size(), 500U);
    EXPECT_LT(result.out.size(), whole_.size());
    EXPECT_EQ(result.out.back(), '\n');
    EXPECT_TRUE(whole_.starts_with(result.out));
  }

  static ArchiveServer* server_;
  static std::string url_;
  static std::string whole_;  ///< the dump of the archive
};

ArchiveServer* ArchiveFault::server_ = nullptr;
std::string ArchiveFault::url_;
std::string ArchiveFault::whole_;

TEST_F(ArchiveFault, NoServerOrNoArchiveIsAnErrorOfOpening) {
  const std::string away = "postgresql:///trends?host=/nonexistent";
  expect_open_fails(away);
  EXPECT_THAT(open_error(away), HasSubstr("No such file or directory"));
  expect_open_fails(server_->url("nowhere"));
  EXPECT_EQ(open_error(server_->url("nowhere")),
            "the server has no archive in the schema 'nowhere'; trendtool init makes one");
  expect_open_fails(server_->url("archive_1", "nobody"));
  EXPECT_THAT(open_error(server_->url("archive_1", "nobody")), HasSubstr("role \"nobody\""));
}

TEST_F(ArchiveFault, AnotherVersionIsRefused) {
  const std::string newer = server_->make_archive();
  server_->sql("UPDATE archive_2.archive SET version = 2");
  expect_open_fails(newer);
  EXPECT_EQ(open_error(newer), "the archive has version 2, but version 1 is needed");
}

TEST_F(ArchiveFault, ASessionThatTheServerEndsCutsTheDumpAfterAWholeRow) {
  WaitingDump waiting(url_);
  EXPECT_EQ(server_->sql("SELECT pg_terminate_backend(pid) FROM pg_stat_activity "
                         "WHERE application_name = 'libtrend'"),
            "t\n");
  expect_cut(waiting.finish());
}

TEST_F(ArchiveFault, AServerThatDiesAndReturnsCutsTheDumpAfterAWholeRow) {
  WaitingDump waiting(url_);
  server_->kill();
  server_->restart();
  expect_cut(waiting.finish());
  EXPECT_EQ(dump(url_).out, whole_);
}

TEST_F(ArchiveFault, ASessionThatIsSuspendedIsWaitedFor) {
  WaitingDump waiting(url_);
  const auto session = static_cast<pid_t>(std::stol(
      server_->sql("SELECT pid FROM pg_stat_activity WHERE application_name = 'libtrend'")));
  ASSERT_EQ(kill(session, SIGSTOP), 0);
  std::thread other([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    kill(session, SIGCONT);
  });
  const ProcessResult result = waiting.finish();
  other.join();
  EXPECT_EQ(result.err, "");
  EXPECT_EQ(result.out, whole_);
}

TEST_F(ArchiveFault, AHandleConnectsAgainAfterAFailedQuery) {
  CLog log;
  ASSERT_EQ(log.open(url_, OpenOptions{}), 0) << log.error();
  Devices devices;
  ASSERT_EQ(log.get_devices(devices), 0) << log.error();
  server_->restart();
  EXPECT_EQ(log.get_devices(devices), -1);
  EXPECT_THAT(log.error(), HasSubstr("server closed the connection"));
  ASSERT_EQ(log.get_devices(devices), 0) << log.error();
  EXPECT_EQ(devices.size(), 2U);
  server_->stop();
  EXPECT_EQ(log.get_devices(devices), -1);
  EXPECT_EQ(log.get_devices(devices), -1);
  EXPECT_THAT(log.error(), HasSubstr("No such file or directory"));
  server_->restart();
}

TEST_F(ArchiveFault, ALockIsWaitedForAsLongAsTheHandleSays) {
  const toolkit::trend::ArchiveAddress address = {
      .url = "postgresql:///trends?user=trend&host=" + server_->folder(), .schema = "archive_1"};
  toolkit::trend::Connection other(address, toolkit::trend::Connection::Use::WRITE, 40);
  ASSERT_TRUE(other.ensure() && other.run("BEGIN; LOCK TABLE series IN ACCESS EXCLUSIVE MODE"))
      << other.error();
  for (const unsigned timeout : {0U, 1U}) {
    CLog log;
    ASSERT_EQ(log.open(url_, OpenOptions{.busy_timeout = timeout}), 0) << log.error();
    Devices devices;
    EXPECT_EQ(log.get_devices(devices), 0) << log.error();
    std::vector<toolkit::trend::CPeriodProperties> periods;
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(log.get_periods(periods), -1);
    EXPECT_EQ(log.error(), "canceling statement due to lock timeout");
    EXPECT_GE(seconds_since(start), timeout);
    EXPECT_LT(seconds_since(start), timeout + 5.0);
  }
}

TEST_F(ArchiveFault, AServerThatAcceptsAndNeverAnswersIsGivenUp) {
  const TemporaryFolder folder;
  const int listener = socket(AF_UNIX, SOCK_STREAM, 0);
  sockaddr_un name = {.sun_family = AF_UNIX, .sun_path = {}};
  folder.file(".s.PGSQL.5432").copy(name.sun_path, sizeof name.sun_path - 1);
  ASSERT_EQ(bind(listener, reinterpret_cast<const sockaddr*>(&name), sizeof name), 0);
  ASSERT_EQ(listen(listener, 5), 0);
  const auto start = std::chrono::steady_clock::now();
  EXPECT_THAT(open_error("postgresql:///trends?host=" + folder.path().string()),
              HasSubstr("timeout expired"));
  EXPECT_GE(seconds_since(start), 1);
  EXPECT_LT(seconds_since(start), 10);
  close(listener);
}

TEST_F(ArchiveFault, TheLongestTimeLimitCanBeAskedFor) {
  CLog log;
  EXPECT_EQ(log.open(url_, OpenOptions{.busy_timeout = std::numeric_limits<unsigned>::max()}), 0)
      << log.error();
}

TEST_F(ArchiveFault, ARowThatIsNotOneOfATrendFailsTheDump) {
  const std::string url = server_->make_archive();
  const std::string schema = url.substr(url.rfind('=') + 1);
  ModelLog log;
  log.minutes = {1};
  log.params = {{.path = "p", .statistics = AVG}};
  for (int row = 1; row <= 10; ++row) {
    log.rows.push_back({.minutes = 1, .time = 60 * row, .values = {1}});
  }
  record(log, url);
  const std::map<std::string, std::string> damage = {
      {"time = time + interval '0.5 s' WHERE time = 'epoch'::timestamptz + interval '5 min'",
       "time = time - interval '0.5 s' WHERE time > 'epoch'::timestamptz + interval '5 min' AND "
       "time < 'epoch'::timestamptz + interval '6 min'"},
      {"samples = '{{1}}'", "samples = '{1}'"}};
  for (const auto& [change, repair] : damage) {
    server_->sql("UPDATE " + schema + ".snapshot SET " + change);
    const ProcessResult result = dump(url);
    EXPECT_EQ(result.exit_status, 1);
    EXPECT_EQ(result.err, "Error: couldn't fetch chunk\n") << change;
    server_->sql("UPDATE " + schema + ".snapshot SET " + repair);
    EXPECT_EQ(dump(url).err, "");
  }
}

}  // namespace
