// trendtool export --format xlsx.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <filesystem>
#include <limits>

#include "tests/support/model.h"
#include "trendtool/export/row_writer.h"

namespace {

using testing::HasSubstr;

/// Prints the names of the sheets, and the cells of each: their places, types and values.
constexpr const char* PRINT_SHEETS = R"PYTHON(
import re, sys, zipfile
book = zipfile.ZipFile(sys.argv[1])
assert book.testzip() is None
names = re.findall('<sheet name="([^"]*)"', book.read('xl/workbook.xml').decode())
for number, name in enumerate(names, start=1):
  print('sheet', name)
  xml = book.read(f'xl/worksheets/sheet{number}.xml').decode()
  print('frozen', 'state="frozen"' in xml)
  for cell in re.finditer(r'<c r="(\w+)"( s="\d")?( t="\w+")?>(.*?)</c>', xml):
    print(cell[1], 'text' if cell[3] else 'number', re.sub('<[^>]*>', '', cell[4]))
)PYTHON";

class TrendtoolXlsx : public testing::Test {
 protected:
  void SetUp() override {
    ModelLog log;
    log.device = "/plant/one";
    log.params = {{"a", ACTUAL}, {"b & c", MAX}};
    log.minutes = {5, 60};
    log.rows = {{5, 1288616700, 0.5, {1.23456789, NAN}}, {60, 1288612800, 1, {-0.25, 7}}};
    record(log, db_);
    const ProcessResult result = run({});
    can_write_ = result.err.find("built without libxlsxwriter") == std::string::npos;
    if (can_write_) return;
    EXPECT_EQ(result.exit_status, 2);
    EXPECT_EQ(result.out, "");
    GTEST_SKIP() << "this build has no spreadsheets";
  }

  ProcessResult run(std::vector<std::string> more) {
    std::vector<std::string> arguments = {"export", "-x", db_,      "--format",
                                          "xlsx",   "-a", "--file", file_};
    if (more.empty()) more = {"-d", "/plant/one"};
    arguments.insert(arguments.end(), more.begin(), more.end());
    return run_tool("trendtool", arguments, "", {{"TZ", zone_}});
  }

  /// What the sheets hold after an export that must succeed without a message.
  std::string exported(std::vector<std::string> more) {
    const ProcessResult result = run(std::move(more));
    EXPECT_EQ(result.exit_status, 0);
    EXPECT_EQ(result.out + result.err, "");
    return print();
  }

  std::string print() {
    const ProcessResult shown = run_process({"python3", "-c", PRINT_SHEETS, file_});
    EXPECT_EQ(shown.err, "");
    return shown.out;
  }

  TemporaryFolder folder_;
  std::string db_ = folder_.file("trend.db");
  std::string file_ = folder_.file("trend.xlsx");
  std::string zone_ = "IST-5:30";
  bool can_write_ = false;
};

TEST_F(TrendtoolXlsx, WritesTheDatesOfAClockWithLeapSeconds) {
  if (!std::filesystem::exists("/usr/share/zoneinfo/right/Asia/Kolkata")) {
    GTEST_SKIP() << "there is no zone with leap seconds";
  }
  const auto export_row_at = [&](std::int64_t time) {
    std::filesystem::remove(db_);
    record({.device = "/d", .params = {{"a", ACTUAL}}, .minutes = {5}, .rows = {{5, time, 1, {7}}}},
           db_);
    return exported({"-d", "/d"});
  };
  const std::string expected = export_row_at(1288612800);
  zone_ = "right/Asia/Kolkata";
  EXPECT_EQ(export_row_at(1288612800 + 24), expected);
}

TEST_F(TrendtoolXlsx, WritesDatesAndNumbers) {
  EXPECT_EQ(exported({"-d", "/plant/one", "-u"}),
            "sheet plant one\nfrozen True\n"
            "A1 text time (UTC)\nB1 text interval\nC1 text a:Value\n"
            "D1 text b &amp; c:.ValueIntMax\n"
            "A2 number 40483.5\nB2 number 60\nC2 number -0.25\nD2 number 7\n"
            "A3 number 40483.54513888889\nB3 number 5\nC3 number 1.23457\n");
}

TEST_F(TrendtoolXlsx, WritesLocalTimeValidityAndExactValues) {
  EXPECT_EQ(exported({"-d", "/plant/one", "-p", "a", "-i", "5", "--exact", "--percent-valid"}),
            "sheet plant one\nfrozen True\n"
            "A1 text time\nB1 text interval\nC1 text percent_valid\nD1 text a:Value\n"
            "A2 number 40483.77430555555\nB2 number 5\nC2 number 50\nD2 number 1.23456789\n");
}

TEST_F(TrendtoolXlsx, WritesASheetForEachInterval) {
  EXPECT_EQ(exported({"-d", "/plant/one", "-p", "a", "-u", "--sheet-per-interval"}),
            "sheet plant one 60 min\nfrozen True\n"
            "A1 text time (UTC)\nB1 text interval\nC1 text a:Value\n"
            "A2 number 40483.5\nB2 number 60\nC2 number -0.25\n"
            "sheet plant one 5 min\nfrozen True\n"
            "A1 text time (UTC)\nB1 text interval\nC1 text a:Value\n"
            "A2 number 40483.54513888889\nB2 number 5\nC2 number 1.23457\n");
}

TEST_F(TrendtoolXlsx, SaysThatItCantHoldInfinities) {
  const double inf = std::numeric_limits<double>::infinity();
  record(
      {.device = "/hot", .params = {{"t", ACTUAL}}, .minutes = {5}, .rows = {{5, 300, 1, {inf}}}},
      db_);
  const ProcessResult result = run({"-d", "/hot", "-u"});
  EXPECT_EQ(result.exit_status, 1);
  EXPECT_EQ(result.err, "trendtool: 1 infinite values are left out; xlsx can't hold them\n");
  EXPECT_THAT(print(), HasSubstr("B2 number 5\n"));
  EXPECT_THAT(print(), testing::Not(HasSubstr("C2")));
}

TEST_F(TrendtoolXlsx, NeedsARegularFile) {
  file_ = "/dev/null";
  const ProcessResult result = run({});
  EXPECT_EQ(result.exit_status, 1);
  EXPECT_EQ(result.err,
            "trendtool: xlsx can be written to a regular file only; name another with -f\n");
}

TEST_F(TrendtoolXlsx, LeavesNothingIfTheDiskIsFull) {
  std::filesystem::remove(file_);
  std::string command = "ulimit -f 1; exec \"$@\"";
  std::vector<std::string> words = {"/bin/sh", "-c", "trap '' XFSZ; " + command, "sh"};
  for (const std::string& word : tool_command("trendtool")) words.push_back(word);
  ModelLog log{.device = "/long", .params = {{"a", AVG}}, .minutes = {5}, .rows = {}};
  for (int i = 1; i <= 20000; ++i) log.rows.push_back({5, 300LL * i, 1, {1.0 * i}});
  record(log, db_);
  for (const char* word :
       {"export", "-x", db_.c_str(), "-d", "/long", "--format", "xlsx", "-f", file_.c_str()}) {
    words.emplace_back(word);
  }
  const ProcessResult result = run_process(words);
  EXPECT_EQ(result.exit_status, 1);
  EXPECT_THAT(result.err, HasSubstr("trendtool: can't write the spreadsheet: "));
  EXPECT_FALSE(std::filesystem::exists(file_));
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder_.path()), {}), 1);
}

TEST_F(TrendtoolXlsx, NeedsAFile) {
  const ProcessResult result =
      run_tool("trendtool", {"export", "-x", db_, "-d", "/plant/one", "--format", "xlsx"});
  EXPECT_EQ(result.exit_status, 2);
  EXPECT_EQ(result.err, "trendtool: xlsx needs a file; name it with -f\n");
}

TEST_F(TrendtoolXlsx, HasAnEmptySheetIfThereAreNoRows) {
  EXPECT_EQ(exported({"-d", "/plant/one", "--sheet-per-interval", "-e", "@1"}),
            "sheet Sheet1\nfrozen False\n");
}

TEST_F(TrendtoolXlsx, RefusesMoreColumnsThanTheFormatHas) {
  ModelLog log{.device = "/wide", .params = {}, .minutes = {}, .rows = {}};
  for (int i = 0; i < 3277; ++i) {
    log.params.push_back({"p" + std::to_string(i), MIN | MAX | AVG | ACTUAL | SUM});
  }
  record(log, db_);
  std::filesystem::remove(file_);
  const ProcessResult result = run({"-d", "/wide"});
  EXPECT_EQ(result.exit_status, 1);
  EXPECT_EQ(result.err, "trendtool: xlsx has at most 16384 columns; choose parameters with -p\n");
  EXPECT_FALSE(std::filesystem::exists(file_));
}

TEST_F(TrendtoolXlsx, GoesOnInAnotherSheetWhereOneIsFull) {
  ExportOptions options;
  options.use_utc = true;
  std::vector<ExportDevice> devices(1);
  devices[0].selection.device.path = "/d";
  devices[0].selection.params.resize(1);
  devices[0].cells = {{0, 0, &toolkit::trend::CSample::actual}};
  const std::vector<Column> columns = {{"a", 3, "a", "a:Value"}};
  OutputFile out;
  ASSERT_TRUE(out.open(file_, db_));
  const Export what = {options, devices, columns};
  const auto writer = make_xlsx_writer(what, out, 3);
  ASSERT_EQ(writer->start(), "");
  ASSERT_EQ(writer->start_device(devices[0]), "");
  for (int i = 1; i <= 3; ++i) {
    toolkit::trend::CSnapshot row;
    row.timestamp = 86400 * i;
    row.interval_minutes = 5;
    row.samples = {{NAN, NAN, NAN, 1.0 * i, NAN}};
    writer->write(row);
  }
  ASSERT_EQ(writer->finish(), "");
  ASSERT_TRUE(out.finish());
  const std::string titles = "frozen True\nA1 text time (UTC)\nB1 text interval\nC1 text a:Value\n";
  EXPECT_EQ(print(), "sheet d\n" + titles +
                         "A2 number 25570\nB2 number 5\nC2 number 1\n"
                         "A3 number 25571\nB3 number 5\nC3 number 2\nsheet d (2)\n" +
                         titles + "A2 number 25572\nB2 number 5\nC2 number 3\n");
}

}  // namespace
