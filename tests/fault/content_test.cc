// Trend databases with damaged content: dumps fail with a message and never seem to be complete.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>

#include "tests/support/database_file.h"
#include "tests/support/model.h"
#include "tests/support/version_1.h"

namespace {

constexpr const char* FETCH_ERROR = "Error: couldn't fetch chunk\n";

ProcessResult dump(const std::string& db, std::vector<std::string> more = {}) {
  more.insert(more.begin(), {"-x", db, "-d", "/plant", "-u", "-nh", "-w", "%s", "-y", "%M"});
  return run_tool("trendcsv", more, "", {{"TZ", "UTC0"}});
}

/// The first fields of the rows, seconds since the epoch. Throws if the rows differ in form.
std::vector<std::int64_t> times_of(const std::string& rows) {
  std::vector<std::int64_t> times;
  std::istringstream lines(rows);
  std::ptrdiff_t commas = -1;
  for (std::string line; std::getline(lines, line);) {
    const auto found = std::count(line.begin(), line.end(), ',');
    if (commas >= 0 && found != commas)
      throw std::runtime_error("a row of another length: " + line);
    commas = found;
    std::size_t end = 0;
    times.push_back(std::stoll(line, &end));
    if (line[end] != ',') throw std::runtime_error("no time: " + line);
  }
  if (!rows.empty() && rows.back() != '\n') throw std::runtime_error("an incomplete line");
  return times;
}

class Damage : public testing::Test {
 protected:
  /// Makes a database with the rows of minutes 1 to `count`, and runs `sql` on it.
  void make(std::int64_t count, const std::string& sql) {
    std::filesystem::remove(db_);
    std::string all = std::string("BEGIN;") + LOOSE_SCHEMA + IDENTITY + CATALOGUE;
    for (std::int64_t minute = 1; minute <= count; ++minute) all += insert_row(minute);
    run_sql(db_, all + "COMMIT;" + sql);
  }

  /// Expects every kind of full dump to fail with `message`.
  void expect_failure(const std::string& message) const {
    for (const std::vector<std::string>& arguments :
         {std::vector<std::string>{}, {"-a"}, {"-c", "0"}, {"-c", "1"}}) {
      const ProcessResult result = dump(db_, arguments);
      EXPECT_EQ(result.exit_status, 1);
      EXPECT_EQ(result.err, message);
    }
  }

  TemporaryFolder folder_;
  std::string db_ = folder_.file("trend.db");
};

const char* const ROW_10 = " WHERE id = (1 << 40) + 600";

TEST_F(Damage, OfTheSamplesFailsTheQuery) {
  for (const char* samples :
       {"x'00'", "x'01020304050607'", "x'010203040506070809'", "NULL", "1.5", "'text'", "7"}) {
    make(20, std::string("UPDATE snapshot SET samples = ") + samples + ROW_10);
    SCOPED_TRACE(samples);
    expect_failure(FETCH_ERROR);
  }
}

TEST_F(Damage, IsNotReportedIfSamplesAreMissing) {
  make(2, "UPDATE snapshot SET samples = x'' WHERE id = (1 << 40) + 60");
  EXPECT_EQ(dump(db_).out, "120,02,2\n60,01,\n");
  EXPECT_EQ(dump(db_).err, "");
}

TEST_F(Damage, OfTheShareOfValidDataFailsTheQuery) {
  for (const char* ratio : {"NULL", "1", "'1.0'", "x'00'"}) {
    make(20, std::string("UPDATE snapshot SET valid_ratio = ") + ratio + ROW_10);
    SCOPED_TRACE(ratio);
    expect_failure(FETCH_ERROR);
  }
}

TEST_F(Damage, IsReportedAfterTheRowsBeforeIt) {
  make(20, std::string("UPDATE snapshot SET samples = x'00'") + ROW_10);
  const ProcessResult result = dump(db_, {"-a", "-c", "3"});
  EXPECT_EQ(times_of(result.out),
            (std::vector<std::int64_t>{60, 120, 180, 240, 300, 360, 420, 480, 540}));
  EXPECT_EQ(result.err, FETCH_ERROR);
  EXPECT_EQ(result.exit_status, 1);
  // A dump that ends before the damaged row succeeds.
  EXPECT_EQ(dump(db_, {"-a", "-m", "8"}).exit_status, 0);
}

TEST_F(Damage, OfTheCatalogueFailsTheSelection) {
  make(3, "UPDATE device SET path = 5");
  expect_failure("Error: can't fetch device list\n");
  make(3, "UPDATE device SET description = NULL");
  expect_failure("Error: can't fetch device list\n");
  for (const char* change : {"path = NULL", "statistics = 'x'", "statistics = 32",
                             "statistics = -1", "first_slot = -1", "first_slot = 0.5"}) {
    make(3, std::string("UPDATE parameter SET ") + change);
    SCOPED_TRACE(change);
    expect_failure("Error: can't fetch parameter list\n");
  }
  for (const char* change : {"minutes = 0", "minutes = -1", "minutes = 'x'", "minutes = NULL"}) {
    make(3, std::string("UPDATE series SET ") + change);
    SCOPED_TRACE(change);
    expect_failure("Error: can't fetch period list\n");
  }
}

TEST_F(Damage, OfASlotBeyondEveryRowLeavesFieldsEmpty) {
  make(1, "UPDATE parameter SET first_slot = 9223372036854775807, statistics = 31");
  EXPECT_EQ(dump(db_).out, "60,01,,,,,\n");
}

TEST_F(Damage, OfAPageInTheMiddleFailsTheQuery) {
  constexpr std::size_t PAGE = 4096;
  make(3000, "");
  const std::string whole = read_file(db_);
  const ProcessResult good = dump(db_, {"-a"});
  ASSERT_EQ(times_of(good.out).size(), 3000U);
  // The page that holds row 1500, found by the row's value.
  const std::string value = {'\x40', '\x97', '\x70', 0, 0, 0, 0, 0};
  const std::size_t place = whole.find(value);
  ASSERT_NE(place, std::string::npos);
  for (const char filling : {'\0', '\xFF', 'x'}) {
    std::string damaged = whole;
    std::fill_n(damaged.begin() + static_cast<long>(place / PAGE * PAGE), PAGE, filling);
    write_file(db_, damaged);
    for (const std::vector<std::string>& arguments : {std::vector<std::string>{}, {"-a"}}) {
      const ProcessResult result = dump(db_, arguments);
      EXPECT_EQ(result.exit_status, 1);
      EXPECT_EQ(result.err, FETCH_ERROR);
      EXPECT_GT(times_of(result.out).size(), 0U);
      EXPECT_LT(times_of(result.out).size(), 1600U);
    }
    EXPECT_EQ(dump(db_, {"-a", "-m", "512"}).exit_status, 0);
  }
}

/// A number as SQLite writes it before a row: seven bits per byte; all bytes but the last have the
/// high bit.
std::string varint(std::uint64_t number) {
  std::string bytes(1, static_cast<char>(number & 0x7F));
  while ((number >>= 7) != 0) bytes.insert(0, 1, static_cast<char>((number & 0x7F) | 0x80));
  return bytes;
}

/// Checks a dump of damaged data: either it reports what failed, or its rows are correct.
testing::AssertionResult is_sound(const ProcessResult& result, bool ascending) {
  const bool failed = !result.err.empty();
  if (result.exit_status != 1 && !(result.exit_status == 0 && !failed)) {
    return testing::AssertionFailure() << "exit status " << result.exit_status << result.err;
  }
  if (failed) {
    const bool is_known =
        std::count(result.err.begin(), result.err.end(), '\n') == 1 &&
        (result.err == FETCH_ERROR || result.err.starts_with("Error opening trend db: '") ||
         result.err.starts_with("Error: can't fetch ") ||
         result.err.ends_with(" is not trended\n") ||
         result.err.ends_with(" exists in the log, but contains no trendable parameters.\n"));
    if (!is_known) return testing::AssertionFailure() << result.err;
  }
  std::vector<std::int64_t> times = times_of(result.out);
  if (!ascending) std::reverse(times.begin(), times.end());
  if (std::adjacent_find(times.begin(), times.end(), std::greater_equal<>()) != times.end()) {
    return testing::AssertionFailure() << "rows out of order";
  }
  return testing::AssertionSuccess();
}

TEST_F(Damage, OfASectorRarelyLooksLikeTheEnd) {
  std::string sql = std::string("BEGIN;") + LOOSE_SCHEMA + IDENTITY + CATALOGUE;
  for (int minute = 1; minute <= 1000; ++minute) sql += insert_row(minute);
  std::filesystem::remove(db_);
  run_sql(db_, sql + "COMMIT");
  const std::string good = read_file(db_);
  constexpr std::size_t SECTOR = 512;
  const std::size_t step = is_emulated() ? 3 * SECTOR : SECTOR;
  for (const bool is_ascending : {false, true}) {
    const std::vector<std::string> order(is_ascending ? 1 : 0, "-a");
    const std::int64_t last = is_ascending ? 60 * 1000 : 60;
    EXPECT_EQ(times_of(dump(db_, order).out).back(), last);
    int noticed = 0;
    int silent_ends = 0;
    for (std::size_t begin = 4096; begin < good.size(); begin += step) {
      std::string damaged = good;
      damaged.replace(begin, SECTOR, SECTOR, '\0');
      write_file(db_, damaged);
      const ProcessResult result = dump(db_, order);
      const std::vector<std::int64_t> times = times_of(result.out);
      if (!result.err.empty()) {
        ++noticed;
      } else if (times.empty() || times.back() != last) {
        ++silent_ends;
      }
    }
    EXPECT_GT(noticed, is_emulated() ? 7 : 20);
    // A row with a damaged id, or an entry missing from an index of the catalogue, looks like a row
    // or an entry that was never recorded.
    EXPECT_LE(silent_ends, 3);
    write_file(db_, good);
  }
}

TEST_F(Damage, OfTheOrderOfRowsNeverMakesADumpGoBack) {
  make(40, "");
  const std::string whole = read_file(db_);
  const auto key = [](std::int64_t minute) {
    return varint((std::uint64_t{1} << 40) + static_cast<std::uint64_t>(60 * minute));
  };
  const std::size_t place = whole.find(key(30));
  ASSERT_NE(place, std::string::npos);
  ASSERT_EQ(whole.find(key(30), place + 1), std::string::npos);
  std::string damaged = whole;
  damaged.replace(place, key(30).size(), key(3));
  write_file(db_, damaged);
  EXPECT_EQ(dump(db_).err, FETCH_ERROR);
  EXPECT_EQ(dump(db_, {"-a"}).err, FETCH_ERROR);
  // With some of these sizes, a dump that accepted the row would return to it again and again.
  for (int size = 1; size <= 40; size += is_emulated() ? 3 : 1) {
    EXPECT_TRUE(is_sound(dump(db_, {"-c", std::to_string(size)}), false)) << size;
    EXPECT_TRUE(is_sound(dump(db_, {"-c", std::to_string(size), "-a"}), true)) << size;
  }
}

TEST_F(Damage, OfASlotMakesALoadFail) {
  record({.params = {{"a", ACTUAL}}, .minutes = {1}, .rows = {{1, 60, 1, {5}}}}, db_);
  run_sql(db_, TURN_INTO_VERSION_1);
  const std::vector<std::string> arguments = {"-x", db_, "-d", "/plant", "-i", "1", "-u"};
  const std::string rows = "Date,Time,a:Value\n2024-01-01,00:00,7\n";
  for (const std::string slot : {"125000000", "536870911", "536870912", "2147483648", "4294967291",
                                 "4294967295", "4294967296", "1099511627776"}) {
    run_sql(db_, "UPDATE parameter SET first_slot = " + slot);
    const ProcessResult result = run_tool("trendload", arguments, rows);
    EXPECT_EQ(result.err, "trendload: " + db_ + ": a device has more than 65535 slots\n");
    EXPECT_EQ(result.exit_status, 1);
  }
  run_sql(db_, "UPDATE parameter SET first_slot = 1000");
  const ProcessResult result = run_tool("trendload", arguments, rows);
  EXPECT_EQ(result.err, "");
  EXPECT_EQ(dump(db_).out, "1704067200,00,7\n60,01,\n");
}

TEST_F(Damage, OfAnyBytesNeverCrashesADump) {
  make(150, "");
  run_sql(db_, "PRAGMA journal_mode = wal");
  const std::string whole = read_file(db_);
  // Damage only the used parts of the file; the rest is free space.
  std::vector<std::size_t> places;
  for (std::size_t i = 0; i < whole.size(); ++i) {
    if (whole[i] != '\0' || i % 4096 < 120) places.push_back(i);
  }
  Random random(6);
  int failures = 0;
  const int rounds = random_rounds(400);
  for (int i = 0; i < rounds; ++i) {
    std::string damaged = whole;
    for (std::uint32_t flips = 1 + pick(random, 4); flips > 0; --flips) {
      const std::size_t place = places[pick(random, static_cast<std::uint32_t>(places.size()))];
      damaged[place] =
          static_cast<char>(pick(random, 2) == 0 ? damaged[place] ^ 1 << pick(random, 8)
                                                 : static_cast<int>(pick(random, 256)));
    }
    const TemporaryFolder folder;
    const std::string db = folder.file("trend.db");
    write_file(db, damaged);
    std::vector<std::string> arguments = {"-c", std::to_string(1 + pick(random, 40))};
    if (i % 2 == 0) arguments.emplace_back("-a");
    const ProcessResult result = dump(db, arguments);
    ASSERT_TRUE(is_sound(result, i % 2 == 0)) << i;
    failures += result.err.empty() ? 0 : 1;
  }
  // Some of the damage must be noticed, and some is in places where no program can notice it.
  EXPECT_GT(failures, rounds / 20);
  EXPECT_LT(failures, rounds - rounds / 20);
}

}  // namespace
