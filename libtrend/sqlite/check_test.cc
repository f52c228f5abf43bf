// Checking a database, and reading what is left of a damaged one.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <fstream>
#include <iterator>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "libtrend/log.h"
#include "libtrend/recorder.h"
#include "libtrend/statistics.h"
#include "tests/support/database_file.h"
#include "tests/support/process.h"
#include "tests/support/small_databases.h"
#include "tests/support/stored_log.h"

namespace toolkit::trend {
namespace {

using testing::Contains;
using testing::Field;
using testing::HasSubstr;
using testing::IsEmpty;

/// The rows of one series by time.
using Rows = std::map<std::int64_t, CSnapshot>;

constexpr std::uint32_t INTERVALS[] = {5, 60};

constexpr std::int64_t MAX_TIME = std::int64_t{1} << 40;

/// Reads the rows of a series in one direction. Returns false where that fails.
bool read_rows(CLog& log, std::uint32_t minutes, bool ascending, Rows& rows) {
  const CDeviceParams device{{.path = "d", .aux_text = "", .aux_1 = 1}, make_stored_params()};
  CDeviceData data;
  if (log.get_trend_data(data, device, {{.interval = minutes}}, {-1, -1}, 0, 0, ascending, true) !=
      0) {
    return false;
  }
  for (const CSnapshot& row : data.snapshots) {
    EXPECT_TRUE(rows.emplace(row.timestamp, row).second) << "two rows have one time";
  }
  return true;
}

/// Whether every query of a program that does not skip damaged data succeeds.
bool is_readable(const std::string& path) {
  CLog log;
  std::vector<CDeviceProperties> devices;
  std::vector<CPeriodProperties> periods;
  std::vector<CParamProperties> params;
  if (log.open(path, {}) != 0 || log.get_devices(devices) != 0 || log.get_periods(periods) != 0 ||
      log.get_params({.path = "d", .aux_text = "", .aux_1 = 1}, params) != 0) {
    return false;
  }
  for (const std::uint32_t minutes : INTERVALS) {
    for (const bool ascending : {true, false}) {
      Rows rows;
      if (!read_rows(log, minutes, ascending, rows)) return false;
    }
  }
  return true;
}

class Checking : public testing::Test {
 protected:
  void write(std::int64_t unchecked_until = 0) {
    write_blocks(path_, {make_stored_device(unchecked_until)},
                 {.page_size = 512, .segment_size = 60});
  }

  /// Checks the database. Returns the damage, also where the file can't be opened at all.
  std::vector<CDamage> check() {
    CLog log;
    std::vector<CDamage> damage;
    if (log.open_damaged(path_, {}) != 0 || log.check(damage) != 0) {
      damage.push_back({.device = "", .param = "", .text = log.error()});
    }
    return damage;
  }

  static bool is_named(const std::vector<CDamage>& damage, std::uint32_t minutes, std::int64_t time,
                       const std::string& param) {
    for (const CDamage& part : damage) {
      // In a damaged catalogue, nobody knows what belongs to what.
      if (part.minutes == 0) return true;
      if (part.minutes == minutes && part.first <= time && time <= part.last &&
          (part.param.empty() || part.param == param)) {
        return true;
      }
    }
    return false;
  }

  /// Reads what is left, and compares it with `right`: what is missing must have been named. Rows
  /// from the time `checked_from` on have checksums.
  /// Returns whether something was damaged.
  bool compare_with(const std::map<std::uint32_t, Rows>& right, std::int64_t checked_from,
                    const std::string& what) {
    CLog log;
    if (log.open_damaged(path_, {}) != 0) return true;
    std::vector<CDamage> damage;
    for (const auto& [minutes, rows] : right) {
      Rows left[2];
      for (const bool ascending : {false, true}) {
        EXPECT_TRUE(read_rows(log, minutes, ascending, left[ascending])) << what << log.error();
      }
      damage.clear();
      EXPECT_EQ(log.get_damage(damage), 0);
      for (const auto& found : left) compare(minutes, rows, found, damage, checked_from, what);
    }
    return !damage.empty();
  }

  static void compare(std::uint32_t minutes, const Rows& right, const Rows& left,
                      const std::vector<CDamage>& damage, std::int64_t checked_from,
                      const std::string& what) {
    for (const auto& [time, row] : right) {
      const auto found = left.find(time);
      if (found == left.end()) {
        // Without checksums, a row that seems to have another time is not noticed.
        EXPECT_TRUE(time < checked_from || is_named(damage, minutes, time, ""))
            << what << ", lost " << time;
        continue;
      }
      for (std::size_t i = 0; i < row.samples.size() && time >= checked_from; ++i) {
        for (const Statistic& statistic : STATISTICS) {
          const double value = found->second.samples[i].*statistic.member;
          const double expected = row.samples[i].*statistic.member;
          const bool is_same = std::isnan(expected) ? std::isnan(value) : value == expected;
          EXPECT_TRUE(is_same || is_named(damage, minutes, time, make_stored_params()[i].path))
              << what << ", row " << time << " parameter " << i;
        }
      }
    }
    for (const auto& [time, row] : left) {
      EXPECT_TRUE(right.contains(time) || time < checked_from ||
                  is_named(damage, minutes, time, ""))
          << what << ", invented " << time;
    }
  }

  /// Changes one byte after the other. What a query refuses, the check must find.
  void damage_each_byte(std::int64_t checked_from) {
    CLog log;
    std::map<std::uint32_t, Rows> right;
    ASSERT_EQ(log.open(path_, {}), 0);
    for (const std::uint32_t minutes : INTERVALS) {
      ASSERT_TRUE(read_rows(log, minutes, true, right[minutes]));
    }
    log.close();
    ASSERT_FALSE(compare_with(right, 0, "unchanged"));
    std::ifstream file(path_, std::ios::binary);
    const std::string bytes((std::istreambuf_iterator<char>(file)), {});
    std::fstream target(path_, std::ios::binary | std::ios::in | std::ios::out);
    const auto put = [&](std::size_t i, int value) {
      target.seekp(static_cast<std::streamoff>(i));
      target.put(static_cast<char>(value)).flush();
    };
    const std::size_t step = damage_step();
    int refused = 0;
    int salvaged = 0;
    for (std::size_t i = 0; i < bytes.size() && !HasFailure(); i += step) {
      const int value = i % 3 == 0 ? bytes[i] ^ 1 : i % 3 == 1 ? bytes[i] ^ 0x80 : ~bytes[i];
      put(i, value);
      const std::string what = "byte " + std::to_string(i) + " is " + std::to_string(value & 0xFF);
      const bool is_damaged = compare_with(right, checked_from, what);
      if (is_damaged) ++salvaged;
      if (!is_readable(path_)) {
        ++refused;
        EXPECT_FALSE(check().empty()) << what;
      }
      put(i, bytes[i]);
    }
    EXPECT_GT(refused, 0);
    EXPECT_GT(salvaged, 0);
    EXPECT_THAT(check(), IsEmpty()) << "all bytes are back";
  }

  /// Expects that a check after `sql` finds `text`.
  void expect_damage(const std::string& sql, const std::string& text) {
    run_sql(path_, "PRAGMA foreign_keys = OFF; PRAGMA ignore_check_constraints = ON;" + sql);
    EXPECT_THAT(check(), Contains(Field(&CDamage::text, HasSubstr(text)))) << sql;
    std::filesystem::remove(path_);
    write();
  }

  TemporaryFolder folder_;
  std::string path_ = folder_.file("trend.db");
};

TEST_F(Checking, FindsNothingInADatabaseThatIsWhole) {
  write();
  EXPECT_THAT(check(), IsEmpty());
  std::filesystem::remove(path_);
  write(900);
  EXPECT_THAT(check(), IsEmpty());
  std::filesystem::remove(path_);
  write_rows_only(path_, {make_stored_device()});
  EXPECT_THAT(check(), IsEmpty());
}

TEST_F(Checking, FindsWhatAQueryRefusesWhereAnyByteChanged) {
  write();
  damage_each_byte(0);
}

TEST_F(Checking, FindsWhatAQueryRefusesInAnUpgradedDatabase) {
  write(900);
  damage_each_byte(901);
}

TEST_F(Checking, FindsWhatAQueryRefusesInAnOldDatabase) {
  write_rows_only(path_, {make_stored_device()});
  run_sql(path_, "PRAGMA journal_mode = delete; PRAGMA page_size = 512; VACUUM");
  damage_each_byte(MAX_TIME);
}

TEST_F(Checking, ReadsTheRulesOfTables) {
  // What a text in the schema says, and what it says when a byte of it has changed.
  const auto change_schema = [](const std::string& table, const std::string& from,
                                const std::string& to) {
    return "PRAGMA writable_schema = ON; UPDATE sqlite_schema SET sql = replace(sql, '" + from +
           "', '" + to + "') WHERE name = '" + table + "'";
  };
  write();
  expect_damage(change_schema("parameter", "CHECK (statistics", "CHECK (statistisc"),
                "the rules of table parameter are damaged");
  expect_damage(change_schema("series", "minutes > 0", "minutes > 5"),
                "a row breaks the rules of table series");
  expect_damage(change_schema("loose", "0xFFFFFFFFFF > 0", "0xFFFFFFFFFF < 0"),
                "a row breaks the rules of table loose");
  expect_damage(change_schema("database", "id = 1", "id = 3"),
                "a row breaks the rules of table database");
  // Other recorders may write other texts that mean the same.
  for (const auto& [from, to] : std::vector<std::pair<std::string, std::string>>{
           {"CHECK (minutes > 0)", "CHECK (0 < minutes)"},
           {"CHECK (minutes > 0)", ""},
           {"minutes   INTEGER", "/* of an interval */ minutes INTEGER"}}) {
    run_sql(path_, change_schema("series", from, to));
    EXPECT_THAT(check(), IsEmpty()) << to;
    std::filesystem::remove(path_);
    write();
  }
}

TEST_F(Checking, NamesEachKindOfDamage) {
  write();
  expect_damage("UPDATE device SET path = 'e'", "the catalogue is damaged");
  expect_damage("UPDATE database SET next_block = 3", "the catalogue is damaged");
  expect_damage("UPDATE database SET next_block = 3", "a block has a number that is not its own");
  expect_damage("DELETE FROM device", "row 1 of parameter belongs to no device");
  expect_damage("DELETE FROM series_state WHERE series_id = 1", "the state of a series is missing");
  expect_damage("UPDATE series_state SET changes = 7", "the state of a series is damaged");
  expect_damage("DELETE FROM loose WHERE id & 0xFFFFFF = 900", "of 12 rows that are not in blocks");
  expect_damage("UPDATE loose SET valid_ratio = 0.7 WHERE id & 0xFFFFFF = 900", "a row is damaged");
  expect_damage(
      "INSERT INTO loose SELECT id + 1200, valid_ratio, samples, checksum FROM loose "
      "WHERE id & 0xFFFFFF = 900",
      "a row is damaged");
  expect_damage(
      "INSERT INTO loose SELECT id + (1 << 41), valid_ratio, samples, checksum FROM loose",
      "rows of no series");
  expect_damage(
      "INSERT INTO loose SELECT id & ~0xFFFFFFFFFF, valid_ratio, samples, checksum FROM "
      "loose LIMIT 1",
      "rows of no series");
  expect_damage("DELETE FROM block WHERE number = 2", "a block is missing");
  expect_damage("DELETE FROM block WHERE number = 2", "segments of no block");
  expect_damage("UPDATE block SET rows = 3 WHERE number = 2", "the head of a block is damaged");
  expect_damage("UPDATE block SET id = id + (1 << 41) WHERE number = 2", "blocks of no series");
  expect_damage("UPDATE segment SET data = zeroblob(length(data)) WHERE id >> 16 = 2",
                "the values of slot 0 are damaged in a block");
  expect_damage("INSERT INTO segment VALUES (7 << 16, x'00')", "segments of no block");
  expect_damage("UPDATE parameter SET first_slot = 1 WHERE path = 'b'",
                "its slots are also those of another parameter");
  expect_damage("UPDATE parameter SET first_slot = 65535 WHERE path = 'b'",
                "its slots are beyond those that a row can have");
  expect_damage("DROP TABLE segment", "no such table");
}

TEST_F(Checking, NamesWhatCanBeWrongInAnOldDatabase) {
  const std::pair<const char*, const char*> cases[] = {
      {"DELETE FROM series WHERE minutes = 5", "rows of no series"},
      {"UPDATE snapshot SET samples = x'00' WHERE id & 0xFFFFFF = 900", "a row is damaged"},
      {"UPDATE parameter SET first_slot = 0", "its slots are also those of another parameter"},
      {"DELETE FROM device", "row 1 of parameter belongs to no device"}};
  for (const auto& [sql, text] : cases) {
    write_rows_only(path_, {make_stored_device()});
    run_sql(path_, sql);
    EXPECT_THAT(check(), Contains(Field(&CDamage::text, HasSubstr(text)))) << sql;
    std::filesystem::remove(path_);
  }
}

TEST_F(Checking, NamesTheRowsThatAreLost) {
  write();
  run_sql(path_, "UPDATE block SET rows = 3 WHERE number = 2");
  const std::vector<CDamage> damage = check();
  ASSERT_EQ(damage.size(), 2U);  // the other is about the block's segments
  EXPECT_EQ(damage[1].device, "d");
  EXPECT_EQ(damage[1].minutes, 5U);
  EXPECT_EQ(damage[1].first, 300 * 11 + 1);
  EXPECT_EQ(damage[1].last, 300 * 20 - 1);
}

TEST_F(Checking, CountsRows) {
  write();
  CLog log;
  ASSERT_EQ(log.open(path_, {}), 0);
  std::vector<CDamage> damage;
  EXPECT_EQ(log.check(damage, [](std::uint64_t, std::uint64_t) { return false; }), 0)
      << "there are too few rows for a call";
}

TEST_F(Checking, NamesACopyOfNoSeries) {
  write();
  expect_damage(
      "CREATE TABLE copied (source TEXT, series_id INTEGER NOT NULL REFERENCES series (id), "
      "change INTEGER, checksum INTEGER, PRIMARY KEY (source, series_id)) STRICT, WITHOUT ROWID;"
      "INSERT INTO copied VALUES ('x', 99, 1, 1)",
      "row 0 of copied belongs to no series");
}

TEST_F(Checking, NamesAtMostAThousandParts) {
  write();
  run_sql(path_,
          "WITH RECURSIVE n (i) AS (SELECT 100 UNION ALL SELECT i + 1 FROM n WHERE i < 1200) "
          "INSERT INTO parameter SELECT i, 1, 'p' || i, 1, 0 FROM n");
  EXPECT_EQ(check().size(), 1000U);
}

TEST_F(Checking, EndsWhereItIsStopped) {
  // In turn, in rows that are loose, in blocks, and while all rows are read once more.
  for (const bool has_blocks : {false, true}) {
    StoredSeries series{.minutes = 5, .blocks = {}, .loose = {}};
    for (int first = 1; first < 5000; first += 512) {
      const std::vector<StoredRow> rows = make_stored_rows(first, first + 511);
      if (has_blocks) series.blocks.push_back(rows);
      if (!has_blocks) series.loose.insert(series.loose.end(), rows.begin(), rows.end());
    }
    const StoredDevice device{"d", make_stored_params(), {series}};
    for (const auto& write : {+[](const std::string&path, const StoredDevice&content) {
                                write_blocks(path, {content});
                              },
                              +[](const std::string&path, const StoredDevice&content) {
                                write_rows_only(path, {content});
                              }}) {
      std::filesystem::remove(path_);
      write(path_, device);
      CLog log;
      ASSERT_EQ(log.open(path_, {}), 0);
      std::vector<CDamage> damage;
      int calls = 0;
      EXPECT_EQ(log.check(damage, [&](auto, auto) { return ++calls > 0; }), 0) << log.error();
      EXPECT_GT(calls, 0);
      EXPECT_NE(log.check(damage, [](auto, auto) { return false; }), 0);
      EXPECT_EQ(log.error(), "it was stopped");
      EXPECT_THAT(damage, IsEmpty());
    }
  }
}

TEST_F(Checking, KnowsTheLastRowOfTheLastSeries) {
  const StoredDevice device{
      "d", make_stored_params(), {{.minutes = 5, .blocks = {}, .loose = make_stored_rows(1, 2)}}};
  write_rows_only(path_, {device});
  const std::string last = std::to_string(std::int64_t{(1 << 23) - 1} << 40 | (MAX_TIME - 1));
  run_sql(path_,
          "UPDATE series SET id = (1 << 23) - 1;"
          "UPDATE snapshot SET id = " +
              last + " - 600 + (id & 1023)");
  run_sql(path_, "UPDATE snapshot SET id = " + last + " WHERE id = (SELECT max(id) FROM snapshot)");
  EXPECT_THAT(check(), IsEmpty());
  CLog log;
  CDeviceData data;
  ASSERT_EQ(log.open_damaged(path_, {}), 0);
  ASSERT_EQ(log.get_trend_data(data, {{.path = "d", .aux_text = "", .aux_1 = 1}, {}},
                               {{.interval = 5}}, {-1, -1}, 0, 0, true, true),
            0);
  std::vector<CDamage> damage;
  ASSERT_EQ(log.get_damage(damage), 0);
  EXPECT_THAT(damage, IsEmpty());
  // A new row lets the recorder look at all others.
  CRecorder recorder;
  CDeviceProperties place{.path = "d", .aux_text = ""};
  CSeries series;
  ASSERT_EQ(recorder.open(path_), 0);
  ASSERT_EQ(recorder.begin(), 0);
  ASSERT_EQ(recorder.add_device(place), 0);
  ASSERT_EQ(recorder.add_series(place, 5, series), 0);
  ASSERT_EQ(recorder.append(series, 300, 1, {}), 0);
  ASSERT_EQ(recorder.commit(), 0) << recorder.error();
  recorder.close();
  EXPECT_THAT(check(), IsEmpty());
}

TEST_F(Checking, ReadsOnWhereAParameterIsDamaged) {
  write();
  run_sql(path_, "UPDATE segment SET data = zeroblob(length(data)) WHERE id = 2 << 16");
  CLog log;
  ASSERT_EQ(log.open_damaged(path_, {}), 0);
  Rows rows;
  ASSERT_TRUE(read_rows(log, 5, true, rows));
  EXPECT_EQ(rows.size(), 43U);
  EXPECT_TRUE(std::isnan(rows.at(300 * 12).samples[0].min));
  EXPECT_EQ(rows.at(300 * 12).samples[1].avg, 1.2);
  std::vector<CDamage> damage;
  ASSERT_EQ(log.get_damage(damage), 0);
  ASSERT_EQ(damage.size(), 1U);
  EXPECT_EQ(damage[0].param, "a");
  EXPECT_EQ(damage[0].first, 300 * 12);
  EXPECT_EQ(damage[0].last, 300 * 19);
}

TEST_F(Checking, ReadsWhatIsLeftOfAFileThatWasCutOff) {
  StoredDevice device = make_stored_device();
  for (int row = 44; row < 30000; row += 100) {
    device.series[0].blocks.push_back(make_stored_rows(row, row + 99));
  }
  device.series[0].loose.clear();
  write_blocks(path_, {device});
  const auto size = static_cast<std::size_t>(std::filesystem::file_size(path_) / 4096);
  std::size_t least = 100000;
  std::size_t most = 0;
  for (std::size_t pages = size - 1; pages > size / 2; pages -= 7) {
    std::filesystem::resize_file(path_, 4096 * pages);
    CLog log;
    EXPECT_NE(log.open(path_, {}), 0);
    ASSERT_EQ(log.open_damaged(path_, {}), 0) << log.error();
    Rows rows;
    EXPECT_TRUE(read_rows(log, 5, true, rows)) << log.error();
    EXPECT_FALSE(check().empty());
    least = std::min(least, rows.size());
    most = std::max(most, rows.size());
  }
  EXPECT_GT(most, 1000U);
  EXPECT_LT(least, most);
}

TEST_F(Checking, FindsDamageInALargeTable) {
  // Rows of version 1 on many pages, one of which is lost.
  StoredSeries series{.minutes = 5, .blocks = {}, .loose = make_stored_rows(1, 3000)};
  write_rows_only(path_, {{"d", make_stored_params(), {series}}});
  run_sql(path_, "PRAGMA journal_mode = delete; PRAGMA page_size = 512; VACUUM");
  std::fstream target(path_, std::ios::binary | std::ios::in | std::ios::out);
  target.seekp(512 * 100);
  target.write(std::string(512, 'x').data(), 512).flush();
  CLog log;
  ASSERT_EQ(log.open_damaged(path_, {}), 0);
  for (const bool ascending : {true, false}) {
    Rows rows;
    ASSERT_TRUE(read_rows(log, 5, ascending, rows));
    EXPECT_GT(rows.size(), 2900U);
    EXPECT_LT(rows.size(), 3000U);
    std::vector<CDamage> damage;
    ASSERT_EQ(log.get_damage(damage), 0);
    ASSERT_EQ(damage.size(), 1U);
    EXPECT_EQ(static_cast<std::size_t>((damage[0].last - damage[0].first) / 300),
              3000 - rows.size());
  }
  EXPECT_FALSE(check().empty());
}

}  // namespace
}  // namespace toolkit::trend
