// trendtool export: csv, jsonl and influx.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "tests/support/stored_log.h"
#include "tests/support/terminal.h"
#include "tests/trendtool/export_fixture.h"

namespace {

using testing::HasSubstr;

constexpr double INF = std::numeric_limits<double>::infinity();

/// A device whose names need quotes and escapes everywhere.
ModelLog odd_log() {
  ModelLog log;
  log.device = "/a b,c=d\"e\\f;g";
  log.params = {{"x y,\"z\"=1;\\2", ACTUAL}, {"w", MIN | MAX}};
  log.minutes = {60};
  log.rows = {{60, 1288614600, 1, {1.5, NAN, INF}},
              {60, 1288618200, 0.1234, {-INF, 1234567.25, -0.1}},
              {60, 1288621800, 0, {NAN, NAN, NAN}}};
  return log;
}

TEST_F(TrendtoolExport, QuotesNamesInCsv) {
  record(odd_log(), db_);
  EXPECT_EQ(exported({"--all-devices", "-a", "-u"}),
            "time,interval,device,w:.ValueIntMin,w:.ValueIntMax,"
            "\"x y,\"\"z\"\"=1;\\2:Value\"\n"
            "2010-11-01T12:30:00Z,60,\"/a b,c=d\"\"e\\f;g\",,1E999,1.5\n"
            "2010-11-01T13:30:00Z,60,\"/a b,c=d\"\"e\\f;g\",1234567,-0.1,-1E999\n"
            "2010-11-01T14:30:00Z,60,\"/a b,c=d\"\"e\\f;g\",,,\n");
}

TEST_F(TrendtoolExport, WritesJsonThatHasNullForAMissingValue) {
  record(odd_log(), db_);
  EXPECT_EQ(exported({"--all-devices", "-a", "-u", "--format", "jsonl", "--percent-valid"}),
            "{\"time\":\"2010-11-01T12:30:00Z\",\"interval\":60,"
            "\"device\":\"/a b,c=d\\\"e\\\\f;g\",\"percent_valid\":100.00,"
            "\"w:.ValueIntMin\":null,\"w:.ValueIntMax\":1E999,"
            "\"x y,\\\"z\\\"=1;\\\\2:Value\":1.5}\n"
            "{\"time\":\"2010-11-01T13:30:00Z\",\"interval\":60,"
            "\"device\":\"/a b,c=d\\\"e\\\\f;g\",\"percent_valid\":12.34,"
            "\"w:.ValueIntMin\":1234567,\"w:.ValueIntMax\":-0.1,"
            "\"x y,\\\"z\\\"=1;\\\\2:Value\":-1E999}\n"
            "{\"time\":\"2010-11-01T14:30:00Z\",\"interval\":60,"
            "\"device\":\"/a b,c=d\\\"e\\\\f;g\",\"percent_valid\":0.00,"
            "\"w:.ValueIntMin\":null,\"w:.ValueIntMax\":null,"
            "\"x y,\\\"z\\\"=1;\\\\2:Value\":null}\n");
}

TEST_F(TrendtoolExport, WritesInfluxAndSaysWhatItCantHold) {
  record(odd_log(), db_);
  const ProcessResult result =
      run_export({"--all-devices", "-a", "--format", "influx", "--percent-valid"});
  EXPECT_EQ(result.out,
            "/a\\ b\\,c=d\"e\\f;g,interval=60 percent_valid=100.00,"
            "x\\ y\\,\"z\"\\=1;\\2:Value=1.5 1288614600000000000\n"
            "/a\\ b\\,c=d\"e\\f;g,interval=60 percent_valid=12.34,w:.ValueIntMin=1234567,"
            "w:.ValueIntMax=-0.1 1288618200000000000\n");
  EXPECT_EQ(result.err, "trendtool: 2 infinite values are left out; influx can't hold them\n");
  EXPECT_EQ(result.exit_status, 1);
}

TEST_F(TrendtoolExport, LeavesRowsOutThatAreTooLateForInflux) {
  if (std::numeric_limits<std::time_t>::digits < 40) GTEST_SKIP() << "time_t has 32 bits";
  constexpr std::int64_t YEAR_2500 = 16'725'225'600;
  record({.device = "/d",
          .params = {{"a", ACTUAL}},
          .minutes = {5},
          .rows = {{5, 600, 1, {1}}, {5, YEAR_2500, 1, {2}}}},
         db_);
  ProcessResult result = run_export({"-d", "/d", "--format", "influx"});
  EXPECT_EQ(result.exit_status, 1);
  EXPECT_EQ(result.out, "/d,interval=5 a:Value=1 600000000000\n");
  const std::string late = "1 rows after the year 2262 are left out; influx can't hold them\n";
  EXPECT_EQ(result.err, "trendtool: " + late);
  record({.device = "/d", .params = {{"a", ACTUAL}}, .minutes = {5}, .rows = {{5, 900, 1, {INF}}}},
         db_);
  result = run_export({"-d", "/d", "--format", "influx"});
  EXPECT_EQ(result.err,
            "trendtool: 1 infinite values are left out; influx can't hold them; " + late);
}

TEST_F(TrendtoolExport, WritesSharesThatAreNoNumbers) {
  StoredSeries series{.minutes = 5, .blocks = {}, .loose = {}};
  series.blocks = {{{300, NAN, {1}}, {600, INF, {2}}, {900, -0.5, {3}}}};
  std::vector<StoredDevice> devices = {{"/d", {{.path = "a"}}, {series}}};
  devices[0].params[0].has_actual = true;
  write_blocks(db_, devices);
  const std::vector<std::string> options = {"-d", "/d", "-a", "-u", "--percent-valid", "--epoch"};
  EXPECT_EQ(exported(options),
            "time,interval,percent_valid,a:Value\n300,5,,1\n600,5,1E999,2\n900,5,-50.00,3\n");
  std::vector<std::string> json = options;
  json.insert(json.end(), {"--format", "jsonl"});
  EXPECT_EQ(exported(json),
            "{\"time\":300,\"interval\":5,\"percent_valid\":null,\"a:Value\":1}\n"
            "{\"time\":600,\"interval\":5,\"percent_valid\":1E999,\"a:Value\":2}\n"
            "{\"time\":900,\"interval\":5,\"percent_valid\":-50.00,\"a:Value\":3}\n");
  EXPECT_EQ(exported({"-d", "/d", "-a", "--percent-valid", "--format", "influx"}),
            "/d,interval=5 a:Value=1 300000000000\n/d,interval=5 a:Value=2 600000000000\n"
            "/d,interval=5 percent_valid=-50.00,a:Value=3 900000000000\n");
}

TEST_F(TrendtoolExport, TakesEachIntervalOnce) {
  ModelLog log{.device = "/one", .params = {{"a", AVG}}, .minutes = {5, 60}, .rows = {}};
  log.rows = {{5, 600, 1, {1}}, {60, 7200, 1, {2}}};
  record(log, db_);
  const std::string rows = "time,interval,a:.ValueIntAvg\n600,5,1\n7200,60,2\n";
  EXPECT_EQ(exported({"-d", "/one", "-i", "60", "-i", "5", "-i", "60", "--epoch", "-a"}), rows);
  EXPECT_EQ(exported({"-d", "/one", "-i", "5", "-i", "60", "--epoch", "-a"}), rows);
}

TEST_F(TrendtoolExport, ReadsARowOfTheFirstSecond) {
  record({.device = "/d", .params = {{"a", AVG}}, .minutes = {5}, .rows = {{5, 1, 1, {7}}}}, db_);
  EXPECT_EQ(exported({"-d", "/d", "-m", "1", "--epoch"}), "time,interval,a:.ValueIntAvg\n1,5,7\n");
}

TEST_F(TrendtoolExport, RefusesAParameterThatInfluxCantHold) {
  record({.device = "/d", .params = {{"a\nb", AVG}}, .minutes = {}, .rows = {}}, db_);
  const ProcessResult result = run_export({"-d", "/d", "--format", "influx"});
  EXPECT_EQ(result.exit_status, 1);
  EXPECT_EQ(result.out, "");
  EXPECT_EQ(result.err,
            "trendtool: influx can't hold the name 'a\\nb:.ValueIntAvg'; choose another format\n");
}

TEST_F(TrendtoolExport, WritesAHeaderAloneIfThereAreNoDevices) {
  record_three();
  for (const char* device : {"/one", "/two", "/none"}) {
    ASSERT_EQ(run_tool("trendtool", {"remove", "-x", db_, "-d", device, "--yes"}).exit_status, 0);
  }
  EXPECT_EQ(exported({"--all-devices"}), "time,interval,device\n");
}

TEST_F(TrendtoolExport, ShowsNoProgressOfAShortExport) {
  record_three();
  record({.device = "/two", .params = {}, .minutes = {60}, .rows = {}}, db_);
  for (const std::vector<std::string>& more :
       {std::vector<std::string>{"-a"}, {"-s", "@1"}, {"-a", "-e", "@10000"}, {"-m", "9"}}) {
    std::vector<std::string> words = {"export",        "-x", db_,
                                      "--all-devices", "-f", folder_.file("out.csv")};
    words.insert(words.end(), more.begin(), more.end());
    const ProcessResult result = run_at_terminal(tool_command("trendtool", words));
    EXPECT_EQ(result.exit_status, 0);
    EXPECT_EQ(result.out, "");
  }
}

TEST_F(TrendtoolExport, RefusesNamesThatInfluxCantHold) {
  for (const auto& [name, shown] :
       {std::pair("a\nb", "a\\nb"), std::pair("a\\", "a\\"), std::pair("#a", "#a")}) {
    std::filesystem::remove(db_);
    record({.device = name, .params = {{"c", SUM}}, .minutes = {5}, .rows = {{5, 300, 1, {1}}}},
           db_);
    const ProcessResult result = run_export({"--all-devices", "--format", "influx"});
    EXPECT_EQ(result.exit_status, 1);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err, "trendtool: influx can't hold the name '" + std::string(shown) +
                              "'; choose another format\n");
  }
}

TEST_F(TrendtoolExport, WritesALineForEachValue) {
  record(odd_log(), db_);
  EXPECT_EQ(exported({"--all-devices", "-m", "2", "-u", "--layout", "long", "--epoch",
                      "--percent-valid", "--separator", "tab"}),
            "time\tinterval\tdevice\tpercent_valid\tparameter\tstatistic\tvalue\n"
            "1288621800\t60\t\"/a b,c=d\"\"e\\f;g\"\t0.00\tw\tmin\t\n"
            "1288621800\t60\t\"/a b,c=d\"\"e\\f;g\"\t0.00\tw\tmax\t\n"
            "1288621800\t60\t\"/a b,c=d\"\"e\\f;g\"\t0.00\t\"x y,\"\"z\"\"=1;\\2\"\tactual\t\n"
            "1288618200\t60\t\"/a b,c=d\"\"e\\f;g\"\t12.34\tw\tmin\t1234567\n"
            "1288618200\t60\t\"/a b,c=d\"\"e\\f;g\"\t12.34\tw\tmax\t-0.1\n"
            "1288618200\t60\t\"/a b,c=d\"\"e\\f;g\"\t12.34\t\"x y,\"\"z\"\"=1;\\2\"\tactual\t"
            "-1E999\n");
}

TEST_F(TrendtoolExport, WritesADecimalComma) {
  record(odd_log(), db_);
  EXPECT_EQ(exported({"-d", odd_log().device, "-p", "w", "-a", "-u", "--decimal", ",",
                      "--percent-valid"}),
            "time;interval;percent_valid;w:.ValueIntMin;w:.ValueIntMax\n"
            "2010-11-01T12:30:00Z;60;100,00;;1E999\n"
            "2010-11-01T13:30:00Z;60;12,34;1234567;-0,1\n"
            "2010-11-01T14:30:00Z;60;0,00;;\n");
}

TEST_F(TrendtoolExport, WritesTheShortestDigitsThatAreExact) {
  ModelLog log{.device = "/d", .params = {{"a", ACTUAL}}, .minutes = {1}, .rows = {}};
  const double values[] = {0.1,  1.0 / 3, 123456.789, 1e22,   5e-324, 1.7976931348623157e308,
                           -0.0, 1e6,     INF,        1e-300, 100};
  std::int64_t time = 0;
  for (const double value : values) log.rows.push_back({1, time += 60, 1, {value}});
  record(log, db_);
  const std::string text = exported({"-d", "/d", "--exact", "-a", "--epoch"});
  std::size_t start = text.find('\n') + 1;
  for (const double value : values) {
    const std::string line = text.substr(start, text.find('\n', start) - start);
    start += line.size() + 1;
    const std::string field = line.substr(line.rfind(',') + 1);
    const double read = std::strtod(field.c_str(), nullptr);
    EXPECT_EQ(read, value) << field;
    EXPECT_EQ(std::signbit(read), std::signbit(value)) << field;
    EXPECT_LE(field.size(), 24U) << field;
  }
  EXPECT_THAT(text, HasSubstr(",0.1\n"));
  EXPECT_THAT(text, HasSubstr(",0.3333333333333333\n"));
}

TEST_F(TrendtoolExport, WritesSeveralDevices) {
  record_three();
  EXPECT_EQ(exported({"--all-devices", "-u"}),
            "time,interval,device,a:.ValueIntAvg,b:.ValueIntMin,b:.ValueIntMax,c:.ValueIntSum\n"
            "1970-01-01T00:10:00Z,5,/one,1,2,,\n"
            "1970-01-01T00:15:00Z,5,/two,,5,6,\n");
  EXPECT_EQ(exported({"-d", "/two", "-d", "/one", "-u", "--format", "jsonl"}),
            "{\"time\":\"1970-01-01T00:15:00Z\",\"interval\":5,\"device\":\"/two\","
            "\"b:.ValueIntMin\":5,\"b:.ValueIntMax\":6}\n"
            "{\"time\":\"1970-01-01T00:10:00Z\",\"interval\":5,\"device\":\"/one\","
            "\"b:.ValueIntMin\":2,\"a:.ValueIntAvg\":1}\n");
  EXPECT_EQ(exported({"-d", "/one", "--format", "influx", "-i", "60"}),
            "/one,interval=60 a:.ValueIntAvg=3,b:.ValueIntMin=4 3600000000000\n");
}

TEST_F(TrendtoolExport, TakesOfAllDevicesThoseWithAParameter) {
  record_three();
  EXPECT_EQ(exported({"--all-devices", "-p", "a", "-u", "-i", "60"}),
            "time,interval,device,a:.ValueIntAvg\n1970-01-01T01:00:00Z,60,/one,3\n");
  const ProcessResult none = run_export({"--all-devices", "-p", "x"});
  EXPECT_EQ(none.exit_status, 1);
  EXPECT_EQ(none.err,
            "trendtool: no device has a parameter of -p; 'trendtool list -d' shows the parameters "
            "of a device\n");
  record({.device = "/bare", .params = {}, .minutes = {5}, .rows = {{5, 1200, 1, {}}}}, db_);
  EXPECT_EQ(exported({"--all-devices", "-s", "@1200", "-e", "@1200", "--epoch"}),
            "time,interval,device,a:.ValueIntAvg,b:.ValueIntMin,b:.ValueIntMax,c:.ValueIntSum\n"
            "1200,5,/bare,,,,\n");
  const ProcessResult named = run_export({"-d", "/two", "-p", "a"});
  EXPECT_EQ(named.exit_status, 1);
  EXPECT_EQ(named.err,
            "trendtool: device '/two' has no parameter 'a'; 'trendtool list -d' shows its "
            "parameters\n");
}

TEST_F(TrendtoolExport, TakesNamesAsTheyAre) {
  for (const std::string name : {"[x]", "[x,y]", "[]", "{}", "%%", "--", "++", "-x", "'x'"}) {
    std::filesystem::remove(db_);
    record({.device = name, .params = {{name, ACTUAL}, {"~", AVG}}, .minutes = {}, .rows = {}},
           db_);
    const std::string header = "time\tinterval\t" + name + ":Value\n";
    for (const std::vector<std::string>& arguments :
         {std::vector<std::string>{"-d", name, "-p", name},
          {"-d" + name, "-p" + name},
          {"--device", name, "--parameter", name, "-p", name},
          {"--device=" + name, "--parameter=" + name}}) {
      std::vector<std::string> words = {"--separator", "tab"};
      words.insert(words.end(), arguments.begin(), arguments.end());
      EXPECT_EQ(exported(words), header);
    }
    EXPECT_EQ(run_tool("trendtool", {"list", "-x", db_, "-d", name, "--names"}).out,
              name + "\n~\n");
  }
}

TEST_F(TrendtoolExport, WritesAHeaderAloneIfThereAreNoRows) {
  record_three();
  EXPECT_EQ(exported({"-d", "/none"}), "time,interval,c:.ValueIntSum\n");
  EXPECT_EQ(exported({"-d", "/none", "--format", "jsonl"}), "");
  EXPECT_EQ(exported({"-d", "/one", "-s", "2000-01-01"}),
            "time,interval,a:.ValueIntAvg,b:.ValueIntMin\n");
}

TEST_F(TrendtoolExport, TellsTimesApartWhenDaylightSavingEndsAndStarts) {
  ModelLog log{.device = "/d", .params = {{"a", ACTUAL}}, .minutes = {30}, .rows = {}};
  for (int i = 0; i < 4; ++i) log.rows.push_back({30, 1288485000 + 1800 * i, 1, {1.0 * i}});
  for (int i = 0; i < 3; ++i) log.rows.push_back({30, 1269736200 + 1800 * i, 1, {1.0 * i}});
  record(log, db_);
  const char* zone = "CET-1CEST,M3.5.0,M10.5.0/3";
  EXPECT_EQ(exported({"-d", "/d", "-a"}, zone),
            "time,interval,a:Value\n"
            "2010-03-28T01:30:00+01:00,30,0\n"
            "2010-03-28T03:00:00+02:00,30,1\n"
            "2010-03-28T03:30:00+02:00,30,2\n"
            "2010-10-31T02:30:00+02:00,30,0\n"
            "2010-10-31T02:00:00+01:00,30,1\n"
            "2010-10-31T02:30:00+01:00,30,2\n"
            "2010-10-31T03:00:00+01:00,30,3\n");
  // The range is as long as the clock shows its ends.
  EXPECT_EQ(
      exported({"-d", "/d", "-a", "-s", "2010-10-31T02:30", "-e", "2010-10-31 02:30", "--epoch"},
               zone),
      "time,interval,a:Value\n1288485000,30,0\n1288486800,30,1\n1288488600,30,2\n");
}

TEST_F(TrendtoolExport, WritesTheRowsOfTrendcsv) {
  Random random(7);
  for (int round = 0; round < random_rounds(40); ++round) {
    std::filesystem::remove(db_);
    const ModelLog log = random_log(random, false);
    record(log, db_);
    DumpRequest request;
    request.use_utc = true;
    request.header = false;
    request.date_format = "%FT%TZ";
    request.time_format = "-";
    request.ascending = pick(random, 2) == 0;
    if (pick(random, 2) == 0) request.max_records = 1 + pick(random, 60);
    std::vector<std::string> arguments = {"-d", log.device, "-u"};
    if (request.ascending) arguments.emplace_back("-a");
    if (request.max_records > 0) {
      arguments.insert(arguments.end(), {"-m", std::to_string(request.max_records)});
    }
    std::string rows = exported(arguments);
    rows.erase(0, rows.find('\n') + 1);
    // The field after the time is the interval here, and a dash there.
    std::string expected = expected_dump(log, request).first;
    std::string shown;
    for (std::size_t i = 0; i < rows.size(); ++i) {
      shown += rows[i];
      if (rows[i] != 'Z') continue;
      shown += ",-";
      i = rows.find_first_of(",\n", i + 2) - 1;
    }
    for (std::size_t i = 0; (i = expected.find("INF", i)) != std::string::npos;) {
      expected.replace(i, 3, "1E999");
    }
    ASSERT_EQ(shown, expected) << round;
  }
}

}  // namespace
