// Databases with numbers that no recorder writes, and right checksums.
#include <gtest/gtest.h>
#include <sqlite3.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "libtrend/sqlite/block_table.h"
#include "libtrend/sqlite/connection.h"
#include "libtrend/sqlite/schema.h"
#include "libtrend/sqlite/series_state.h"
#include "libtrend/sqlite/statement.h"
#include "tests/fault/made_up.h"

namespace toolkit::trend {
namespace {

/// Expects a change of a copy to be noticed. `change` may find that there is nothing to change, and
/// returns false then.
void expect_notice_of(MadeUp& database, const std::function<bool(sqlite3* db)>& change,
                      std::size_t recording_step = RECORDING_STEP) {
  {
    Database db;
    std::string error;
    ASSERT_TRUE(connect(database.copy(), SQLITE_OPEN_READWRITE, nullptr, db, error)) << error;
    if (!change(db.get())) return;
  }
  database.expect_notice(recording_step);
}

/// A change of a part of a database.
template <typename Part>
struct Change {
  const char* name;
  void (*make)(Part& part);
};

TEST(ImpossibleStates, AreNoticed) {
  const Change<SeriesState> changes[] = {
      {"no blocks but a first one", [](SeriesState& state) { state.blocks = 0; }},
      {"no blocks but a last one",
       [](SeriesState& state) { state.blocks = state.first_block = 0; }},
      {"a negative number of blocks", [](SeriesState& state) { state.blocks = -1; }},
      {"no first block", [](SeriesState& state) { state.first_block = 0; }},
      {"another first block", [](SeriesState& state) { ++state.first_block; }},
      {"a first block after the last",
       [](SeriesState& state) { state.first_block = state.last_block + 1; }},
      {"a last block too late", [](SeriesState& state) { state.last_block = MAX_TIMESTAMP + 1; }},
      {"another last block", [](SeriesState& state) { ++state.last_block; }},
      {"a last block too early", [](SeriesState& state) { --state.last_block; }},
      {"one block more", [](SeriesState& state) { ++state.blocks; }},
      {"one sealed row more", [](SeriesState& state) { ++state.sealed_rows; }},
      {"one loose row more", [](SeriesState& state) { ++state.loose_rows; }},
      {"a negative number of loose rows", [](SeriesState& state) { state.loose_rows = -1; }},
      {"a negative time of the last row without a checksum",
       [](SeriesState& state) { state.unchecked_until = -1; }},
      {"an endless time of the last row without a checksum",
       [](SeriesState& state) { state.unchecked_until = INT64_MAX; }},
      {"a negative first block", [](SeriesState& state) { state.first_block = INT64_MIN; }},
      {"an endless last block", [](SeriesState& state) { state.last_block = INT64_MAX; }},
      {"endless blocks", [](SeriesState& state) { state.blocks = INT64_MAX; }},
      {"endless sealed rows", [](SeriesState& state) { state.sealed_rows = INT64_MAX; }},
      {"a negative number of changes", [](SeriesState& state) { state.changes = -1; }},
      {"endless changes", [](SeriesState& state) { state.changes = INT64_MAX; }},
      {"endless loose rows", [](SeriesState& state) { state.loose_rows = INT64_MAX; }},
      {"no row without a checksum", [](SeriesState& state) { state.unchecked_until = 0; }},
  };
  MadeUp database(make_sample);
  for (const auto& change : changes) {
    SCOPED_TRACE(change.name);
    expect_notice_of(database, [&](sqlite3* db) {
      SeriesStates states(db);
      SeriesState state;
      std::string error;
      EXPECT_EQ(states.get(1, state, error), SeriesStates::Result::FOUND);
      change.make(state);
      EXPECT_TRUE(states.set(state, error)) << error;
      return true;
    });
  }
}

TEST(ImpossibleRows, AreNoticed) {
  struct Case {
    const char* name;
    std::int64_t time;
    std::vector<unsigned char> samples;
  };
  const Case cases[] = {
      {"half a value", get_sample_time(20), std::vector<unsigned char>(9)},
      {"half a value in a block", get_sample_time(12), std::vector<unsigned char>(9)},
      {"a row that a block has", get_sample_time(13), std::vector<unsigned char>(8)},
  };
  MadeUp database(make_sample);
  for (const Case& one : cases) {
    SCOPED_TRACE(one.name);
    expect_notice_of(database, [&](sqlite3* db) {
      Statement write(db, "INSERT OR REPLACE INTO loose VALUES (?1, 1.0, ?2, ?3)");
      const std::int64_t id = get_row_id(1, one.time);
      write.bind(1, id);
      write.bind(2, one.samples.data(), one.samples.size());
      write.bind(3, std::int64_t{get_row_checksum(id, 1, one.samples)});
      EXPECT_TRUE(write.run()) << write.error();
      return true;
    });
  }
}

/// Writes the row about the database, with right checksums of itself and the catalogue.
void write_database_row(sqlite3* db, std::int64_t next_block) {
  std::uint32_t catalogue = 0;
  EXPECT_TRUE(get_catalogue_checksum(db, catalogue));
  Statement row(db, "SELECT uuid FROM database");
  std::string uuid;
  EXPECT_TRUE(row.step() == Statement::Step::ROW && row.read(0, uuid));
  row.reset();
  Statement write(db, "UPDATE database SET next_block = ?1, catalogue = ?2, checksum = ?3");
  write.bind(1, next_block);
  write.bind(2, std::int64_t{catalogue});
  write.bind(3, std::int64_t{get_database_checksum(uuid, next_block, catalogue)});
  EXPECT_TRUE(write.run()) << write.error();
}

TEST(ImpossibleBlockNumbers, AreNoticed) {
  MadeUp database(make_sample);
  for (const std::int64_t number : {INT64_MIN, std::int64_t{0}, std::int64_t{1}, INT64_MAX}) {
    SCOPED_TRACE(number);
    expect_notice_of(database, [&](sqlite3* db) {
      write_database_row(db, number);
      return true;
    });
  }
}

TEST(ImpossibleCatalogues, AreNoticed) {
  MadeUp database(make_sample);
  for (const char* sql : {
           "UPDATE parameter SET statistics = -1",
           "UPDATE parameter SET statistics = 32",
           "UPDATE parameter SET first_slot = -1",
           "UPDATE parameter SET first_slot = 65536",
           "UPDATE series SET minutes = -5 WHERE id = 1",
           "UPDATE series SET id = 1 << 23 WHERE id = 2",
       }) {
    SCOPED_TRACE(sql);
    const auto change = [&](sqlite3* db) {
      std::int64_t next_block = 0;
      EXPECT_TRUE(read_number(db, "SELECT next_block FROM database", next_block));
      std::string error;
      EXPECT_TRUE(execute(db, "PRAGMA ignore_check_constraints = ON", error)) << error;
      EXPECT_TRUE(execute(db, sql, error)) << error;
      write_database_row(db, next_block);
      return true;
    };
    expect_notice_of(database, change, 1);
  }
}

TEST(ImpossibleHeads, AreNoticed) {
  const Change<BlockHead> changes[] = {
      {"a negative number", [](BlockHead& head) { head.number = -1; }},
      {"a number too large", [](BlockHead& head) { head.number = INT64_MAX; }},
      {"negative bytes", [](BlockHead& head) { head.bytes = -1; }},
      {"more bytes", [](BlockHead& head) { ++head.bytes; }},
      {"no segment size", [](BlockHead& head) { head.segment_size = 0; }},
      {"a segment size too large",
       [](BlockHead& head) { head.segment_size = std::int64_t{1} << 32; }},
      {"another segment size", [](BlockHead& head) { head.segment_size = 1; }},
      {"no rows", [](BlockHead& head) { head.rows = 0; }},
      {"another number of rows", [](BlockHead& head) { ++head.rows; }},
      {"too many rows", [](BlockHead& head) { head.rows = 513; }},
      {"a first row before the block before",
       [](BlockHead& head) { head.first_time = head.previous; }},
      {"a first row after the last", [](BlockHead& head) { head.first_time = head.last_time + 1; }},
      {"another first row", [](BlockHead& head) { ++head.first_time; }},
      {"no block before", [](BlockHead& head) { head.previous = 0; }},
      {"another block before", [](BlockHead& head) { --head.previous; }},
      {"a block before that is negative", [](BlockHead& head) { head.previous = -1; }},
      {"a later change than the last", [](BlockHead& head) { head.change = 100; }},
      {"the largest bytes", [](BlockHead& head) { head.bytes = INT64_MAX; }},
      {"the largest rows", [](BlockHead& head) { head.rows = INT64_MAX; }},
      {"the largest first row", [](BlockHead& head) { head.first_time = INT64_MAX; }},
      {"the least first row", [](BlockHead& head) { head.first_time = INT64_MIN; }},
      {"the largest block before", [](BlockHead& head) { head.previous = INT64_MAX; }},
      {"the least block before", [](BlockHead& head) { head.previous = INT64_MIN; }},
      {"the largest segments and bytes",
       [](BlockHead& head) { head.segment_size = head.bytes = INT64_MAX; }},
      {"no content", [](BlockHead& head) { head.content.clear(); }},
      {"one slot less", [](BlockHead& head) { head.content.resize(head.content.size() - 2); }},
      {"half a slot", [](BlockHead& head) { head.content.pop_back(); }},
      {"an unknown encoding of the shares",
       [](BlockHead& head) { head.content[4 + std::size_t{head.content[1]}] = 99; }},
  };
  MadeUp database(make_sample);
  for (const auto& change : changes) {
    for (const std::int64_t row : {6, 14, 18}) {
      SCOPED_TRACE(change.name + (" in the block to row " + std::to_string(row)));
      expect_notice_of(database, [&](sqlite3* db) {
        BlockTable blocks(db);
        BlockHead head;
        std::string error;
        EXPECT_EQ(blocks.find(1, get_sample_time(row), head, error), BlockTable::Result::FOUND);
        const std::uint32_t before = get_checksum(head);
        change.make(head);
        if (get_checksum(head) == before) return false;
        EXPECT_TRUE(blocks.replace_head(head, error)) << error;
        return true;
      });
    }
  }
}

}  // namespace
}  // namespace toolkit::trend
