// Damage in a database with blocks: every query gives the right result or fails.
#include <gtest/gtest.h>
#include <sqlite3.h>

#include <cmath>
#include <cstdint>
#include <fstream>
#include <iterator>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "libtrend/log.h"
#include "libtrend/sqlite/schema.h"
#include "libtrend/sqlite/series_state.h"
#include "libtrend/statistics.h"
#include "tests/support/print_rows.h"
#include "tests/support/process.h"
#include "tests/support/stored_log.h"

namespace toolkit::trend {
namespace {

std::vector<StoredRow> make_rows(int first, int last) {
  std::vector<StoredRow> rows;
  for (int i = first; i <= last; ++i) {
    const double value = i % 7 == 3 ? std::nan("") : i / 3.0;
    rows.push_back({300 * i, i % 5 == 0 ? 0.5 : 1, {i * 1.0, value, i / 10.0}});
  }
  return rows;
}

/// Two series of a device, with blocks, and with loose rows before, in and after them.
StoredDevice make_device() {
  StoredDevice device{"d", {{.path = "a"}, {.path = "b"}}, {}};
  set_statistics(device.params[0], 3);
  set_statistics(device.params[1], 4);
  device.params[1].aux_1 = 2;
  StoredSeries fine{.minutes = 5, .blocks = {}, .loose = make_rows(1, 2)};
  for (const int block : {3, 11, 19, 27}) fine.blocks.push_back(make_rows(block, block + 7));
  const StoredRow late = fine.blocks[1][4];
  fine.blocks[1].erase(fine.blocks[1].begin() + 4);
  fine.loose.push_back(late);
  for (const StoredRow& row : make_rows(35, 42)) fine.loose.push_back(row);
  StoredSeries coarse{.minutes = 60, .blocks = {}, .loose = {}};
  coarse.blocks.push_back({{3600, 1, {1, 2, 3}}, {7200, 1, {4, 5, 6}}, {72000, 1, {7, 8, 9}}});
  device.series = {fine, coarse};
  return device;
}

/// What queries give: texts of the catalogue and of rows by the name of the query. A query that
/// failed is missing.
using Results = std::map<std::string, std::string>;

struct RowsQuery {
  const char* name;
  std::pair<long, long> range;
  unsigned count;
  unsigned offset;
  bool ascending;
};

constexpr RowsQuery QUERIES[] = {
    {"newest first", {-1, -1}, 0, 0, false},
    {"oldest first", {-1, -1}, 0, 0, true},
    {"from the middle back", {-1, 300 * 20}, 5, 0, false},
    {"from the middle on", {300 * 15, -1}, 6, 0, true},
    {"between blocks", {300 * 18 + 1, 300 * 19}, 0, 0, true},
    {"after an offset", {-1, -1}, 4, 20, false},
};

Results query_all(const std::string& path) {
  Results results;
  CLog log;
  if (log.open(path, OpenOptions{}) != 0) return results;
  std::vector<CDeviceProperties> devices;
  if (log.get_devices(devices) == 0) {
    for (const CDeviceProperties& device : devices) {
      results["devices"] += device.path + '/' + std::to_string(device.aux_1) + device.aux_text;
    }
  }
  std::vector<CPeriodProperties> periods;
  if (log.get_periods(periods) == 0) {
    for (const auto& period : periods) {
      results["periods"] += std::to_string(period.interval) + ' ';
    }
  }
  CDeviceParams device{{.path = "d", .aux_text = "", .aux_1 = 1}, {}};
  if (log.get_params(device.device, device.params) == 0) {
    for (const CParamProperties& param : device.params) {
      results["params"] += param.path + std::to_string(get_statistics(param)) + '/' +
                           std::to_string(param.aux_1) + ' ';
    }
  }
  // The rows of what the caller knows from before.
  device = {device.device, make_device().params};
  periods = {{.interval = 5}, {.interval = 60}};
  for (const RowsQuery& query : QUERIES) {
    CDeviceData data;
    if (log.get_trend_data(data, device, periods, query.range, query.count, query.offset,
                           query.ascending, true) == 0) {
      results[query.name] = print_rows(data);
    } else {
      EXPECT_NE(log.error(), "");
    }
  }
  return results;
}

/// A database, and what its queries give.
class BlockDamage : public testing::Test {
 protected:
  BlockDamage() {
    write_blocks(path_, {make_device()}, {.page_size = 512, .segment_size = 60});
    right_ = query_all(path_);
  }

  /// Compares what queries give now. Returns whether every one of them still succeeds.
  bool compare(const std::string& what) {
    const Results results = query_all(path_);
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
  Results right_;
};

TEST_F(BlockDamage, StartsFromADatabaseThatIsWhole) {
  EXPECT_EQ(right_.size(), 3 + std::size(QUERIES));
  EXPECT_NE(right_.at("newest first"), "");
  EXPECT_TRUE(compare("unchanged"));
}

TEST_F(BlockDamage, IsFoundWhereAnyByteOfTheFileChanged) {
  std::ifstream file(path_, std::ios::binary);
  const std::string bytes((std::istreambuf_iterator<char>(file)), {});
  std::fstream target(path_, std::ios::binary | std::ios::in | std::ios::out);
  const auto put = [&](std::size_t i, char value) {
    target.seekp(static_cast<std::streamoff>(i));
    target.put(value).flush();
  };
  // A part of the bytes has to do, and fewer under an emulator.
  const std::size_t step = is_long_run() ? 1 : random_rounds(4) < 4 ? 16 : 7;
  int found = 0;
  for (std::size_t i = 0; i < bytes.size(); i += step) {
    const char old = bytes[i];
    for (const int value : {old ^ 1, old ^ 0x80, 0, 0xFF}) {
      if (static_cast<char>(value) == old) continue;
      put(i, static_cast<char>(value));
      if (!compare("byte " + std::to_string(i) + " is " + std::to_string(value))) ++found;
    }
    put(i, old);
  }
  EXPECT_GT(found, 0);
  EXPECT_TRUE(compare("all bytes are back"));
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
