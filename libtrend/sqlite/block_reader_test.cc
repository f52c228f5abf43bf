// The same rows, once with blocks and once row by row, have to give the same results.
#include "libtrend/sqlite/block_reader.h"

#include <gtest/gtest.h>
#include <sqlite3.h>

#include <algorithm>
#include <limits>
#include <map>
#include <random>
#include <set>

#include "libtrend/log.h"
#include "libtrend/query/engine.h"
#include "libtrend/sqlite/connection.h"
#include "libtrend/statistics.h"
#include "tests/support/print_rows.h"
#include "tests/support/process.h"
#include "tests/support/stored_log.h"

namespace toolkit::trend {
namespace {

constexpr double MISSING = std::numeric_limits<double>::quiet_NaN();

/// Numbers from one seed.
class Dice {
 public:
  explicit Dice(unsigned seed) : random_(seed) {}
  int pick(int from, int to) { return std::uniform_int_distribution<int>(from, to)(random_); }
  bool is_one_in(int count) { return pick(1, count) == 1; }
  double value() {
    switch (pick(0, 4)) {
      case 0:
        return MISSING;
      case 1:
        return pick(-50, 50) / 10.0;
      case 2:
        return -0.0;
      default:
        return pick(1, 1'000'000) / 7.0;
    }
  }
  std::mt19937& engine() { return random_; }

 private:
  std::mt19937 random_;
};

/// Adds a row to a run of rows that become a block. Some rows of the run stay loose.
void store(const StoredRow& row, Dice& dice, int late, std::vector<StoredRow>& block,
           StoredSeries& series) {
  (dice.pick(1, 100) <= late ? series.loose : block).push_back(row);
}

StoredSeries make_series(std::uint32_t minutes, std::size_t slots, Dice& dice) {
  StoredSeries series;
  series.minutes = minutes;
  const int rows = dice.is_one_in(8) ? 0 : dice.pick(1, 150);
  const int late = dice.is_one_in(2) ? 0 : dice.pick(1, 50);
  std::int64_t time = 0;
  std::vector<StoredRow> run;
  bool is_sealed = false;
  bool is_old = dice.is_one_in(3);  // as before an upgrade
  std::size_t kept_slots = slots;
  const auto seal = [&] {
    std::vector<StoredRow> block;
    for (const StoredRow& row : run) store(row, dice, late, block, series);
    if (!block.empty()) series.blocks.push_back(block);
    run.clear();
  };
  for (int i = 0; i < rows; ++i) {
    time += dice.is_one_in(5) ? dice.pick(1, 900) : 60 * minutes;
    if (i == 0 || dice.is_one_in(20)) {
      seal();
      is_old = is_old && i < 60;
      is_sealed = dice.is_one_in(2);
      kept_slots = static_cast<std::size_t>(dice.pick(0, static_cast<int>(slots)));
      if (dice.is_one_in(2)) kept_slots = slots;
    }
    StoredRow row{time, dice.is_one_in(2) ? 1 : dice.pick(0, 100) / 100.0, {}};
    for (std::size_t slot = 0; slot < kept_slots; ++slot) row.slots.push_back(dice.value());
    if (is_sealed) {
      run.push_back(row);
    } else {
      series.loose.push_back(row);
      if (is_old) series.unchecked_until = time;
    }
  }
  seal();
  std::shuffle(series.loose.begin(), series.loose.end(), dice.engine());
  return series;
}

std::vector<StoredDevice> make_devices(Dice& dice) {
  std::vector<StoredDevice> devices;
  for (int i = dice.pick(1, 2); i > 0; --i) {
    StoredDevice& device = devices.emplace_back();
    device.path = "device" + std::to_string(i);
    std::size_t slots = 0;
    for (int p = dice.pick(1, 6); p > 0; --p) {
      CParamProperties param{.path = "p" + std::to_string(p)};
      set_statistics(param, static_cast<std::uint32_t>(dice.pick(0, 31)));
      param.aux_1 = static_cast<std::uint32_t>(slots);
      slots = get_slot(param, STATISTICS.size());
      device.params.push_back(param);
    }
    for (const std::uint32_t minutes : {1U, 5U, 15U}) {
      if (!dice.is_one_in(4)) device.series.push_back(make_series(minutes, slots, dice));
    }
  }
  return devices;
}

class BlockReading : public testing::Test {
 protected:
  void write(const std::vector<StoredDevice>& devices, const StoredLayout& layout = {}) {
    log_.close();
    plain_.close();
    std::filesystem::remove(folder_.file("blocks.db"));
    std::filesystem::remove(folder_.file("plain.db"));
    write_blocks(folder_.file("blocks.db"), devices, layout);
    write_rows_only(folder_.file("plain.db"), devices);
    ASSERT_EQ(log_.open(folder_.file("blocks.db"), OpenOptions{}), 0) << log_.error();
    ASSERT_EQ(plain_.open(folder_.file("plain.db"), OpenOptions{}), 0) << plain_.error();
  }

  /// Asks both databases; `range` is the one of the next page afterwards. Returns the rows found.
  std::size_t compare(const CDeviceParams& device, const std::vector<CPeriodProperties>& periods,
                      const std::pair<long, long>& range, unsigned count, unsigned offset,
                      bool ascending, std::int64_t& last) {
    CDeviceData found;
    CDeviceData expected;
    EXPECT_EQ(log_.get_trend_data(found, device, periods, range, count, offset, ascending, true), 0)
        << log_.error();
    EXPECT_EQ(
        plain_.get_trend_data(expected, device, periods, range, count, offset, ascending, true), 0)
        << plain_.error();
    EXPECT_EQ(print_rows(found), print_rows(expected))
        << range.first << ' ' << range.second << ' ' << count << ' ' << offset << ' ' << ascending;
    if (!expected.snapshots.empty()) last = expected.snapshots.back().timestamp;
    return expected.snapshots.size();
  }

  void compare_at_random(Dice& dice) {
    std::vector<CDeviceProperties> devices;
    ASSERT_EQ(log_.get_devices(devices), 0) << log_.error();
    CDeviceParams device{
        devices[static_cast<std::size_t>(dice.pick(0, static_cast<int>(devices.size()) - 1))], {}};
    std::vector<CParamProperties> params;
    ASSERT_EQ(log_.get_params(device.device, params), 0) << log_.error();
    for (int i = dice.pick(0, 8); i > 0; --i) {
      device.params.push_back(
          params[static_cast<std::size_t>(dice.pick(0, static_cast<int>(params.size()) - 1))]);
    }
    std::vector<CPeriodProperties> periods;
    for (const std::uint32_t minutes : {1U, 5U, 15U}) {
      if (!dice.is_one_in(3)) periods.push_back({.interval = minutes});
    }
    const long end = 150L * 60 * 15;
    std::pair<long, long> range = {dice.is_one_in(2) ? -1 : dice.pick(0, end),
                                   dice.is_one_in(2) ? -1 : dice.pick(0, end)};
    const bool ascending = dice.is_one_in(2);
    const auto count = static_cast<unsigned>(dice.is_one_in(3) ? 0 : dice.pick(1, 40));
    auto offset = static_cast<unsigned>(dice.is_one_in(2) ? 0 : dice.pick(0, 120));
    std::int64_t last = 0;
    // Page after page, as a dump does it.
    while (compare(device, periods, range, count, offset, ascending, last) == count && count != 0) {
      (ascending ? range.first : range.second) = static_cast<long>(ascending ? last + 1 : last - 1);
      offset = 0;
    }
  }

  TemporaryFolder folder_;
  CLog log_;
  CLog plain_;
};

TEST_F(BlockReading, GivesTheSameAsRowsStoredOneByOne) {
  Dice dice(20240501);
  for (int log = 0; log < random_rounds(60); ++log) {
    const StoredLayout layout =
        dice.is_one_in(2) ? StoredLayout{512, dice.pick(1, 472)} : StoredLayout{};
    ASSERT_NO_FATAL_FAILURE(write(make_devices(dice), layout));
    for (int i = 0; i < 60; ++i) {
      compare_at_random(dice);
      ASSERT_FALSE(HasFailure()) << "log " << log << " query " << i;
    }
  }
}

TEST_F(BlockReading, FindsTheRowBeforeATimeFromAnyPlace) {
  StoredSeries series{.minutes = 1, .blocks = {}, .loose = {}};
  for (const std::int64_t first : {1, 11, 21}) {
    auto& rows = series.blocks.emplace_back();
    for (std::int64_t i = first; i < first + 5; ++i) rows.push_back({10 * i, 1, {1}});
  }
  const std::string path = folder_.file("blocks.db");
  write_blocks(path, {{"d", {}, {series}}});
  Database db;
  std::string error;
  ASSERT_TRUE(connect(path, SQLITE_OPEN_READONLY, nullptr, db, error));
  BlockReader reader(db.get(), error);
  ASSERT_TRUE(reader.start_query(true)) << error;
  for (const std::int64_t start : {10, 130, 240}) {
    const auto cursor = reader.make_cursor({.id = 1, .minutes = 1}, {}, true);
    ASSERT_NE(cursor, nullptr) << error;
    ASSERT_TRUE(cursor->place(start, MAX_TIMESTAMP));
    for (const auto& [time, expected] : std::map<std::int64_t, std::int64_t>{
             {10, NO_ROW}, {11, 10}, {110, 50}, {111, 110}, {145, 140}, {215, 210}, {251, 250}}) {
      std::int64_t found = -1;
      ASSERT_TRUE(cursor->find_before(time, found)) << error;
      EXPECT_EQ(found, expected) << start << ' ' << time;
    }
    EXPECT_EQ(cursor->timestamp(), start);
  }
}

TEST_F(BlockReading, ReadsWideBlocksInParts) {
  Dice dice(3);
  StoredDevice device{"wide", {}, {{.minutes = 5, .blocks = {}, .loose = {}}}};
  for (std::uint32_t p = 0; p < 120; ++p) {
    CParamProperties param{.path = "p" + std::to_string(p), .aux_1 = 2 * p};
    param.has_min = param.has_sum = true;
    device.params.push_back(param);
  }
  std::int64_t time = 0;
  for (int block = 0; block < 2; ++block) {
    std::vector<StoredRow>& rows = device.series[0].blocks.emplace_back();
    for (int i = 0; i < 512; ++i) {
      StoredRow& row = rows.emplace_back(StoredRow{time += 300, 1, {}});
      for (int slot = 0; slot < 240; ++slot) row.slots.push_back(dice.value());
    }
  }
  ASSERT_NO_FATAL_FAILURE(write({device}));
  std::vector<CDeviceProperties> devices;
  ASSERT_EQ(log_.get_devices(devices), 0);
  const CDeviceParams all{devices[0], device.params};
  const CDeviceParams some{devices[0], {device.params[7], device.params[90], device.params[91]}};
  std::int64_t last = 0;
  for (const bool ascending : {false, true}) {
    EXPECT_EQ(compare(all, {{.interval = 5}}, {-1, -1}, 0, 0, ascending, last), 1024U);
    EXPECT_EQ(compare(some, {{.interval = 5}}, {-1, -1}, 700, 0, ascending, last), 700U);
  }
}

TEST_F(BlockReading, FindsOtherParametersOfLooseRowsThanTheQueryBefore) {
  StoredDevice device{"device", {}, {{.minutes = 5, .blocks = {}, .loose = {}}}};
  for (std::uint32_t p = 0; p < 100; ++p) {
    device.params.push_back({.path = "p" + std::to_string(p), .aux_1 = p, .has_actual = true});
  }
  // Parameters were added twice, and older rows have fewer slots.
  for (int i = 1; i <= 300; ++i) {
    StoredRow& row = device.series[0].loose.emplace_back(StoredRow{300 * i, i / 300.0, {}});
    for (int p = 0; p < (i < 100 ? 1 : i < 200 ? 50 : 100); ++p) row.slots.push_back(1000 * i + p);
  }
  const auto select = [&](const std::vector<std::size_t>& places) {
    CDeviceParams some{{.path = "device", .aux_text = "", .aux_1 = 1}, {}};
    for (const std::size_t place : places) some.params.push_back(device.params[place]);
    return some;
  };
  const CDeviceParams all{select({}).device, device.params};
  CDeviceParams other_statistics = select({0});
  other_statistics.params[0].has_min = true;
  const std::vector<CDeviceParams> queries = {
      select({0}),     select({99}),     select({99, 0}), other_statistics,
      select({0, 99}), select({49, 49}), select({}),      all};
  // Each query is the first one of an open database once.
  for (std::size_t first = 0; first < queries.size(); ++first) {
    ASSERT_NO_FATAL_FAILURE(write({device}));
    std::int64_t last = 0;
    for (std::size_t i = 0; i < queries.size(); ++i) {
      const CDeviceParams& query = queries[(first + i) % queries.size()];
      EXPECT_EQ(compare(query, {{.interval = 5}}, {-1, -1}, 0, 0, i % 2 == 0, last), 300U);
      EXPECT_EQ(compare(query, {{.interval = 5}}, {3000, 80000}, 7, 20, i % 2 == 1, last), 7U);
    }
  }
}

TEST_F(BlockReading, SeesWhatAnotherProgramWrote) {
  const auto make = [](int rows) {
    StoredDevice device{"device", {}, {{.minutes = 5, .blocks = {{}}, .loose = {}}}};
    device.params = {{.path = "a", .has_actual = true}};
    for (int i = 1; i <= rows; ++i) device.series[0].blocks[0].push_back({300 * i, 1, {i * 1.0}});
    return device;
  };
  ASSERT_NO_FATAL_FAILURE(write({make(3)}));
  const CDeviceParams device{{.path = "device", .aux_text = "", .aux_1 = 1}, make(0).params};
  std::int64_t last = 0;
  EXPECT_EQ(compare(device, {{.interval = 5}}, {-1, -1}, 0, 0, true, last), 3U);
  write_blocks(folder_.file("other.db"), {make(5)});
  write_rows_only(folder_.file("other_plain.db"), {make(5)});
  // The pages of the other database take the place of those in the files that are open.
  copy_database(folder_.file("other.db"), folder_.file("blocks.db"));
  copy_database(folder_.file("other_plain.db"), folder_.file("plain.db"));
  EXPECT_EQ(compare(device, {{.interval = 5}}, {-1, -1}, 0, 0, true, last), 5U);
  // An upgrade, and the way back.
  copy_database(folder_.file("other_plain.db"), folder_.file("blocks.db"));
  copy_database(folder_.file("other.db"), folder_.file("plain.db"));
  EXPECT_EQ(compare(device, {{.interval = 5}}, {-1, -1}, 0, 0, true, last), 5U);
}

TEST_F(BlockReading, RefusesTwoRowsAtOneTime) {
  StoredDevice device{"device", {{.path = "a", .has_actual = true}}, {}};
  device.series.push_back({.minutes = 5,
                           .blocks = {{{300, 1, {1}}, {600, 1, {2}}, {900, 1, {3}}}},
                           .loose = {{600, 1, {4}}}});
  write_blocks(folder_.file("twice.db"), {device});
  ASSERT_EQ(log_.open(folder_.file("twice.db"), OpenOptions{}), 0);
  const CDeviceParams all{{.path = "device", .aux_text = "", .aux_1 = 1}, device.params};
  for (const bool ascending : {false, true}) {
    CDeviceData data;
    EXPECT_EQ(log_.get_trend_data(data, all, {{.interval = 5}}, {-1, -1}, 0, 0, ascending, true),
              -1);
    EXPECT_EQ(log_.error(), "a series has two rows at one time");
    EXPECT_EQ(log_.get_trend_data(data, all, {{.interval = 5}}, {-1, -1}, 0, 2, ascending, true),
              -1);
  }
}

}  // namespace
}  // namespace toolkit::trend
