// Recording into an archive whose server fails.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <thread>

#include "libtrend/recorder.h"
#include "tests/support/archive_server.h"

namespace {

using testing::HasSubstr;
using toolkit::trend::CDeviceProperties;
using toolkit::trend::CParamProperties;
using toolkit::trend::CRecorder;
using toolkit::trend::CSeries;

constexpr const char* END_SESSIONS =
    "SELECT count(pg_terminate_backend(pid)) FROM pg_stat_activity "
    "WHERE application_name = 'libtrend'";

/// A recorder and the one series that it records.
class ArchiveWriterFault : public testing::Test {
 protected:
  explicit ArchiveWriterFault(ArchiveServer& on = server()) : server_(on), url_(on.make_archive()) {
    CDeviceProperties device{.path = "d", .aux_text = ""};
    CParamProperties param{.path = "p"};
    param.has_avg = true;
    EXPECT_TRUE(recorder_.open(url_) == 0 && recorder_.begin() == 0 &&
                recorder_.add_device(device) == 0 && recorder_.add_param(device, param) == 0 &&
                recorder_.add_series(device, 1, series_) == 0 && recorder_.commit() == 0)
        << recorder_.error();
  }

  int append(std::int64_t row, std::size_t slots = 1) {
    return recorder_.append(series_, 60 * row, 1, std::vector<double>(slots, 1));
  }
  [[nodiscard]] std::string table(const std::string& name) const {
    return url_.substr(url_.rfind('=') + 1) + "." + name;
  }
  [[nodiscard]] std::string count_rows() const {
    return server_.sql("SELECT count(*) FROM " + table("snapshot"));
  }
  /// Expects that rows from `row` on can be recorded now.
  void expect_recording(std::int64_t row) {
    EXPECT_TRUE(recorder_.begin() == 0 && append(row) == 0 && append(row + 1) == 0 &&
                recorder_.commit() == 0)
        << recorder_.error();
  }

  ArchiveServer& server_;
  std::string url_;
  CRecorder recorder_;
  CSeries series_;
};

TEST_F(ArchiveWriterFault, ASessionThatTheServerEndsRecordsNothing) {
  ASSERT_EQ(recorder_.begin(), 0);
  ASSERT_EQ(append(1), 0);
  server_.sql(END_SESSIONS);
  EXPECT_EQ(recorder_.commit(), -1);
  EXPECT_THAT(recorder_.error(), HasSubstr("terminating connection"));
  EXPECT_EQ(recorder_.error().find("doubt"), std::string::npos);
  EXPECT_EQ(count_rows(), "0\n");
  expect_recording(1);
  EXPECT_EQ(count_rows(), "2\n");
}

TEST_F(ArchiveWriterFault, AServerThatDiesRecordsNothing) {
  ASSERT_EQ(recorder_.begin(), 0);
  for (int row = 1; row <= 3000; ++row) ASSERT_EQ(append(row, 200), 0);
  server_.kill();
  EXPECT_EQ(recorder_.commit(), -1);
  EXPECT_THAT(recorder_.error(), HasSubstr("server closed the connection unexpectedly"));
  EXPECT_EQ(recorder_.begin(), -1);
  server_.restart();
  EXPECT_EQ(count_rows(), "0\n");
  expect_recording(1);
}

TEST_F(ArchiveWriterFault, ACommitThatLosesItsConnectionIsInDoubt) {
  server_.sql("CREATE FUNCTION " + table("leave()") +
              " RETURNS trigger LANGUAGE plpgsql AS $$ BEGIN "
              "PERFORM pg_terminate_backend(pg_backend_pid()); RETURN NULL; END $$; "
              "CREATE CONSTRAINT TRIGGER leave AFTER INSERT ON " +
              table("snapshot") + " DEFERRABLE INITIALLY DEFERRED FOR EACH ROW EXECUTE FUNCTION " +
              table("leave()"));
  ASSERT_EQ(recorder_.begin(), 0);
  ASSERT_EQ(append(1), 0);
  EXPECT_EQ(recorder_.commit(), -1);
  EXPECT_THAT(recorder_.error(), HasSubstr("whether it was recorded is in doubt: "));
  EXPECT_THAT(recorder_.error(), HasSubstr("; look with trendcsv"));
  EXPECT_EQ(count_rows(), "0\n");
  server_.sql("DROP TRIGGER leave ON " + table("snapshot"));
  expect_recording(1);
}

TEST_F(ArchiveWriterFault, ACommitInDoubtMayHaveRecorded) {
  server_.sql("ALTER SYSTEM SET synchronous_standby_names = 'nobody'");
  server_.sql("SELECT pg_reload_conf()");
  std::thread other([this] {
    for (int i = 0; i < 1000; ++i) {
      if (server_.sql("SELECT count(pg_terminate_backend(pid)) FROM pg_stat_activity "
                      "WHERE wait_event = 'SyncRep'") == "1\n") {
        return;
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
  });
  ASSERT_EQ(recorder_.begin(), 0);
  ASSERT_EQ(append(1), 0);
  EXPECT_EQ(recorder_.commit(), -1);
  other.join();
  EXPECT_THAT(recorder_.error(), HasSubstr("whether it was recorded is in doubt: "));
  EXPECT_EQ(count_rows(), "1\n");
  server_.sql("ALTER SYSTEM RESET synchronous_standby_names");
  server_.sql("SELECT pg_reload_conf()");
}

TEST_F(ArchiveWriterFault, ALoadThatFailsSaysSo) {
  server_.sql("ALTER TABLE " + table("snapshot") + " ADD CHECK (valid_ratio < 0)");
  const ProcessResult result = run_tool("trendload", {"-x", url_, "-d", "d", "-i", "1", "-u"},
                                        "Date,Time,p:.ValueIntAvg\n2024-01-01,00:00,5\n");
  EXPECT_EQ(result.exit_status, 1);
  EXPECT_THAT(result.err, HasSubstr("violates check constraint"));
  EXPECT_EQ(result.out, "");
  EXPECT_EQ(count_rows(), "0\n");
}

TEST_F(ArchiveWriterFault, AFullDiskRecordsNothing) {
  if (geteuid() != 0) GTEST_SKIP() << "only root can make a small disk";
  recorder_ = CRecorder();
  const std::string disk = server_.folder() + "/disk";
  server_.restart_in({"-m"}, "mkdir '" + disk + "'; mount -t tmpfs -o size=2m tmpfs '" + disk +
                                 "'; chown postgres '" + disk + "'");
  server_.sql("COPY (SELECT repeat('x', 200000)) TO '" + disk + "/other'");
  server_.sql("CREATE TABLESPACE small LOCATION '" + disk + "'");
  server_.sql("ALTER TABLE " + table("snapshot") + " SET TABLESPACE small");
  ASSERT_EQ(recorder_.open(url_), 0) << recorder_.error();
  ASSERT_EQ(recorder_.begin(), 0);
  bool is_done = true;
  for (int row = 1; row <= 2000 && is_done; ++row) is_done = append(row, 200) == 0;
  EXPECT_FALSE(is_done && recorder_.commit() == 0);
  EXPECT_THAT(recorder_.error(), HasSubstr("could not extend file"));
  EXPECT_EQ(count_rows(), "0\n");
  server_.sql("COPY (SELECT '') TO '" + disk + "/other'");
  expect_recording(1);
  server_.sql("DROP SCHEMA " + table("snapshot").substr(0, table("snapshot").find('.')) +
              " CASCADE");
  server_.sql("DROP TABLESPACE small");
  server_.restart();
}

}  // namespace
