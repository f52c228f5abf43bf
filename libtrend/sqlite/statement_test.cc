#include "libtrend/sqlite/statement.h"

#include <gtest/gtest.h>
#include <sqlite3.h>

#include <cstring>
#include <limits>
#include <string>
#include <vector>

#include "libtrend/sqlite/database.h"

namespace toolkit::trend {
namespace {

class StatementTest : public testing::Test {
 protected:
  StatementTest() {
    sqlite3* db = nullptr;
    EXPECT_EQ(sqlite3_open(":memory:", &db), SQLITE_OK);
    db_.reset(db);
  }

  Database db_;
};

TEST_F(StatementTest, IsFalseIfTheSqlIsWrong) {
  EXPECT_FALSE(Statement());
  EXPECT_FALSE(Statement(db_.get(), "SELECT FROM"));
  EXPECT_TRUE(Statement(db_.get(), "SELECT 1"));
}

TEST_F(StatementTest, ReadsBackWhatItBinds) {
  Statement statement(db_.get(), "SELECT ?1, ?2, ?3, ?4");
  const std::string text("a\0b", 3);
  const std::vector<unsigned char> bytes = {0, 1, 255};
  statement.bind(1, std::numeric_limits<std::int64_t>::min());
  statement.bind(2, 0.1);
  statement.bind(3, text);
  statement.bind(4, bytes.data(), bytes.size());
  ASSERT_EQ(statement.step(), Statement::Step::ROW);
  std::int64_t whole = 0;
  double real = 0;
  std::string read_text;
  std::span<const unsigned char> blob;
  ASSERT_TRUE(statement.read(0, whole) && statement.read(1, real) && statement.read(2, read_text) &&
              statement.read(3, blob));
  EXPECT_EQ(whole, std::numeric_limits<std::int64_t>::min());
  EXPECT_EQ(statement.read_whole(0), whole);
  EXPECT_EQ(real, 0.1);
  EXPECT_EQ(read_text, text);
  EXPECT_EQ(std::vector<unsigned char>(blob.begin(), blob.end()), bytes);
  EXPECT_EQ(statement.step(), Statement::Step::DONE);
}

TEST_F(StatementTest, BindsAnEmptyBlobRatherThanNull) {
  Statement statement(db_.get(), "SELECT ?1");
  statement.bind(1, nullptr, 0);
  ASSERT_EQ(statement.step(), Statement::Step::ROW);
  std::span<const unsigned char> blob;
  EXPECT_TRUE(statement.read(0, blob));
  EXPECT_TRUE(blob.empty());
}

TEST_F(StatementTest, RefusesColumnsOfAnotherType) {
  Statement statement(db_.get(), "SELECT 1, 0.5, 'x', x'00', NULL");
  ASSERT_EQ(statement.step(), Statement::Step::ROW);
  std::int64_t whole = 0;
  double real = 0;
  std::string text;
  std::span<const unsigned char> blob;
  for (int column = 0; column < 5; ++column) {
    EXPECT_EQ(statement.read(column, whole), column == 0);
    EXPECT_EQ(statement.read(column, real), column == 1);
    EXPECT_EQ(statement.read(column, text), column == 2);
    EXPECT_EQ(statement.read(column, blob), column == 3);
  }
}

TEST_F(StatementTest, KeepsItsParametersWhenReset) {
  Statement statement(db_.get(), "SELECT ?1");
  statement.bind(1, std::int64_t{7});
  for (int round = 0; round < 2; ++round) {
    const RunningStatement running(&statement);
    ASSERT_EQ(statement.step(), Statement::Step::ROW);
    EXPECT_EQ(statement.read_whole(0), 7);
  }
}

TEST_F(StatementTest, SaysWhyItFailed) {
  ASSERT_TRUE(Statement(db_.get(), "CREATE TABLE t (a INTEGER UNIQUE) STRICT").run());
  Statement insert(db_.get(), "INSERT INTO t VALUES (1)");
  EXPECT_TRUE(insert.run());
  EXPECT_FALSE(insert.run());
  EXPECT_EQ(insert.error(), "UNIQUE constraint failed: t.a");
  EXPECT_FALSE(Statement(db_.get(), "SELECT 1").run()) << "it returns a row";
}

}  // namespace
}  // namespace toolkit::trend
