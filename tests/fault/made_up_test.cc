// Databases that somebody made up: values of other types, and numbers that no recorder writes, with
// right checksums. A query gives the same answer as before, or fails, and a check finds them.
#include <gtest/gtest.h>
#include <sqlite3.h>

#include <cstdint>
#include <filesystem>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "libtrend/log.h"
#include "libtrend/recorder.h"
#include "libtrend/sqlite/block_table.h"
#include "libtrend/sqlite/connection.h"
#include "libtrend/sqlite/schema.h"
#include "libtrend/sqlite/series_state.h"
#include "libtrend/sqlite/statement.h"
#include "tests/support/answers.h"
#include "tests/support/database_file.h"
#include "tests/support/process.h"
#include "tests/support/sample_log.h"

namespace toolkit::trend {
namespace {

/// Where programs are slow, each database meets only some of the recordings, in turn.
constexpr std::size_t RECORDING_STEP = DAMAGE_STEP > 11 ? 5 : 1;

using Make = void (*)(const std::string& path);

/// A database that is changed in many ways.
class MadeUp {
 public:
  explicit MadeUp(Make make)
      : has_checksums_(make != make_sample_of_version_1),
        questions_((make(sound_), sound_)),
        right_(questions_.ask(sound_)) {}

  /// Makes a new copy of the database, and returns its path.
  std::string copy() {
    remove();
    std::filesystem::copy_file(sound_, path_);
    return path_;
  }

  /// Expects queries of the copy to be right or to fail, a check to find damage, and a transaction
  /// that is refused to change nothing.
  void expect_notice() {
    const Answers answers = questions_.ask(path_);
    for (const auto& [question, answer] : answers) {
      // A summary does not tell all damage in blocks, and nothing shows damage to version 1.
      if (!has_checksums_ || question.ends_with(":series")) continue;
      EXPECT_EQ(answer, right_.at(question)) << question;
    }
    CLog log;
    std::vector<CDamage> damage;
    EXPECT_EQ(log.open_damaged(path_, {}), 0) << log.error();
    EXPECT_EQ(log.check(damage), 0) << log.error();
    EXPECT_FALSE(damage.empty());
    if (has_checksums_) expect_rows_or_damage();
    for (; next_ < RECORDINGS.size(); next_ += RECORDING_STEP) {
      const Recording& recording = RECORDINGS[next_];
      SCOPED_TRACE(recording.name);
      const std::string other = folder_.file("other.db");
      std::filesystem::copy_file(path_, other, std::filesystem::copy_options::overwrite_existing);
      CRecorder recorder;
      const bool is_recorded = recorder.open(other) == 0 && recorder.begin() == 0 &&
                               recording.record(recorder) && recorder.commit() == 0;
      EXPECT_EQ(is_recorded, recorder.error().empty());
      recorder.close();
      if (!is_recorded) {
        EXPECT_EQ(questions_.ask(other), answers);
      }
    }
    next_ %= RECORDINGS.size();
  }

 private:
  void remove() {
    for (const char* suffix : {"", "-wal", "-shm"}) std::filesystem::remove(path_ + suffix);
  }

  /// Expects a reader that skips damage to tell of it where rows are missing.
  void expect_rows_or_damage() {
    for (const bool ascending : {true, false}) {
      CLog log;
      CLog sound;
      ASSERT_EQ(log.open_damaged(path_, {}), 0) << log.error();
      ASSERT_EQ(sound.open(sound_, {}), 0);
      CDeviceParams device;
      device.device.aux_1 = 1;
      device.params = sample_devices()[0].params;
      const std::vector<CPeriodProperties> periods = {{.interval = 5}, {.interval = 60}};
      CDeviceData data;
      CDeviceData right;
      std::vector<CDamage> damage;
      ASSERT_EQ(sound.get_trend_data(right, device, periods, {-1, -1}, 0, 0, ascending, true), 0);
      if (log.get_trend_data(data, device, periods, {-1, -1}, 0, 0, ascending, true) != 0) {
        EXPECT_NE(log.error(), "");
        continue;
      }
      ASSERT_EQ(log.get_damage(damage), 0);
      EXPECT_TRUE(data.snapshots.size() == right.snapshots.size() || !damage.empty());
    }
  }

  TemporaryFolder folder_;
  std::string sound_ = folder_.file("sound.db");
  std::string path_ = folder_.file("trend.db");
  bool has_checksums_;
  Questions questions_;
  Answers right_;
  std::size_t next_ = 0;  ///< the next of the recordings
};

struct Column {
  const char* table;
  const char* name;
  const char* value;  ///< of another type
};

constexpr const char* NUMBER = "'x'";
constexpr const char* TEXT = "x'00'";
constexpr const char* BLOB = "'x'";

constexpr Column CATALOGUE_COLUMNS[] = {
    {"device", "path", TEXT},
    {"device", "description", TEXT},
    {"parameter", "device_id", NUMBER},
    {"parameter", "path", TEXT},
    {"parameter", "statistics", NUMBER},
    {"parameter", "first_slot", NUMBER},
    {"series", "device_id", NUMBER},
    {"series", "minutes", NUMBER},
};

constexpr Column COLUMNS_OF_VERSION_1[] = {{"snapshot", "valid_ratio", NUMBER},
                                           {"snapshot", "samples", BLOB}};

constexpr Column COLUMNS[] = {
    {"loose", "valid_ratio", NUMBER},
    {"loose", "samples", BLOB},
    {"loose", "checksum", NUMBER},
    {"series_state", "loose_rows", NUMBER},
    {"series_state", "unchecked_until", NUMBER},
    {"series_state", "first_block", NUMBER},
    {"series_state", "last_block", NUMBER},
    {"series_state", "blocks", NUMBER},
    {"series_state", "sealed_rows", NUMBER},
    {"series_state", "changes", NUMBER},
    {"series_state", "checksum", NUMBER},
    {"block", "number", NUMBER},
    {"block", "first_time", NUMBER},
    {"block", "previous", NUMBER},
    {"block", "rows", NUMBER},
    {"block", "bytes", NUMBER},
    {"block", "segment_size", NUMBER},
    {"block", "change", NUMBER},
    {"block", "content", BLOB},
    {"block", "checksum", NUMBER},
    {"segment", "data", BLOB},
    {"database", "uuid", TEXT},
    {"database", "next_block", NUMBER},
    {"database", "catalogue", NUMBER},
    {"database", "checksum", NUMBER},
};

/// Runs `sql` without the checks of the tables.
void change(const std::string& path, const std::string& sql) {
  run_sql(path,
          "PRAGMA writable_schema = ON;"
          "UPDATE sqlite_schema SET sql = replace(sql, ') STRICT', ')');"
          "PRAGMA writable_schema = RESET; PRAGMA ignore_check_constraints = ON;" +
              sql);
}

/// Gives each column another type: in all rows, and in the last one.
void expect_notice_of_types(MadeUp& database, std::span<const Column> columns) {
  for (const Column& column : columns) {
    const std::string table = column.table;
    for (const std::string& rows : {std::string(" WHERE rowid > 0"),
                                    " WHERE rowid = (SELECT max(rowid) FROM " + table + ")"}) {
      const std::string sql =
          "UPDATE OR IGNORE " + table + " SET " + column.name + " = " + column.value + rows;
      SCOPED_TRACE(sql);
      change(database.copy(), sql);
      database.expect_notice();
    }
  }
}

TEST(OtherTypes, AreNoticedInVersion1) {
  MadeUp database(make_sample_of_version_1);
  expect_notice_of_types(database, CATALOGUE_COLUMNS);
  expect_notice_of_types(database, COLUMNS_OF_VERSION_1);
}

TEST(OtherTypes, AreNoticed) {
  MadeUp database(make_sample);
  expect_notice_of_types(database, CATALOGUE_COLUMNS);
  expect_notice_of_types(database, COLUMNS);
}

TEST(OtherValues, AreNoticedInVersion1) {
  MadeUp database(make_sample_of_version_1);
  for (const char* sql : {
           "UPDATE parameter SET statistics = -1",
           "UPDATE parameter SET statistics = 32 WHERE id = 2",
           "UPDATE parameter SET first_slot = -1 WHERE id = 1",
           "UPDATE parameter SET first_slot = 65534",
           "UPDATE series SET minutes = -5 WHERE id = 1",
           "UPDATE series SET id = id + (1 << 23)",
           "UPDATE series SET id = -1 WHERE id = 2",
           "UPDATE snapshot SET id = id + (3 << 40)",
           "UPDATE snapshot SET samples = zeroblob(9)",
       }) {
    SCOPED_TRACE(sql);
    change(database.copy(), sql);
    database.expect_notice();
  }
}

TEST(OtherValues, AreNoticed) {
  MadeUp database(make_sample);
  for (const char* sql : {
           "UPDATE device SET path = 'z' WHERE id = 1",
           "UPDATE parameter SET statistics = -1",
           "UPDATE series SET minutes = 1 << 33 WHERE id = 2",
           "UPDATE loose SET checksum = NULL",
           "UPDATE loose SET checksum = checksum + 1",
           "UPDATE loose SET samples = zeroblob(9)",
           "UPDATE loose SET samples = zeroblob(9) WHERE checksum IS NULL",
           "DELETE FROM loose",
           "DELETE FROM loose WHERE id = (SELECT max(id) FROM loose WHERE id < 2 << 40)",
           "DELETE FROM series_state",
           "DELETE FROM block",
           "DELETE FROM block WHERE number = 1",
           "DELETE FROM block WHERE number = 2",
           "DELETE FROM block WHERE number = 3",
           "UPDATE OR IGNORE block SET id = id + 1",
           "DELETE FROM segment",
           "UPDATE segment SET data = data || x'00'",
           "UPDATE segment SET id = id + (9 << 40)",
           "DELETE FROM database",
           "UPDATE database SET next_block = next_block + 1",
       }) {
    SCOPED_TRACE(sql);
    change(database.copy(), sql);
    database.expect_notice();
  }
}

/// The place in the file of the page of a table; 0 if the table has several pages.
std::size_t find_page(const std::string& path, const std::string& content,
                      const std::string& table) {
  Database db;
  std::string error;
  std::int64_t page = 0;
  EXPECT_TRUE(connect(path, SQLITE_OPEN_READONLY, nullptr, db, error));
  const std::string sql = "SELECT rootpage FROM sqlite_schema WHERE name = '" + table + "'";
  EXPECT_TRUE(read_number(db.get(), sql.c_str(), page));
  constexpr char LEAF = 13;
  const std::size_t place = static_cast<std::size_t>(page - 1) * 512;
  return content.at(place) == LEAF ? place : 0;
}

// SQLite searches in a page and walks through it in two ways, and only a walk sees all rows then.
TEST(OtherOrder, OfTheRowsOfAPageIsNoticed) {
  for (const auto& [make, tables] :
       {std::pair<Make, std::vector<std::string>>{
            make_sample, {"device", "parameter", "series", "series_state", "block", "segment"}},
        {make_sample_of_version_1, {"device", "series"}}}) {
    MadeUp database(make);
    for (const std::string& table : tables) {
      const std::string path = database.copy();
      const std::string content = read_file(path);
      const std::size_t page = find_page(path, content, table);
      if (page == 0) continue;
      constexpr std::size_t HEAD = 8;
      const std::string first = content.substr(page + HEAD, 2);
      const std::string second = content.substr(page + HEAD + 2, 2);
      for (const std::string& start : {second + first, second + second, first + first}) {
        SCOPED_TRACE(table);
        write_file(database.copy(), std::string(content).replace(page + HEAD, 4, start));
        database.expect_notice();
      }
    }
  }
}

TEST(ImpossibleStates, AreNoticed) {
  struct Case {
    const char* name;
    void (*change)(SeriesState& state);
  };
  const Case cases[] = {
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
  for (const Case& one : cases) {
    SCOPED_TRACE(one.name);
    const std::string path = database.copy();
    {
      Database db;
      std::string error;
      ASSERT_TRUE(connect(path, SQLITE_OPEN_READWRITE, nullptr, db, error));
      SeriesStates states(db.get());
      SeriesState state;
      ASSERT_EQ(states.get(1, state, error), SeriesStates::Result::FOUND);
      one.change(state);
      ASSERT_TRUE(states.set(state, error)) << error;
    }
    database.expect_notice();
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
    const std::string path = database.copy();
    {
      Database db;
      std::string error;
      ASSERT_TRUE(connect(path, SQLITE_OPEN_READWRITE, nullptr, db, error));
      Statement write(db.get(), "INSERT OR REPLACE INTO loose VALUES (?1, 1.0, ?2, ?3)");
      const std::int64_t id = get_row_id(1, one.time);
      write.bind(1, id);
      write.bind(2, one.samples.data(), one.samples.size());
      write.bind(3, std::int64_t{get_row_checksum(id, 1, one.samples)});
      ASSERT_TRUE(write.run()) << write.error();
    }
    database.expect_notice();
  }
}

TEST(ImpossibleBlockNumbers, AreNoticed) {
  MadeUp database(make_sample);
  for (const std::int64_t number : {INT64_MIN, std::int64_t{0}, std::int64_t{1}, INT64_MAX}) {
    SCOPED_TRACE(number);
    const std::string path = database.copy();
    {
      Database db;
      std::string error;
      std::uint32_t catalogue = 0;
      ASSERT_TRUE(connect(path, SQLITE_OPEN_READWRITE, nullptr, db, error));
      ASSERT_TRUE(get_catalogue_checksum(db.get(), catalogue));
      Statement row(db.get(), "SELECT uuid FROM database");
      std::string uuid;
      ASSERT_TRUE(row.step() == Statement::Step::ROW && row.read(0, uuid));
      row.reset();
      Statement write(db.get(), "UPDATE database SET next_block = ?1, checksum = ?2");
      write.bind(1, number);
      write.bind(2, std::int64_t{get_database_checksum(uuid, number, catalogue)});
      ASSERT_TRUE(write.run());
    }
    database.expect_notice();
  }
}

TEST(ImpossibleHeads, AreNoticed) {
  struct Case {
    const char* name;
    void (*change)(BlockHead& head);
  };
  const Case cases[] = {
      {"a negative number", [](BlockHead& head) { head.number = -1; }},
      {"a number too large", [](BlockHead& head) { head.number = INT64_MAX; }},
      {"negative bytes", [](BlockHead& head) { head.bytes = -1; }},
      {"more bytes", [](BlockHead& head) { ++head.bytes; }},
      {"no segment size", [](BlockHead& head) { head.segment_size = 0; }},
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
  for (const Case& one : cases) {
    for (const std::int64_t row : {6, 14, 18}) {
      SCOPED_TRACE(one.name + (" in the block to row " + std::to_string(row)));
      const std::string path = database.copy();
      {
        Database db;
        std::string error;
        ASSERT_TRUE(connect(path, SQLITE_OPEN_READWRITE, nullptr, db, error));
        BlockTable blocks(db.get());
        BlockHead head;
        ASSERT_EQ(blocks.find(1, get_sample_time(row), head, error), BlockTable::Result::FOUND);
        const std::uint32_t before = get_checksum(head);
        one.change(head);
        if (get_checksum(head) == before) continue;
        ASSERT_TRUE(blocks.replace_head(head, error)) << error;
      }
      database.expect_notice();
    }
  }
}

}  // namespace
}  // namespace toolkit::trend
