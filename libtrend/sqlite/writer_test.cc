// What recording leaves in the tables.
#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "libtrend/query/engine.h"
#include "libtrend/recorder.h"
#include "libtrend/sqlite/block.h"
#include "tests/support/database_file.h"
#include "tests/support/process.h"
#include "tests/support/recorded_rows.h"
#include "tests/support/version_1.h"

namespace toolkit::trend {
namespace {

constexpr std::int64_t ROWS = static_cast<std::int64_t>(MAX_BLOCK_ROWS);
/// As many loose rows in a gap are sealed.
constexpr std::int64_t ENOUGH_ROWS = ROWS + ROWS / 8;

class Writer : public testing::Test {
 protected:
  void open(const std::string& name = "trend.db") {
    path_ = folder_.file(name);
    ASSERT_EQ(recorder_.open(path_), 0) << recorder_.error();
  }

  /// Opens a new database with `count` series.
  void open_new(unsigned count = 1, const std::string& name = "trend.db") {
    open(name);
    device_ = {.path = "/plant", .aux_text = ""};
    series_.assign(count, {});
    ASSERT_EQ(recorder_.begin(), 0);
    ASSERT_EQ(recorder_.add_device(device_), 0);
    for (unsigned i = 0; i < count; ++i) {
      ASSERT_EQ(recorder_.add_series(device_, i + 1, series_[i]), 0);
    }
    ASSERT_EQ(recorder_.commit(), 0);
  }

  int append(std::int64_t minute, std::size_t series = 0) {
    const auto value = static_cast<double>(minute);
    const std::vector<double> row = {value / 10, value / 7, 5};
    return recorder_.append(series_[series], 60 * minute, 1, row);
  }

  /// Appends rows at the minutes from `first` to `last`, upwards or downwards, in one transaction.
  void append_all(std::int64_t first, std::int64_t last) {
    ASSERT_EQ(recorder_.begin(), 0) << recorder_.error();
    const int step = first <= last ? 1 : -1;
    for (std::int64_t minute = first; minute != last + step; minute += step) {
      ASSERT_EQ(append(minute), 0) << recorder_.error();
    }
    ASSERT_EQ(recorder_.commit(), 0) << recorder_.error();
  }

  /// Appends the same, each row in a transaction of its own.
  void append_each(std::int64_t first, std::int64_t last) {
    const int step = first <= last ? 1 : -1;
    for (std::int64_t minute = first; minute != last + step; minute += step) {
      append_all(minute, minute);
    }
  }

  void purge(std::int64_t minute) {
    ASSERT_EQ(recorder_.begin(), 0);
    ASSERT_EQ(recorder_.purge(series_[0], 60 * minute), 0) << recorder_.error();
    ASSERT_EQ(recorder_.commit(), 0);
  }

  RecordedDatabase stored() { return read_recorded_rows(path_); }

  /// The minutes of the rows of a series.
  std::vector<std::int64_t> minutes(std::size_t series = 0) {
    std::vector<std::int64_t> minutes;
    const RecordedDatabase database = stored();
    for (const auto& [time, row] : database.series.at(series_[series].id)) {
      minutes.push_back(time / 60);
    }
    return minutes;
  }

  static std::vector<std::int64_t> range(std::int64_t first, std::int64_t last) {
    std::vector<std::int64_t> minutes;
    for (std::int64_t minute = first; minute <= last; ++minute) minutes.push_back(minute);
    return minutes;
  }

  std::uintmax_t closed_size() {
    recorder_.close();
    return std::filesystem::file_size(path_);
  }

  TemporaryFolder folder_;
  std::string path_;
  CRecorder recorder_;
  CDeviceProperties device_;
  std::vector<CSeries> series_;
};

TEST_F(Writer, SealsALoadOfRowsInEitherOrderOfTimeIntoFullBlocks) {
  constexpr std::int64_t COUNT = 40 * ROWS + 100;
  open_new(1, "up.db");
  append_all(1, COUNT);
  EXPECT_EQ(stored().blocks, 40);
  EXPECT_EQ(stored().sealed_rows, 40 * ROWS);
  EXPECT_EQ(minutes(), range(1, COUNT));
  const std::uintmax_t size = closed_size();

  open_new(1, "down.db");
  append_all(COUNT, 1);
  EXPECT_EQ(stored().blocks, 40);
  EXPECT_EQ(minutes(), range(1, COUNT));
  EXPECT_LT(closed_size(), size * 11 / 10);
}

TEST_F(Writer, SealsALoadOfManyTransactionsWithoutFragments) {
  for (const bool is_descending : {false, true}) {
    open_new(1, is_descending ? "down.db" : "up.db");
    constexpr std::int64_t PART = 1000;
    for (std::int64_t part = 0; part < 20; ++part) {
      const std::int64_t first = PART * (is_descending ? 19 - part : part) + 1;
      const std::int64_t last = first + PART - 1;
      append_all(is_descending ? last : first, is_descending ? first : last);
    }
    const RecordedDatabase rows = stored();
    EXPECT_EQ(rows.sealed_rows, rows.blocks * ROWS);
    EXPECT_LT(rows.loose_rows, ENOUGH_ROWS);
    EXPECT_EQ(minutes(), range(1, 20 * PART));
  }
}

TEST_F(Writer, SealsRowsOfALoadInDisorder) {
  open_new();
  ASSERT_EQ(recorder_.begin(), 0);
  constexpr std::int64_t COUNT = 10'007;  // a prime number
  for (std::int64_t i = 1; i < COUNT; ++i) ASSERT_EQ(append(i * 5000 % COUNT), 0);
  ASSERT_EQ(recorder_.commit(), 0);
  EXPECT_EQ(minutes(), range(1, COUNT - 1));
  EXPECT_LT(stored().loose_rows, ENOUGH_ROWS);
  EXPECT_EQ(stored().sealed_rows, stored().blocks * ROWS);
}

TEST_F(Writer, SealsTheOldestRowsOfALogThatGrowsByOneRow) {
  open_new();
  append_each(1, ENOUGH_ROWS - 1);
  EXPECT_EQ(stored().blocks, 0);
  append_each(ENOUGH_ROWS, ENOUGH_ROWS);
  EXPECT_EQ(stored().blocks, 1);
  EXPECT_EQ(stored().sealed_rows, ROWS);
  recorder_.close();
  open();
  append_each(ENOUGH_ROWS + 1, 2 * ROWS + ROWS / 8);
  EXPECT_EQ(stored().blocks, 2);
  EXPECT_EQ(minutes(), range(1, 2 * ROWS + ROWS / 8));
}

TEST_F(Writer, SealsAtMostOneBlockInATransactionOfFewRows) {
  constexpr unsigned COUNT = 5;
  open_new(COUNT);
  std::int64_t blocks = 0;
  for (std::int64_t minute = 1; minute < ENOUGH_ROWS + 20; ++minute) {
    ASSERT_EQ(recorder_.begin(), 0);
    for (std::size_t i = 0; i < COUNT; ++i) ASSERT_EQ(append(minute, i), 0);
    ASSERT_EQ(recorder_.commit(), 0);
    if (minute < ENOUGH_ROWS) continue;
    EXPECT_LE(stored().blocks, blocks + 1);
    blocks = stored().blocks;
  }
  EXPECT_EQ(blocks, COUNT);
}

TEST_F(Writer, KeepsUpWithManySeriesInEachTransaction) {
  constexpr unsigned COUNT = 100;
  constexpr std::int64_t PART = 50;
  open_new(COUNT);
  for (std::int64_t first = 1; first < 2 * ENOUGH_ROWS; first += PART) {
    ASSERT_EQ(recorder_.begin(), 0);
    for (std::size_t i = 0; i < COUNT; ++i) {
      for (std::int64_t minute = first; minute < first + PART; ++minute) {
        ASSERT_EQ(append(minute, i), 0);
      }
    }
    ASSERT_EQ(recorder_.commit(), 0);
  }
  EXPECT_GE(stored().blocks, COUNT);
}

TEST_F(Writer, SealsABlockAgainWithRowsThatCameLate) {
  open_new();
  ASSERT_EQ(recorder_.begin(), 0);
  for (std::int64_t i = 1; i <= ENOUGH_ROWS; ++i) ASSERT_EQ(append(2 * i), 0);
  ASSERT_EQ(recorder_.commit(), 0);
  ASSERT_EQ(stored().blocks, 1);
  const std::int64_t loose = stored().loose_rows;
  for (std::int64_t i = 1; i < ROWS / 4; ++i) append_all(2 * i + 1, 2 * i + 1);
  EXPECT_EQ(stored().blocks, 1);
  EXPECT_EQ(stored().loose_rows, loose + ROWS / 4 - 1);
  append_all(2 * ROWS - 1, 2 * ROWS - 1);
  EXPECT_EQ(stored().blocks, 2);
  EXPECT_EQ(stored().loose_rows, loose);
  EXPECT_EQ(stored().sealed_rows, ROWS + ROWS / 4);
}

TEST_F(Writer, RefusesASecondRowAtOneTimeWhereverTheFirstIs) {
  open_new();
  append_all(1, 2 * ROWS);
  append_all(3000, 3000);
  for (const std::int64_t minute :
       {std::int64_t{1}, ROWS / 2, ROWS, 2 * ROWS, std::int64_t{3000}}) {
    ASSERT_EQ(recorder_.begin(), 0);
    ASSERT_EQ(append(2500), 0);
    EXPECT_NE(append(minute), 0) << minute;
    EXPECT_EQ(recorder_.error(), "the series has a row with the timestamp " +
                                     std::to_string(60 * minute) + " already");
  }
  ASSERT_EQ(recorder_.begin(), 0);
  ASSERT_EQ(append(2500), 0);
  EXPECT_NE(append(2500), 0);
}

TEST_F(Writer, PurgesAllRowsBeforeATimeAndNoOther) {
  open_new();
  constexpr std::int64_t LAST = 4 * ROWS;
  append_all(1, LAST);
  for (const std::int64_t minute : {std::int64_t{1}, std::int64_t{2}, ROWS, ROWS + 1, ROWS + 2,
                                    2 * ROWS + 100, LAST - 1, LAST, LAST + 1}) {
    purge(minute);
    EXPECT_EQ(minutes(), range(minute, LAST)) << minute;
  }
  append_all(1, LAST);
  EXPECT_EQ(minutes(), range(1, LAST));
}

TEST_F(Writer, PurgesRowsOfTheSameTransaction) {
  open_new();
  ASSERT_EQ(recorder_.begin(), 0);
  for (std::int64_t minute = 1; minute <= 800; ++minute) ASSERT_EQ(append(minute), 0);
  ASSERT_EQ(recorder_.purge(series_[0], 60 * 700), 0);
  ASSERT_EQ(append(5), 0);
  ASSERT_EQ(recorder_.commit(), 0);
  std::vector<std::int64_t> expected = range(700, 800);
  expected.insert(expected.begin(), 5);
  EXPECT_EQ(minutes(), expected);
}

TEST_F(Writer, UsesTheSpaceOfPurgedRowsAgain) {
  open_new();
  constexpr std::int64_t KEPT = 3000;
  std::uintmax_t size = 0;
  for (std::int64_t minute = 1; minute <= 30'000; minute += 50) {
    append_all(minute, minute + 49);
    if (minute > KEPT) purge(minute - KEPT);
    if (minute == 10'001) size = closed_size();
    if (minute == 10'001) open();
  }
  EXPECT_LE(closed_size(), size * 11 / 10);
}

TEST_F(Writer, TurnsADatabaseOfVersion1IntoVersion2WithTheFirstCommit) {
  std::map<std::int64_t, RecordedSeries> rows;
  for (std::int64_t minute = 1; minute <= 5000; ++minute) {
    rows[1][60 * minute] = {1, {static_cast<double>(minute)}};
  }
  rows[2];
  make_version_1(folder_.file("trend.db"), rows);
  open();
  device_.path = "/plant";
  series_.assign(1, {});
  ASSERT_EQ(recorder_.begin(), 0) << recorder_.error();
  ASSERT_EQ(recorder_.add_device(device_), 0);
  ASSERT_EQ(recorder_.add_series(device_, 1, series_[0]), 0);
  recorder_.rollback();
  EXPECT_THROW(stored(), std::runtime_error);  // still version 1

  ASSERT_EQ(recorder_.begin(), 0);
  ASSERT_EQ(recorder_.commit(), 0) << recorder_.error();
  EXPECT_TRUE(stored().series.at(1) == rows.at(1));
  EXPECT_GE(stored().rows_without_checksum, 5000 - ROWS);
  EXPECT_LE(stored().blocks, 1);
  for (std::int64_t minute = 5001; minute <= 5020; ++minute) append_all(minute, minute);
  EXPECT_EQ(stored().blocks, 9);
  EXPECT_EQ(minutes(), range(1, 5020));
  append_each(5021, 6000);
  EXPECT_EQ(stored().rows_without_checksum, 0);
}

TEST_F(Writer, SealsRowsOfAnUpgradedSeriesThatNobodyRecordsTo) {
  std::map<std::int64_t, RecordedSeries> rows;
  for (std::int64_t minute = 1; minute <= 3000; ++minute) rows[7][60 * minute] = {1, {0.5}};
  rows[1];
  make_version_1(folder_.file("trend.db"), rows);
  open();
  series_.assign(1, {.id = 1, .minutes = 1});
  append_each(1, 20);
  EXPECT_EQ(stored().sealed_rows, 5 * ROWS);
  EXPECT_TRUE(stored().series.at(7) == rows.at(7));
}

TEST_F(Writer, RefusesAVersionThatItDoesNotKnow) {
  open_new();
  run_sql(path_, "PRAGMA user_version = 3");
  EXPECT_NE(recorder_.begin(), 0);
  EXPECT_EQ(recorder_.error(), "its format version is 3, not 1 or 2");
}

TEST_F(Writer, NoticesWhatAnotherRecorderWrote) {
  open_new();
  append_all(1, 10);
  CRecorder other;
  ASSERT_EQ(other.open(path_), 0);
  ASSERT_EQ(other.begin(), 0);
  ASSERT_EQ(other.append(series_[0], 60 * 100, 1, {}), 0);
  ASSERT_EQ(other.purge(series_[0], 60 * 5), 0);
  ASSERT_EQ(other.commit(), 0);
  ASSERT_EQ(recorder_.begin(), 0);
  EXPECT_NE(append(100), 0);
  append_all(1, 3);
  append_all(101, 101);
  EXPECT_EQ(minutes(), (std::vector<std::int64_t>{1, 2, 3, 5, 6, 7, 8, 9, 10, 100, 101}));
}

TEST_F(Writer, RefusesMoreSlotsThanADeviceCanHave) {
  open_new();
  std::vector<double> row(MAX_DEVICE_SLOTS, 1.5);
  ASSERT_EQ(recorder_.begin(), 0);
  for (std::int64_t minute = 1; minute <= 7; ++minute) {
    ASSERT_EQ(recorder_.append(series_[0], 60 * minute, 1, row), 0);
  }
  ASSERT_EQ(recorder_.commit(), 0);
  EXPECT_EQ(minutes(), range(1, 7));
  EXPECT_GE(stored().blocks, 3);
  row.push_back(1.5);
  ASSERT_EQ(recorder_.begin(), 0);
  EXPECT_NE(recorder_.append(series_[0], 60 * 8, 1, row), 0);
  EXPECT_EQ(recorder_.error(), "a row has more than the 65535 slots that a device can have");
}

TEST_F(Writer, KeepsRowsOfDifferentWidths) {
  open_new();
  const std::vector<double> wide(MAX_DEVICE_SLOTS, 1.5);
  ASSERT_EQ(recorder_.begin(), 0);
  for (std::int64_t minute = 1; minute <= 300; ++minute) ASSERT_EQ(append(minute), 0);
  ASSERT_EQ(recorder_.append(series_[0], 60 * 301, 1, wide), 0);
  ASSERT_EQ(recorder_.commit(), 0);
  EXPECT_EQ(minutes(), range(1, 301));
}

TEST_F(Writer, LeavesWideRowsOutOfABlockOfNarrowOnes) {
  open_new();
  ASSERT_EQ(recorder_.begin(), 0);
  for (std::int64_t i = 1; i <= ENOUGH_ROWS; ++i) ASSERT_EQ(append(2 * i), 0);
  ASSERT_EQ(recorder_.commit(), 0);
  ASSERT_EQ(stored().blocks, 1);
  ASSERT_EQ(recorder_.begin(), 0);
  const std::vector<double> wide(MAX_DEVICE_SLOTS, 1.5);
  ASSERT_EQ(recorder_.append(series_[0], 60 * 3, 1, wide), 0);
  for (std::int64_t i = 2; i <= ROWS / 4; ++i) ASSERT_EQ(append(2 * i + 1), 0);
  ASSERT_EQ(recorder_.commit(), 0);
  EXPECT_EQ(stored().blocks, 1);
  EXPECT_EQ(stored().sealed_rows, ROWS);
}

TEST_F(Writer, RecordsMoreThanItKeepsInMemory) {
  constexpr unsigned SERIES = 34;
  open_new(SERIES);
  const std::vector<double> wide(MAX_DEVICE_SLOTS, 1.5);
  ASSERT_EQ(recorder_.begin(), 0);
  for (const CSeries& series : series_) ASSERT_EQ(recorder_.append(series, 60, 1, wide), 0);
  ASSERT_EQ(recorder_.commit(), 0);
  const RecordedDatabase database = stored();
  for (const CSeries& series : series_) {
    EXPECT_EQ(database.series.at(series.id).at(60).values, wide);
  }
}

TEST_F(Writer, RefusesAParameterBeyondTheSlotsOfADevice) {
  open_new();
  const auto add = [&](const std::string& path) {
    CParamProperties param{.path = path,
                           .has_min = true,
                           .has_max = true,
                           .has_avg = true,
                           .has_actual = true,
                           .has_sum = true};
    return recorder_.add_param(device_, param);
  };
  ASSERT_EQ(recorder_.begin(), 0);
  for (int i = 0; i < 13'107; ++i) ASSERT_EQ(add(std::to_string(i)), 0);
  ASSERT_EQ(recorder_.commit(), 0);
  ASSERT_EQ(recorder_.begin(), 0);
  EXPECT_NE(add("one more"), 0);
  EXPECT_EQ(recorder_.error(),
            "parameter 'one more' needs more than the 65535 slots that a device can have");
}

TEST_F(Writer, RecordsOnWhereOtherRowsAreDamaged) {
  open_new(2);
  append_all(1, ENOUGH_ROWS - 1);
  run_sql(path_, "UPDATE loose SET checksum = 1 WHERE id & 0xFFFF = 600");
  append_each(ENOUGH_ROWS, ENOUGH_ROWS + 5);
  ASSERT_EQ(recorder_.begin(), 0);
  EXPECT_EQ(append(1, 1), 0);
  EXPECT_EQ(recorder_.commit(), 0) << recorder_.error();
  EXPECT_THROW(stored(), std::runtime_error);
}

TEST_F(Writer, RefusesToWriteWhereItsStateOrTheCatalogueIsDamaged) {
  open_new(2);
  append_all(1, 3);
  run_sql(path_, "UPDATE series_state SET loose_rows = 2 WHERE series_id = 1");
  ASSERT_EQ(recorder_.begin(), 0);
  EXPECT_NE(append(4), 0);
  EXPECT_EQ(recorder_.error(), "the state of a series is damaged");
  ASSERT_EQ(recorder_.begin(), 0);
  EXPECT_EQ(append(4, 1), 0);
  EXPECT_EQ(recorder_.commit(), 0);
  run_sql(path_, "UPDATE device SET path = '/other'");
  recorder_.close();
  open();
  EXPECT_NE(recorder_.begin(), 0);
  EXPECT_EQ(recorder_.error(), "the catalogue is damaged");
}

TEST_F(Writer, RefusesToWriteWhereABlockIsMissing) {
  open_new();
  append_all(1, 3 * ROWS);
  run_sql(path_, "DELETE FROM block WHERE number = 2");
  for (const std::int64_t minute : {ROWS, ROWS + 1, 2 * ROWS}) {
    ASSERT_EQ(recorder_.begin(), 0);
    const bool is_recorded = append(minute) == 0 && recorder_.commit() == 0;
    EXPECT_FALSE(is_recorded) << minute;
    recorder_.rollback();
  }
  EXPECT_EQ(recorder_.error(), "a block is missing");
}

TEST_F(Writer, RefusesASeriesThatIsNotThere) {
  open_new();
  ASSERT_EQ(recorder_.begin(), 0);
  EXPECT_NE(recorder_.append({.id = 99, .minutes = 5}, 60, 1, {}), 0);
  EXPECT_EQ(recorder_.error(), "the database has no such series");
}

}  // namespace
}  // namespace toolkit::trend
