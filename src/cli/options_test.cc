#include "cli/options.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <functional>
#include <limits>
#include <string>
#include <vector>

#include "tests/support/streams.h"

namespace {

using Arguments = std::vector<const char*>;

/// Parses `arguments` after a program's name. The exit status of the result is what parse_args
/// returned.
ProcessResult parse(DumpOptions& options, const Arguments& arguments) {
  Arguments argv = {"trendcsv"};
  argv.insert(argv.end(), arguments.begin(), arguments.end());
  return capture([&] { return parse_args(options, static_cast<int>(argv.size()), argv.data()); });
}

/// Checks that `arguments` are refused with `message` on standard error.
void expect_refusal(const Arguments& arguments, const std::string& message) {
  SCOPED_TRACE(testing::PrintToString(arguments));
  DumpOptions options;
  const ProcessResult result = parse(options, arguments);
  EXPECT_LT(result.exit_status, 0);
  EXPECT_EQ(result.err, message);
  EXPECT_EQ(result.out, "");
}

void expect_same(const DumpOptions& actual, const DumpOptions& expected) {
  EXPECT_EQ(actual.db_path, expected.db_path);
  EXPECT_EQ(actual.device, expected.device);
  EXPECT_EQ(actual.params, expected.params);
  EXPECT_EQ(actual.intervals, expected.intervals);
  EXPECT_EQ(actual.start_text, expected.start_text);
  EXPECT_EQ(actual.end_text, expected.end_text);
  EXPECT_EQ(actual.start_time, expected.start_time);
  EXPECT_EQ(actual.end_time, expected.end_time);
  EXPECT_EQ(actual.max_records, expected.max_records);
  EXPECT_EQ(actual.offset, expected.offset);
  EXPECT_EQ(actual.chunk_size, expected.chunk_size);
  EXPECT_EQ(actual.page_size, expected.page_size);
  EXPECT_EQ(actual.cache_size, expected.cache_size);
  EXPECT_EQ(actual.heap_limit, expected.heap_limit);
  EXPECT_EQ(actual.use_wal, expected.use_wal);
  EXPECT_EQ(actual.output_path, expected.output_path);
  EXPECT_EQ(actual.ascending, expected.ascending);
  EXPECT_EQ(actual.reverse, expected.reverse);
  EXPECT_EQ(actual.display_names, expected.display_names);
  EXPECT_EQ(actual.print_header, expected.print_header);
  EXPECT_EQ(actual.input_time_format, expected.input_time_format);
  EXPECT_EQ(actual.output_date_format, expected.output_date_format);
  EXPECT_EQ(actual.output_time_format, expected.output_time_format);
  EXPECT_EQ(actual.use_utc, expected.use_utc);
  EXPECT_EQ(actual.interval_begin, expected.interval_begin);
  EXPECT_EQ(actual.percent_valid, expected.percent_valid);
}

/// Checks that `arguments` together with the two required options are accepted, and that they
/// change the options only as `change` does.
void expect_change(const Arguments& arguments, const std::function<void(DumpOptions&)>& change) {
  SCOPED_TRACE(testing::PrintToString(arguments));
  DumpOptions expected;
  expected.db_path = "db";
  expected.device = "dev";
  expected.input_time_format = "%F %R";
  expected.output_date_format = "%F";
  expected.output_time_format = "%R";
  change(expected);
  Arguments all = {"-x", "db"};
  all.insert(all.end(), arguments.begin(), arguments.end());
  all.insert(all.end(), {"-d", "dev"});
  DumpOptions options;
  const ProcessResult result = parse(options, all);
  EXPECT_EQ(result.exit_status, 0);
  EXPECT_EQ(result.err, "");
  EXPECT_EQ(result.out, "");
  expect_same(options, expected);
}

const Arguments VALUED_OPTIONS = {"-x", "-d", "-p", "-i", "-s", "-e",  "-m",  "-o",
                                  "-c", "-f", "-t", "-w", "-y", "-sp", "-sc", "-sl"};

TEST(DumpOptions, StartsWithTheDefaults) {
  const DumpOptions options;
  EXPECT_EQ(options.db_path, "");
  EXPECT_EQ(options.device, "");
  EXPECT_TRUE(options.params.empty());
  EXPECT_TRUE(options.intervals.empty());
  EXPECT_EQ(options.start_text, "");
  EXPECT_EQ(options.end_text, "");
  EXPECT_EQ(options.start_time, -1);
  EXPECT_EQ(options.end_time, -1);
  EXPECT_EQ(options.max_records, 0);
  EXPECT_EQ(options.offset, 0);
  EXPECT_EQ(options.chunk_size, 512U);
  EXPECT_EQ(options.page_size, 0);
  EXPECT_EQ(options.cache_size, 0);
  EXPECT_EQ(options.heap_limit, 0);
  EXPECT_TRUE(options.use_wal);
  EXPECT_EQ(options.output_path, "");
  EXPECT_FALSE(options.ascending);
  EXPECT_FALSE(options.reverse);
  EXPECT_FALSE(options.display_names);
  EXPECT_TRUE(options.print_header);
  EXPECT_EQ(options.input_time_format, "");
  EXPECT_EQ(options.output_date_format, "");
  EXPECT_EQ(options.output_time_format, "");
  EXPECT_FALSE(options.use_utc);
  EXPECT_FALSE(options.interval_begin);
  EXPECT_FALSE(options.percent_valid);
}

TEST(ParseArgs, StoresTexts) {
  expect_change({"-x", "other"}, [](DumpOptions& o) { o.db_path = "other"; });
  expect_change({"-f", "out.csv"}, [](DumpOptions& o) { o.output_path = "out.csv"; });
  expect_change({"-w", "%x"}, [](DumpOptions& o) { o.output_date_format = "%x"; });
  expect_change({"-y", "%X"}, [](DumpOptions& o) { o.output_time_format = "%X"; });
  expect_change({"-t", "%Y"}, [](DumpOptions& o) { o.input_time_format = "%Y"; });
  expect_change({"-u", "-s", "1970-01-02 00:00"}, [](DumpOptions& o) {
    o.use_utc = true;
    o.start_text = "1970-01-02 00:00";
    o.start_time = 86400;
  });
  expect_change({"-u", "-e", "1970-01-02 00:01"}, [](DumpOptions& o) {
    o.use_utc = true;
    o.end_text = "1970-01-02 00:01";
    o.end_time = 86460;
  });
}

TEST(ParseArgs, StoresNumbers) {
  expect_change({"-m", "1"}, [](DumpOptions& o) { o.max_records = 1; });
  expect_change({"-m", "2147483647"}, [](DumpOptions& o) { o.max_records = 2147483647; });
  expect_change({"-o", "7"}, [](DumpOptions& o) { o.offset = 7; });
  expect_change({"-c", "100"}, [](DumpOptions& o) { o.chunk_size = 100; });
  expect_change({"-sp", "4096"}, [](DumpOptions& o) { o.page_size = 4096; });
  expect_change({"-i", "60", "-i", "5"}, [](DumpOptions& o) { o.intervals = {5, 60}; });
}

TEST(ParseArgs, SetsFlags) {
  expect_change({"-a"}, [](DumpOptions& o) { o.ascending = true; });
  expect_change({"-r"}, [](DumpOptions& o) { o.reverse = true; });
  expect_change({"-u"}, [](DumpOptions& o) { o.use_utc = true; });
  expect_change({"-b"}, [](DumpOptions& o) { o.interval_begin = true; });
  expect_change({"-pv"}, [](DumpOptions& o) { o.percent_valid = true; });
  expect_change({"-J"}, [](DumpOptions& o) { o.use_wal = false; });
}

TEST(ParseArgs, TellsNhFromN) {
  expect_change({"-nh"}, [](DumpOptions& o) { o.print_header = false; });
  expect_change({"-n"}, [](DumpOptions& o) { o.display_names = true; });
}

TEST(ParseArgs, TellsOptionsWithTheSameStartApart) {
  expect_change({"-p", "v"}, [](DumpOptions& o) { o.params = {"v"}; });
  expect_change({"-s", "1970-01-02", "-t", "%Y-%m-%d", "-u", "-sp", "1"}, [](DumpOptions& o) {
    o.use_utc = true;
    o.input_time_format = "%Y-%m-%d";
    o.start_text = "1970-01-02";
    o.start_time = 86400;
    o.page_size = 1;
  });
}

TEST(ParseArgs, KeepsTheLastOfRepeatedTextsAndNumbers) {
  expect_change({"-x", "a", "-x", "b"}, [](DumpOptions& o) { o.db_path = "b"; });
  expect_change({"-d", "a"}, [](DumpOptions& o) { o.device = "dev"; });
  expect_change({"-m", "5", "-m", "3"}, [](DumpOptions& o) { o.max_records = 3; });
  expect_change({"-a", "-a"}, [](DumpOptions& o) { o.ascending = true; });
}

TEST(ParseArgs, KeepsAllRepeatedParameters) {
  expect_change({"-p", "b", "-p", "a", "-p", "b"}, [](DumpOptions& o) {
    o.params = {"a", "b", "b"};
  });
}

TEST(ParseArgs, SortsParametersOnlyOnAGoodCommandLine) {
  DumpOptions options;
  EXPECT_EQ(parse(options, {"-p", "b", "-p", "a", "-p", "b", "nonsense"}).exit_status, -1);
  EXPECT_EQ(options.params, (std::vector<std::string>{"b", "a", "b"}));
}

TEST(ParseArgs, TakesZeroAsIntervalAndChunkSize) {
  expect_change({"-i", "0"}, [](DumpOptions& o) { o.intervals = {0}; });
  expect_change({"-c", "0"}, [](DumpOptions& o) { o.chunk_size = 0; });
}

TEST(ParseArgs, ReadsLeadingDigitsAndIgnoresTheRest) {
  expect_change({"-i", "300x"}, [](DumpOptions& o) { o.intervals = {300}; });
  expect_change({"-m", " +12.9"}, [](DumpOptions& o) { o.max_records = 12; });
  expect_change({"-c", "0x10"}, [](DumpOptions& o) { o.chunk_size = 0; });
  expect_change({"-sp", "512bytes"}, [](DumpOptions& o) { o.page_size = 512; });
  expect_change({"-sc", "2MB"}, [](DumpOptions& o) { o.cache_size = 2048; });
}

TEST(ParseArgs, ReadsOtherTextAsZero) {
  expect_change({"-i", "abc"}, [](DumpOptions& o) { o.intervals = {0}; });
  expect_change({"-c", "-"}, [](DumpOptions& o) { o.chunk_size = 0; });
}

TEST(ParseArgs, StoresSizesGivenInKilobytesInBytes) {
  expect_change({"-sc", "64"}, [](DumpOptions& o) { o.cache_size = 65536; });
  expect_change({"-sl", "8"}, [](DumpOptions& o) { o.heap_limit = 8192; });
}

TEST(ParseArgs, ShiftsOutTheBitsOfSizesThatDoNotFit) {
  expect_change({"-sc", "2097152"}, [](DumpOptions& o) { o.cache_size = -2147483647 - 1; });
  expect_change({"-sc", "4194304"}, [](DumpOptions& o) { o.cache_size = 0; });
  expect_change({"-sl", "4194305"}, [](DumpOptions& o) { o.heap_limit = 1024; });
  expect_change({"-sl", "2147483647"}, [](DumpOptions& o) { o.heap_limit = -1024; });
}

TEST(ParseArgs, TakesTheLargestNumberIfOneDoesNotFit) {
  constexpr long LARGEST = std::numeric_limits<long>::max();
  for (const char* number :
       {"9223372036854775807", "9223372036854775808", "99999999999999999999"}) {
    expect_change({"-m", number}, [](DumpOptions& o) { o.max_records = LARGEST; });
    expect_change({"-o", number}, [](DumpOptions& o) { o.offset = LARGEST; });
    expect_change({"-i", number}, [](DumpOptions& o) { o.intervals = {LARGEST}; });
  }
  // A long of 32 bits can't hold all chunk sizes.
  constexpr auto LARGEST_SIZE = static_cast<std::uint32_t>(
      std::min<unsigned long>(LARGEST, std::numeric_limits<std::uint32_t>::max()));
  for (const char* number : {"4294967295", "4294967296", "4294967297", "99999999999",
                             "9223372036854775807", "99999999999999999999"}) {
    expect_change({"-c", number}, [](DumpOptions& o) { o.chunk_size = LARGEST_SIZE; });
  }
}

TEST(ParseArgs, KeepsNumbersThatALongCanHold) {
  if constexpr (sizeof(long) > 4) {
    expect_change({"-m", "5000000000", "-o", "6000000000"}, [](DumpOptions& o) {
      o.max_records = static_cast<long>(5000000000);
      o.offset = static_cast<long>(6000000000);
    });
    expect_change({"-i", "4294967301"},
                  [](DumpOptions& o) { o.intervals = {static_cast<unsigned long>(4294967301)}; });
  } else {
    expect_change({"-m", "5000000000"}, [](DumpOptions& o) { o.max_records = 2147483647; });
  }
}

TEST(ParseArgs, TakesAnOptionNameAsAValue) {
  expect_change({"-x", "-d"}, [](DumpOptions& o) { o.db_path = "-d"; });
  expect_change({"-p", "-v"}, [](DumpOptions& o) { o.params = {"-v"}; });
}

TEST(ParseArgs, RefusesNumbersThatAreTooSmall) {
  expect_refusal({"-i", "-5"}, "Error: invalid trend interval: -5\n");
  expect_refusal({"-i", "-1x"}, "Error: invalid trend interval: -1\n");
  expect_refusal({"-m", "abc"}, "Error: invalid maximum # of records: 0\n");
  expect_refusal({"-m", "0"}, "Error: invalid maximum # of records: 0\n");
  expect_refusal({"-m", "-3"}, "Error: invalid maximum # of records: -3\n");
  expect_refusal({"-o", "0"}, "Error: invalid log file offset: 0\n");
  expect_refusal({"-o", "-1"}, "Error: invalid log file offset: -1\n");
  expect_refusal({"-c", "-1"}, "Error: invalid chunk size: -1\n");
  expect_refusal({"-sp", "0"}, "Error: invalid page size: 0\n");
  expect_refusal({"-sp", "-4096"}, "Error: invalid page size: -4096\n");
  expect_refusal({"-sc", "0"}, "Error: invalid cache size: 0\n");
  expect_refusal({"-sc", "-2"}, "Error: invalid cache size: -2\n");
  expect_refusal({"-sl", "0"}, "Error: invalid heap limit: 0\n");
  expect_refusal({"-sl", "many"}, "Error: invalid heap limit: 0\n");
}

TEST(ParseArgs, RefusesAnOptionWithoutItsValueSilently) {
  for (const char* option : VALUED_OPTIONS) {
    expect_refusal({option}, "");
    expect_refusal({"-x", "db", "-d", "dev", option}, "");
  }
}

TEST(ParseArgs, RefusesAnEmptyValueSilently) {
  for (const char* option : VALUED_OPTIONS) {
    expect_refusal({option, "", "-x", "db", "-d", "dev"}, "");
  }
}

TEST(ParseArgs, RefusesUnknownOptionsSilently) {
  for (const char* argument : {"word", "-", "--", "", "-X", "-q", "-ar", "-x=db", "-nhx", "-pvv",
                               "--help", "-a ", "-5", "-m5"}) {
    expect_refusal({argument, "-x", "db", "-d", "dev"}, "");
  }
}

TEST(ParseArgs, StopsAtTheFirstBadArgument) {
  expect_refusal({"-m", "0", "-o", "0"}, "Error: invalid maximum # of records: 0\n");
  expect_refusal({"word", "-v"}, "");
  expect_refusal({"-m", "0", "-v"}, "Error: invalid maximum # of records: 0\n");
}

TEST(ParseArgs, KeepsWhatWasStoredBeforeABadArgument) {
  DumpOptions options;
  EXPECT_EQ(parse(options, {"-c", "100", "-a", "word", "-r"}).exit_status, -1);
  EXPECT_EQ(options.chunk_size, 100U);
  EXPECT_TRUE(options.ascending);
  EXPECT_FALSE(options.reverse);
}

TEST(ParseArgs, StopsAtTheVersionOption) {
  for (const Arguments& arguments :
       {Arguments{"-v"}, Arguments{"-v", "-x"}, Arguments{"-v", "word"},
        Arguments{"-a", "-v", "-m"}, Arguments{"-x", "db", "-s", "no time", "-v"}}) {
    SCOPED_TRACE(testing::PrintToString(arguments));
    DumpOptions options;
    const ProcessResult result = parse(options, arguments);
    EXPECT_GT(result.exit_status, 0);
    EXPECT_EQ(result.out + result.err, "");
  }
}

TEST(ParseArgs, ChecksTheWholeLineAtTheEnd) {
  expect_refusal({}, "Error: must supply a database name\n");
  expect_refusal({"-x", "db"}, "Error: must supply a device name\n");
  expect_refusal({"-x", "db", "-d", "dev", "-s", "x"},
                 "Error: can't convert start time 'x' using input format '%F %R'\n");
}

}  // namespace
