// The largest and smallest numbers of the options' types, which depend on the machine, and
// intervals whose length in seconds needs more than 32 bits.
#include <gtest/gtest.h>

#include <algorithm>
#include <limits>

#include "tests/support/model.h"

namespace {

constexpr bool HAS_NARROW_LONGS = sizeof(long) == 4;

using Arguments = std::vector<std::string>;

// Some of them need more bits than a long or a chunk size has.
const Arguments LARGE_NUMBERS = {
    "2147483646",          "2147483647",          "2147483648",  "4294967295",
    "4294967296",          "4294967297",          "99999999999", "9223372036854775807",
    "9223372036854775808", "99999999999999999999"};

class NumberLimits : public testing::Test {
 protected:
  static constexpr std::size_t ROWS = 1030;  // two chunks and some

  static void SetUpTestSuite() {
    folder_ = new TemporaryFolder;
    ModelLog log;
    log.params = {{"a", ACTUAL}};
    log.minutes = {1};
    for (std::size_t i = 1; i <= ROWS; ++i) {
      log.rows.push_back({1, static_cast<std::int64_t>(60 * i), 1, {static_cast<double>(i)}});
    }
    record(log, folder_->file("trend.db"));
    all_ = new std::string(dump({}).out);
  }
  static void TearDownTestSuite() {
    delete all_;
    delete folder_;
    folder_ = nullptr;
  }

  static ProcessResult dump(Arguments arguments) {
    arguments.insert(arguments.begin(), {"-x", folder_->file("trend.db"), "-d", "/plant"});
    return run_tool("trendcsv", arguments, "", {{"TZ", "UTC0"}});
  }

  static void expect_dump(const Arguments& arguments, const std::string& text, int exit_status) {
    const ProcessResult result = dump(arguments);
    EXPECT_EQ(result.out, text);
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(result.exit_status, exit_status);
  }

  static void expect_refused(const Arguments& arguments, const std::string& message) {
    const ProcessResult result = dump(arguments);
    EXPECT_EQ(result.err, message);
    EXPECT_EQ(result.out.substr(0, 7), "Usage: ");
    EXPECT_EQ(result.exit_status, 1);
  }

  static TemporaryFolder* folder_;
  static std::string* all_;  ///< what a dump of everything prints
};

TemporaryFolder* NumberLimits::folder_ = nullptr;
std::string* NumberLimits::all_ = nullptr;

TEST_F(NumberLimits, AreTestedWithALogOfTwoChunks) {
  EXPECT_EQ(std::count(all_->begin(), all_->end(), '\n'), static_cast<long>(ROWS) + 1);
  EXPECT_EQ(all_->substr(0, 40), "Date,Time,a:Value\n1970-01-01,17:10,1030\n");
}

TEST_F(NumberLimits, MayBeLargeForChunks) {
  for (const std::string& number : LARGE_NUMBERS) {
    SCOPED_TRACE(number);
    expect_dump({"-c", number}, *all_, 1);
    expect_dump({"-c", number, "-m", std::to_string(ROWS)}, *all_, 0);
  }
}

TEST_F(NumberLimits, ShowInTheChunkSizeOfTheUsageText) {
  const auto shown = [](const char* number) {
    const std::string text = dump({"-c", number, "-q"}).out;
    const std::string before = "(default = ";
    const std::size_t begin = text.find(before) + before.size();
    return text.substr(begin, text.find(')', begin) - begin);
  };
  EXPECT_EQ(shown("2147483647"), "2147483647");
  EXPECT_EQ(shown("2147483648"), HAS_NARROW_LONGS ? "2147483647" : "2147483648");
  EXPECT_EQ(shown("4294967295"), HAS_NARROW_LONGS ? "2147483647" : "4294967295");
  EXPECT_EQ(shown("4294967296"), HAS_NARROW_LONGS ? "2147483647" : "4294967295");
  EXPECT_EQ(shown("99999999999"), HAS_NARROW_LONGS ? "2147483647" : "4294967295");
}

TEST_F(NumberLimits, NeverCutALargeLimitDown) {
  for (const std::string& number : LARGE_NUMBERS) {
    SCOPED_TRACE(number);
    expect_dump({"-m", number}, *all_, 1);
    expect_dump({"-m", number, "-c", "0"}, *all_, 1);
    expect_dump({"-m", number, "-c", number}, *all_, 1);
  }
}

TEST_F(NumberLimits, NeverCutALargeOffsetDown) {
  const std::string header = all_->substr(0, all_->find('\n') + 1);
  for (const std::string& number : LARGE_NUMBERS) {
    SCOPED_TRACE(number);
    expect_dump({"-o", number}, header, 1);
    expect_dump({"-o", number, "-a"}, header, 1);
    expect_dump({"-o", number, "-m", number}, header, 1);
    expect_dump({"-o", number, "-m", number, "-c", number}, header, 1);
    expect_dump({"-o", number, "-m", "1", "-c", "0"}, header, 1);
  }
  // The sum of these needs more than 32 bits.
  expect_dump({"-o", std::to_string(ROWS - 1), "-m", "4294967295", "-a"},
              all_->substr(0, all_->find('\n', header.size()) + 1), 1);
}

TEST_F(NumberLimits, ShowInTheMessagesOfNegativeNumbers) {
  const std::pair<const char*, const char*> options[] = {
      {"-i", "Error: invalid trend interval: "},
      {"-m", "Error: invalid maximum # of records: "},
      {"-o", "Error: invalid log file offset: "},
      {"-c", "Error: invalid chunk size: "}};
  for (const auto& [option, message] : options) {
    for (const char* number : {"-1", "-2147483647", "-2147483648"}) {
      expect_refused({option, number}, message + std::string(number) + "\n");
    }
    for (const char* number : {"-2147483649", "-4294967295", "-99999999999"}) {
      const std::string read = HAS_NARROW_LONGS ? "-2147483648" : number;
      expect_refused({option, number}, message + read + "\n");
    }
  }
}

TEST_F(NumberLimits, ChangeNoDumpIfSizesLoseBits) {
  for (const char* option : {"-sc", "-sl"}) {
    for (const char* kilobytes : {"2097151", "2097152", "2097153", "4194303", "4194304", "4194305",
                                  "6291456", "2147483646", "2147483647"}) {
      SCOPED_TRACE(kilobytes);
      expect_dump({option, kilobytes}, *all_, 1);
      expect_dump({option, kilobytes, "-m", std::to_string(ROWS), "-c", "7"}, *all_, 0);
    }
  }
  for (const char* kilobytes : {"2097152", "4194304", "2147483647"}) {
    expect_dump({"-sc", kilobytes, "-sl", kilobytes, "-sp", "2147483647"}, *all_, 1);
  }
}

TEST_F(NumberLimits, DecideWhetherASizeIsNegative) {
  const std::pair<const char*, const char*> options[] = {{"-sp", "Error: invalid page size: "},
                                                         {"-sc", "Error: invalid cache size: "},
                                                         {"-sl", "Error: invalid heap limit: "}};
  for (const auto& [option, message] : options) {
    expect_refused({option, "-2147483648"}, message + std::string("-2147483648\n"));
    // Where a long has 64 bits, the low 32 bits of this number are those of the smallest int.
    if (HAS_NARROW_LONGS) {
      expect_dump({option, "2147483648"}, *all_, 1);
    } else {
      expect_refused({option, "2147483648"}, message + std::string("-2147483648\n"));
    }
  }
}

class IntervalLimits : public testing::Test {
 protected:
  /// Records rows with an interval of `minutes` for a device that has this number as its name.
  void record_device(std::uint32_t minutes) {
    ModelLog log;
    log.device = std::to_string(minutes);
    log.params = {{"a", ACTUAL}};
    log.minutes = {minutes};
    for (const std::int64_t time : TIMES) log.rows.push_back({minutes, time, 1, {0}});
    record(log, db_);
  }

  [[nodiscard]] ProcessResult dump(std::uint32_t minutes, Arguments arguments) const {
    arguments.insert(arguments.begin(),
                     {"-x", db_, "-d", std::to_string(minutes), "-w", "%s", "-a", "-nh"});
    return run_tool("trendcsv", arguments, "", {{"TZ", "UTC0"}});
  }

  static constexpr std::int64_t TIMES[] = {100, 1'000'000'000, 2'147'483'647};

  TemporaryFolder folder_;
  std::string db_ = folder_.file("trend.db");
};

TEST_F(IntervalLimits, WrapTheStartOfAnIntervalIn32Bits) {
  for (const std::uint32_t minutes :
       {1U, 35791394U, 35791395U, 50000000U, 71582788U, 71582789U, 2147483647U, 4294967295U}) {
    SCOPED_TRACE(minutes);
    record_device(minutes);
    std::string ends;
    std::string begins;
    for (const std::int64_t time : TIMES) {
      constexpr std::int64_t ALL = std::int64_t{1} << 32;
      std::int64_t begin = time - 60 * std::int64_t{minutes};
      while (begin < std::numeric_limits<std::int32_t>::min()) begin += ALL;
      ends += std::to_string(time) + ",x,0\n";
      begins += std::to_string(begin) + ",x,0\n";
    }
    EXPECT_EQ(dump(minutes, {"-y", "x"}).out, ends);
    EXPECT_EQ(dump(minutes, {"-y", "x", "-b"}).out, begins);
    EXPECT_EQ(dump(minutes, {"-y", "x", "-b", "-c", "1"}).out, begins);
    EXPECT_EQ(dump(minutes, {"-y", "x", "-b", "-u", "-i", "0"}).out, minutes == 1 ? begins : "");
  }
}

TEST_F(IntervalLimits, AreThoseOfALongForNamedIntervals) {
  constexpr std::uint32_t LONGEST = 4294967295;
  record_device(LONGEST);
  const std::string all = dump(LONGEST, {}).out;
  EXPECT_EQ(std::count(all.begin(), all.end(), '\n'), 3);
  EXPECT_EQ(dump(LONGEST, {"-i", "0"}).out, all);
  const ProcessResult named = dump(LONGEST, {"-i", "4294967295"});
  EXPECT_EQ(named.out, HAS_NARROW_LONGS ? "" : all);
  EXPECT_EQ(named.err, HAS_NARROW_LONGS ? "Error: interval 2147483647 is not trended\n" : "");
  EXPECT_EQ(named.exit_status, 1);

  constexpr std::uint32_t LONGEST_NAMED = 2147483647;
  record_device(LONGEST_NAMED);
  EXPECT_EQ(dump(LONGEST_NAMED, {"-i", "2147483647"}).out, all);
  EXPECT_EQ(dump(LONGEST, {"-i", "2147483647"}).out, "");
}

}  // namespace
