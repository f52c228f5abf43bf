#include "libtrend/postgres/connection.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <thread>

#include "tests/support/archive_server.h"

namespace toolkit::trend {
namespace {

using testing::HasSubstr;

constexpr const char* BEGIN = "BEGIN ISOLATION LEVEL REPEATABLE READ READ ONLY";
constexpr const char* FAILING = "SELECT 1 / 0";
constexpr const char* LOSING = "SELECT pg_terminate_backend(pg_backend_pid())";

class ArchiveConnection : public testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(connection_.ensure()) << connection_.error(); }

  static ArchiveAddress address() {
    return {.url = "postgresql:///trends?user=trend&host=" + server().folder(), .schema = "public"};
  }

  /// Runs a statement that returns one number. Returns it, or -1 on failure.
  std::int64_t get_number(const std::string& sql) {
    Result result;
    std::int64_t number = -1;
    return connection_.run(sql, {}, result) && result.read(0, 0, number) ? number : -1;
  }

  Connection connection_{address(), Connection::Use::WRITE, 10};
};

TEST_F(ArchiveConnection, ACommitAfterAnErrorRecordsNothing) {
  bool is_in_doubt = true;
  ASSERT_TRUE(connection_.run("BEGIN"));
  EXPECT_FALSE(connection_.run(FAILING));
  EXPECT_EQ(connection_.error(), "division by zero");
  EXPECT_FALSE(connection_.commit(is_in_doubt));
  EXPECT_FALSE(is_in_doubt);
  EXPECT_EQ(connection_.error(), "the server has undone the transaction");
}

TEST_F(ArchiveConnection, ACommitThatTheServerRefusesRecordsNothing) {
  bool is_in_doubt = true;
  ASSERT_TRUE(
      connection_.run("CREATE TEMPORARY TABLE row (id integer UNIQUE DEFERRABLE INITIALLY "
                      "DEFERRED); BEGIN; INSERT INTO row VALUES (1), (1)"));
  EXPECT_FALSE(connection_.commit(is_in_doubt));
  EXPECT_FALSE(is_in_doubt);
  EXPECT_EQ(connection_.error(),
            "duplicate key value violates unique constraint \"row_id_key\": Key (id)=(1) already "
            "exists.");
}

TEST_F(ArchiveConnection, RowsAreSentToCopyAlone) {
  const std::vector<unsigned char> rows = {'7', '\n', '8', '\n'};
  EXPECT_FALSE(connection_.copy_in("SELECT 1", rows));
  EXPECT_EQ(connection_.error(), "the server does not take rows");
  EXPECT_FALSE(connection_.copy_in("COPY nothing FROM STDIN", rows));
  EXPECT_EQ(connection_.error(), "relation \"nothing\" does not exist");
  ASSERT_TRUE(connection_.run("CREATE TEMPORARY TABLE row (id integer)"));
  EXPECT_TRUE(connection_.copy_in("COPY row FROM STDIN", rows)) << connection_.error();
  EXPECT_EQ(get_number("SELECT sum(id) FROM row"), 15);
}

TEST_F(ArchiveConnection, RowsThatTheServerRefusesAreNotTaken) {
  // The server refuses them long before it has all.
  const std::vector<unsigned char> rows(1'000'000, 'x');
  ASSERT_TRUE(connection_.run("CREATE TEMPORARY TABLE row (id integer CHECK (id > 0))"));
  EXPECT_FALSE(connection_.copy_in("COPY row FROM STDIN", rows));
  EXPECT_THAT(connection_.error(), HasSubstr("invalid input syntax for type integer"));
  EXPECT_EQ(get_number("SELECT count(*) FROM row"), 0);
}

TEST_F(ArchiveConnection, AStatementAheadIsWaitedFor) {
  Result result;
  std::int64_t number = 0;
  connection_.send_ahead("SELECT 7", {});
  ASSERT_TRUE(connection_.take_ahead(result)) << connection_.error();
  EXPECT_TRUE(result.read(0, 0, number));
  EXPECT_EQ(number, 7);
  ASSERT_TRUE(connection_.take_ahead(result));
  EXPECT_EQ(result.rows(), 0U) << "it was taken before";
}

TEST_F(ArchiveConnection, AStatementAheadThatFailsFailsItsTransaction) {
  Result result;
  for (int round = 0; round < 3; ++round) {
    SCOPED_TRACE(round);
    ASSERT_TRUE(connection_.run("BEGIN"));
    connection_.send_ahead(FAILING, {});
    EXPECT_FALSE(connection_.take_ahead(result));
    EXPECT_EQ(connection_.error(), "division by zero");
    ASSERT_TRUE(connection_.run("ROLLBACK; BEGIN"));
    connection_.send_ahead(FAILING, {});
    EXPECT_EQ(get_number("SELECT 7"), -1);
    EXPECT_EQ(connection_.error(), "division by zero");
    ASSERT_TRUE(connection_.run("ROLLBACK"));
  }
}

TEST_F(ArchiveConnection, AStatementAheadThatTheServerCannotReadFailsItsTransaction) {
  for (int round = 0; round < 2; ++round) {
    ASSERT_TRUE(connection_.run("BEGIN"));
    connection_.send_ahead("SELECT nonsense", {});
    EXPECT_EQ(get_number("SELECT 7"), -1);
    EXPECT_NE(connection_.error(), "");
    ASSERT_TRUE(connection_.run("ROLLBACK"));
  }
}

TEST_F(ArchiveConnection, AStatementAheadOfAnEarlierTransactionFailsNoLaterOne) {
  connection_.run_with_next(BEGIN);
  EXPECT_EQ(get_number("SELECT 1"), 1);
  connection_.send_ahead(FAILING, {});
  connection_.end_transaction();
  connection_.run_with_next(BEGIN);
  EXPECT_EQ(get_number("SELECT 2"), 2) << connection_.error();
  EXPECT_EQ(get_number("SELECT 3"), 3) << connection_.error();
}

TEST_F(ArchiveConnection, TheFirstOfTwoStatementsThatFailsIsTheReason) {
  for (int round = 0; round < 2; ++round) {
    connection_.run_with_next(FAILING);
    EXPECT_EQ(get_number("SELECT 1"), -1);
    EXPECT_EQ(connection_.error(), "division by zero");
  }
  connection_.run_with_next("SELECT nonsense");
  EXPECT_EQ(get_number(FAILING), -1);
  EXPECT_THAT(connection_.error(), HasSubstr("nonsense"));
}

TEST_F(ArchiveConnection, AConnectionThatTheServerEndsIsMadeAgain) {
  const std::vector<std::function<bool()>> ways = {
      [&] { return connection_.run(LOSING); },
      [&] { return get_number(LOSING) != -1; },
      [&] {
        connection_.run_with_next(BEGIN);
        return get_number(LOSING) != -1;
      },
      [&] {
        connection_.send_ahead(LOSING, {});
        Result result;
        return connection_.take_ahead(result);
      },
      [&] {
        connection_.send_ahead(LOSING, {});
        return get_number("SELECT 7") == 7;
      },
  };
  for (std::size_t i = 0; i < ways.size(); ++i) {
    SCOPED_TRACE(i);
    EXPECT_FALSE(ways[i]());
    EXPECT_NE(connection_.error(), "");
    connection_.end_transaction();
    ASSERT_TRUE(connection_.ensure()) << connection_.error();
    EXPECT_EQ(get_number("SELECT 7"), 7) << connection_.error();
  }
}

TEST_F(ArchiveConnection, ItsEndWaitsForWhatWasSent) {
  // The server does not always lose the race against the end of the connection.
  for (int i = 0; i < 10; ++i) {
    Connection other(address(), Connection::Use::READ, 10);
    ASSERT_TRUE(other.ensure() && other.run("BEGIN")) << other.error();
    other.end_transaction();
  }
  {
    Connection other(address(), Connection::Use::READ, 10);
    ASSERT_TRUE(other.ensure()) << other.error();
    other.send_ahead("SELECT repeat('x', 1000) FROM generate_series(1, 3000)", {});
  }
  constexpr const char* OTHERS =
      "SELECT count(*) FROM pg_stat_activity "
      "WHERE application_name = 'libtrend' AND pid <> pg_backend_pid()";
  while (get_number(OTHERS) > 0) std::this_thread::sleep_for(std::chrono::milliseconds(5));
  const std::string log = read_file(server().folder() + "/log");
  EXPECT_EQ(log.find("connection to client lost"), std::string::npos);
  EXPECT_EQ(log.find("could not send data"), std::string::npos);
}

}  // namespace
}  // namespace toolkit::trend
