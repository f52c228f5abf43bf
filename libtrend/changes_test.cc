// What a copy asks two databases: where a series has changed, and how far the last copy came.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sqlite3.h>

#include <limits>
#include <random>
#include <set>

#include "libtrend/log.h"
#include "libtrend/recorder.h"
#include "tests/support/process.h"
#include "tests/support/stored_log.h"

namespace toolkit::trend {

static void PrintTo(const CTimeRange& range, std::ostream* out) {
  *out << range.first << ".." << range.last;
}
static bool operator==(const CTimeRange& a, const CTimeRange& b) {
  return a.first == b.first && a.last == b.last;
}

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class Changes : public testing::Test {
 protected:
  /// Records rows at `times` in one transaction.
  void append(const std::vector<std::int64_t>& times) {
    CRecorder recorder;
    ASSERT_EQ(recorder.open(db_), 0);
    ASSERT_EQ(recorder.begin(), 0);
    ASSERT_EQ(recorder.add_device(device_), 0);
    ASSERT_EQ(recorder.add_series(device_, 1, series_), 0);
    const double value = 7;
    for (const std::int64_t time : times) {
      ASSERT_EQ(recorder.append(series_, time, 1, {&value, 1}), 0) << recorder.error();
    }
    ASSERT_EQ(recorder.commit(), 0) << recorder.error();
  }

  CSeriesChanges changes_since(std::uint64_t since) {
    CLog log;
    std::vector<CDeviceProperties> devices;
    CSeriesChanges changes;
    EXPECT_EQ(log.open(db_, {}), 0);
    EXPECT_EQ(log.get_devices(devices), 0);
    EXPECT_EQ(log.get_changes(devices.at(0), 1, since, changes), 0) << log.error();
    return changes;
  }

  static std::vector<std::int64_t> minutes(std::int64_t first, std::int64_t count) {
    std::vector<std::int64_t> times;
    for (std::int64_t i = 0; i < count; ++i) times.push_back(60 * (first + i));
    return times;
  }

  TemporaryFolder folder_;
  std::string db_ = folder_.file("trend.db");
  CDeviceProperties device_{.path = "/plant", .aux_text = ""};
  CSeries series_;
};

TEST_F(Changes, OfAnEmptySeriesAreNone) {
  append({});
  const CSeriesChanges changes = changes_since(0);
  EXPECT_EQ(changes.number, 0U);
  EXPECT_THAT(changes.ranges, IsEmpty());
}

TEST_F(Changes, SinceTheStartAreOneRange) {
  append(minutes(1, 2000));
  const CSeriesChanges changes = changes_since(0);
  EXPECT_EQ(changes.number, 1U);
  EXPECT_THAT(changes.ranges, ElementsAre(CTimeRange{60, 120000}));
}

TEST_F(Changes, AreOnlyTheBlocksWithNewRows) {
  append(minutes(1, 20 * 512));
  append(minutes(5 * 512 + 10000, 1));  // somewhere before the last block
  const std::uint64_t before = changes_since(0).number;
  append({60 * 100 + 7});
  const CSeriesChanges changes = changes_since(before);
  EXPECT_EQ(changes.number, before + 1);
  ASSERT_FALSE(changes.ranges.empty());
  EXPECT_THAT(changes.ranges.front(), (CTimeRange{6007, 6007}));
  EXPECT_LT(changes.ranges.size(), 4U);
}

TEST_F(Changes, SinceTheLastOneAreNone) {
  append(minutes(1, 700));
  const CSeriesChanges changes = changes_since(1);
  EXPECT_EQ(changes.number, 1U);
  EXPECT_THAT(changes.ranges, IsEmpty());
}

TEST_F(Changes, OfADatabaseThatWasSetBackAreAllRows) {
  append(minutes(1, 2000));
  const CSeriesChanges changes = changes_since(17);
  EXPECT_EQ(changes.number, 1U);
  EXPECT_THAT(changes.ranges, ElementsAre(CTimeRange{60, 120000}));
}

TEST_F(Changes, HaveEachRowThatWasAddedSince) {
  std::mt19937 random(1);
  std::set<std::int64_t> recorded;
  std::map<std::uint64_t, std::set<std::int64_t>> by_change;
  for (int round = random_rounds(60); round > 0; --round) {
    std::set<std::int64_t> times;
    const std::int64_t start = 1 + static_cast<std::int64_t>(random() % 4'000'000);
    const std::int64_t step = random() % 2 == 0 ? 60 : 1 + static_cast<std::int64_t>(random() % 99);
    for (std::int64_t i = 1 + random() % 1500; i > 0; --i) times.insert(start + step * i);
    std::erase_if(times, [&](std::int64_t time) { return recorded.count(time) > 0; });
    append({times.begin(), times.end()});
    recorded.insert(times.begin(), times.end());
    by_change[changes_since(0).number].insert(times.begin(), times.end());
  }
  for (const auto& [since, ignored] : by_change) {
    const std::vector<CTimeRange> ranges = changes_since(since).ranges;
    std::int64_t last = 0;
    for (const CTimeRange& range : ranges) {
      EXPECT_LT(last, range.first);
      EXPECT_LE(range.first, range.last);
      last = range.last;
    }
    for (auto later = by_change.upper_bound(since); later != by_change.end(); ++later) {
      for (const std::int64_t time : later->second) {
        EXPECT_TRUE(std::any_of(ranges.begin(), ranges.end(), [&](const CTimeRange& range) {
          return range.contains(time);
        })) << time;
      }
    }
  }
}

TEST_F(Changes, OfVersion1AreAllRowsWithoutANumber) {
  write_rows_only(db_, {{"/plant", {}, {{.minutes = 1, .blocks = {}, .loose = {{60, 1, {}}}}}}});
  const CSeriesChanges changes = changes_since(0);
  EXPECT_EQ(changes.number, 0U);
  ASSERT_EQ(changes.ranges.size(), 1U);
  EXPECT_TRUE(changes.ranges[0].contains(60));
}

TEST_F(Changes, OfAMissingSeriesFail) {
  append({60});
  CLog log;
  CSeriesChanges changes;
  ASSERT_EQ(log.open(db_, {}), 0);
  EXPECT_EQ(log.get_changes(device_, 2, 0, changes), -1);
  EXPECT_EQ(log.error(), "the database has no such series");
}

TEST_F(Changes, FailIfABlockIsMissing) {
  append(minutes(1, 4 * 512));
  sqlite3* db = nullptr;
  ASSERT_EQ(sqlite3_open(db_.c_str(), &db), SQLITE_OK);
  EXPECT_EQ(sqlite3_exec(db, "DELETE FROM block WHERE id & 0xFFFFFFFFFF = 60 * 1024", nullptr,
                         nullptr, nullptr),
            SQLITE_OK);
  EXPECT_EQ(sqlite3_changes(db), 1);
  sqlite3_close(db);
  CLog log;
  std::vector<CDeviceProperties> devices;
  CSeriesChanges changes;
  ASSERT_EQ(log.open(db_, {}), 0);
  ASSERT_EQ(log.get_devices(devices), 0);
  EXPECT_EQ(log.get_changes(devices.at(0), 1, 0, changes), -1);
  EXPECT_EQ(log.error(), "the blocks of a series are damaged");
}

TEST(Uuid, IsThatOfTheDatabase) {
  const TemporaryFolder folder;
  const auto get_uuid = [](const std::string& path) {
    CLog log;
    std::string uuid = "?";
    EXPECT_EQ(log.open(path, {}), 0);
    EXPECT_EQ(log.get_uuid(uuid), 0);
    return uuid;
  };
  for (const char* name : {"a.db", "b.db"}) {
    EXPECT_EQ(CRecorder().open(folder.file(name)), 0);
  }
  EXPECT_EQ(get_uuid(folder.file("a.db")).size(), 36U);
  EXPECT_NE(get_uuid(folder.file("a.db")), get_uuid(folder.file("b.db")));
  write_rows_only(folder.file("1.db"), {});
  EXPECT_EQ(get_uuid(folder.file("1.db")), "");
}

class Copied : public Changes {
 protected:
  /// What is noted for `source` and the series.
  std::uint64_t copied(const std::string& source) {
    CRecorder recorder;
    std::uint64_t change = 99;
    EXPECT_EQ(recorder.open(db_), 0);
    EXPECT_EQ(recorder.begin(), 0);
    EXPECT_EQ(recorder.get_copied(source, series_, change), 0) << recorder.error();
    return change;
  }
  void set_copied(const std::string& source, std::uint64_t change) {
    CRecorder recorder;
    ASSERT_EQ(recorder.open(db_), 0);
    ASSERT_EQ(recorder.begin(), 0);
    ASSERT_EQ(recorder.set_copied(source, series_, change), 0) << recorder.error();
    ASSERT_EQ(recorder.commit(), 0) << recorder.error();
  }
  void execute(const std::string& sql) {
    sqlite3* db = nullptr;
    ASSERT_EQ(sqlite3_open(db_.c_str(), &db), SQLITE_OK);
    EXPECT_EQ(sqlite3_exec(db, sql.c_str(), nullptr, nullptr, nullptr), SQLITE_OK);
    sqlite3_close(db);
  }
};

TEST_F(Copied, IsRemembered) {
  append({60});
  EXPECT_EQ(copied("a"), 0U);
  set_copied("a", 5);
  set_copied("b", 6);
  set_copied("a", 7);
  EXPECT_EQ(copied("a"), 7U);
  EXPECT_EQ(copied("b"), 6U);
  EXPECT_EQ(copied("c"), 0U);
}

TEST_F(Copied, IsUndoneWithTheTransaction) {
  append({60});
  CRecorder recorder;
  ASSERT_EQ(recorder.open(db_), 0);
  ASSERT_EQ(recorder.begin(), 0);
  ASSERT_EQ(recorder.set_copied("a", series_, 5), 0);
  recorder.rollback();
  ASSERT_EQ(recorder.begin(), 0);
  std::uint64_t change = 99;
  EXPECT_EQ(recorder.get_copied("a", series_, change), 0) << recorder.error();
  EXPECT_EQ(change, 0U);
}

TEST_F(Copied, IsNotTrustedWithAWrongChecksum) {
  append({60});
  set_copied("a", 5);
  execute("UPDATE copied SET change = 6");
  EXPECT_EQ(copied("a"), 0U);
}

TEST_F(Copied, IsNotTrustedWithATextInPlaceOfANumber) {
  append({60});
  for (const char* number : {"'many', 1", "5, 'right'"}) {
    execute(std::string("DROP TABLE IF EXISTS copied; CREATE TABLE copied (source, series_id, "
                        "change, checksum, PRIMARY KEY (source, series_id));"
                        "INSERT INTO copied SELECT 'a', id, ") +
            number + " FROM series");
    EXPECT_EQ(copied("a"), 0U) << number;
  }
}

TEST_F(Copied, GoesWithTheSeries) {
  append({60});
  set_copied("a", 5);
  CRecorder recorder;
  ASSERT_EQ(recorder.open(db_), 0);
  ASSERT_EQ(recorder.begin(), 0);
  ASSERT_EQ(recorder.remove_series(series_), 0) << recorder.error();
  ASSERT_EQ(recorder.commit(), 0) << recorder.error();
  append({60});
  EXPECT_EQ(copied("a"), 0U);
}

TEST_F(Copied, RefusesANumberThatNoDatabaseReaches) {
  append({60});
  CRecorder recorder;
  ASSERT_EQ(recorder.open(db_), 0);
  ASSERT_EQ(recorder.begin(), 0);
  EXPECT_EQ(recorder.set_copied("a", series_, std::numeric_limits<std::uint64_t>::max()), -1);
}

TEST_F(Copied, IsNoDamageAndPartOfABackup) {
  append({60});
  set_copied("a", 5);
  CLog log;
  std::vector<CDamage> damage;
  ASSERT_EQ(log.open(db_, {}), 0);
  EXPECT_EQ(log.check(damage), 0);
  EXPECT_THAT(damage, IsEmpty());
  const std::string copy = folder_.file("copy.db");
  EXPECT_EQ(log.backup(copy), 0) << log.error();
  db_ = copy;
  EXPECT_EQ(copied("a"), 5U);
}

}  // namespace
}  // namespace toolkit::trend
