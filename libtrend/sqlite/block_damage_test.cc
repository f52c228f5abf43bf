// Damage in a database with blocks: every query gives the right result or fails.
#include <gtest/gtest.h>
#include <sqlite3.h>

#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "libtrend/log.h"
#include "libtrend/sqlite/schema.h"
#include "libtrend/sqlite/series_state.h"
#include "tests/support/answers.h"
#include "tests/support/process.h"
#include "tests/support/small_databases.h"

namespace toolkit::trend {
namespace {

/// A database, and what its queries give.
class BlockDamage : public testing::Test {
 protected:
  BlockDamage() {
    small_database("Blocks").make(path_);
    questions_ = std::make_unique<Questions>(path_);
    right_ = questions_->ask(path_);
  }

  /// Compares what queries give now. Returns whether every one of them still succeeds.
  bool compare(const std::string& what) {
    const Answers results = questions_->ask(path_);
    for (const auto& [name, text] : results) {
      EXPECT_EQ(text, right_.at(name)) << what << ", " << name;
    }
    return results.size() == right_.size();
  }

  void restore() {
    std::filesystem::copy_file(original_, path_, std::filesystem::copy_options::overwrite_existing);
  }
  void keep_original() { std::filesystem::copy_file(path_, original_); }

  /// Changes the state of a series, which gets a right checksum.
  template <typename Change>
  void change_state(const std::string& id, const Change& change) {
    sqlite3* db = nullptr;
    ASSERT_EQ(sqlite3_open(path_.c_str(), &db), SQLITE_OK);
    std::string error;
    SeriesState state;
    {
      SeriesStates states(db);
      EXPECT_EQ(states.get(std::stoll(id), state, error), SeriesStates::Result::FOUND);
      change(state);
      EXPECT_TRUE(states.set(state, error)) << error;
    }
    sqlite3_close(db);
  }

  /// Runs `sql` and returns the first column of the rows that it yields.
  std::vector<std::string> run_sql(const std::string& sql) {
    sqlite3* db = nullptr;
    EXPECT_EQ(sqlite3_open(path_.c_str(), &db), SQLITE_OK);
    std::vector<std::string> found;
    const auto take = [](void* target, int, char** values, char**) {
      static_cast<std::vector<std::string>*>(target)->emplace_back(values[0]);
      return 0;
    };
    EXPECT_EQ(sqlite3_exec(db, sql.c_str(), take, &found, nullptr), SQLITE_OK)
        << sql << ": " << sqlite3_errmsg(db);
    sqlite3_close(db);
    return found;
  }

  TemporaryFolder folder_;
  std::string path_ = folder_.file("trend.db");
  std::string original_ = folder_.file("original.db");
  std::unique_ptr<Questions> questions_;
  Answers right_;
};

TEST_F(BlockDamage, StartsFromADatabaseThatIsWhole) {
  EXPECT_NE(right_.at("d:newest-first"), "");
  EXPECT_TRUE(compare("unchanged"));
}

TEST_F(BlockDamage, IsFoundWhereAnyRowIsMissing) {
  keep_original();
  for (const char* table :
       {"device", "parameter", "series", "series_state", "database", "loose", "block", "segment"}) {
    for (const auto& row : run_sql(std::string("SELECT rowid FROM ") + table)) {
      run_sql(std::string("DELETE FROM ") + table + " WHERE rowid = " + row);
      EXPECT_FALSE(compare(std::string(table) + ' ' + row + " is missing"));
      restore();
    }
  }
}

/// A table of rows, and its columns but for the id.
struct Table {
  std::string name;
  std::string id;
  std::string columns;
};

const Table TABLES[] = {
    {"series_state", "series_id",
     "loose_rows, unchecked_until, first_block, last_block, blocks, sealed_rows, changes, "
     "checksum"},
    {"loose", "id", "valid_ratio, samples, checksum"},
    {"block", "id",
     "number, first_time, previous, rows, bytes, segment_size, change, content, checksum"},
    {"segment", "id", "data"}};

TEST_F(BlockDamage, IsFoundWhereTwoRowsAreSwapped) {
  keep_original();
  for (const Table& table : TABLES) {
    const auto fetch = [&](const std::string& to, const std::string& from) {
      return "UPDATE " + table.name + " SET (" + table.columns + ") = (SELECT " + table.columns +
             " FROM copy WHERE rowid = " + from + ") WHERE rowid = " + to + ";";
    };
    const auto rows = run_sql("SELECT rowid FROM " + table.name);
    for (std::size_t i = 0; i < rows.size(); ++i) {
      for (std::size_t k = i + 1; k < rows.size(); ++k) {
        run_sql("CREATE TEMP TABLE copy (id INTEGER PRIMARY KEY, " + table.columns +
                "); INSERT INTO copy SELECT * FROM " + table.name + ";" + fetch(rows[i], rows[k]) +
                fetch(rows[k], rows[i]));
        EXPECT_FALSE(compare(table.name + ' ' + rows[i] + " and " + rows[k] + " are swapped"));
        restore();
      }
    }
  }
}

TEST_F(BlockDamage, IsFoundWhereARowIsInTwoPlaces) {
  keep_original();
  for (const Table& table : TABLES) {
    for (const auto& row : run_sql("SELECT rowid FROM " + table.name)) {
      for (const char* change : {"+ 1", "- 1", "+ 150", "+ 0x10000000000"}) {
        run_sql("INSERT OR REPLACE INTO " + table.name + " SELECT " + table.id + change + ", " +
                table.columns + " FROM " + table.name + " WHERE rowid = " + row);
        compare(table.name + ' ' + row + " is repeated at " + change);
        restore();
      }
    }
  }
}

TEST_F(BlockDamage, IsFoundWhereAStateHasImpossibleEnds) {
  keep_original();
  for (const auto& id : run_sql("SELECT series_id FROM series_state")) {
    for (const auto& ends : std::vector<std::pair<std::int64_t, std::int64_t>>{
             {0, 300}, {300, 0}, {-300, 300}, {300, -300}, {600, 300}, {300, MAX_TIMESTAMP + 1}}) {
      change_state(id, [&](SeriesState& state) {
        state.first_block = ends.first;
        state.last_block = ends.second;
      });
      EXPECT_FALSE(compare("the ends of series " + id + " are " + std::to_string(ends.first) +
                           " and " + std::to_string(ends.second)));
      restore();
    }
  }
}

TEST_F(BlockDamage, IsFoundWhereANumberOfAStateIsImpossible) {
  keep_original();
  for (std::int64_t SeriesState::*const number :
       {&SeriesState::loose_rows, &SeriesState::unchecked_until, &SeriesState::blocks,
        &SeriesState::sealed_rows, &SeriesState::changes}) {
    change_state("1", [&](SeriesState& state) { state.*number = -1; });
    EXPECT_FALSE(compare("a number of the state is negative"));
    restore();
  }
}

TEST_F(BlockDamage, IsFoundWhereABlockIsNewerThanItsState) {
  keep_original();
  const auto ids = run_sql("SELECT DISTINCT id >> 40 FROM block");
  ASSERT_FALSE(ids.empty());
  for (const auto& id : ids) {
    change_state(id, [](SeriesState& state) { --state.changes; });
    EXPECT_FALSE(compare("the state of series " + id + " is from before"));
    restore();
  }
}

TEST_F(BlockDamage, IsFoundWhereTheWholeDatabaseHasNoBlocks) {
  run_sql("DELETE FROM block");
  EXPECT_FALSE(compare("no blocks"));
}

}  // namespace
}  // namespace toolkit::trend
