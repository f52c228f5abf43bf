// The subcommands of trendtool while a call of the system fails that they make themselves.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>

#include "tests/support/failing_call.h"
#include "tests/support/model.h"

namespace {

namespace fs = std::filesystem;
using testing::EndsWith;
using testing::HasSubstr;

class ToolCall : public testing::Test {
 protected:
  ToolCall() {
    record({.device = "/d", .params = {{"a", AVG}}, .minutes = {5}, .rows = {{5, 300, 1, {1}}}},
           db_);
  }

  /// Runs trendtool, in which the call with this number fails, if there are so many.
  ProcessResult run(const std::vector<std::string>& words, const FailingCall& failing, int number,
                    const Environment& more = {}) {
    const std::string mark = folder_.file("mark");
    Environment environment = make_environment(failing, number, mark);
    environment.insert(environment.end(), more.begin(), more.end());
    // A program that hangs ends by this signal.
    const ProcessResult result = run_tool("trendtool", words, "", environment, [] { alarm(60); });
    has_happened_ = fs::remove(mark);
    return result;
  }

  bool has_happened_ = true;
  TemporaryFolder folder_;
  std::string db_ = folder_.file("trend.db");
};

TEST_F(ToolCall, AFileThatCantBeCompletedLeavesTheOldOne) {
  const std::string file = folder_.file("out.csv");
  const std::vector<std::string> words = {"export", "-x", db_, "-d", "/d", "-f", file};
  const std::pair<const char*, std::string> cases[] = {
      {"sync", "write"}, {"link", "write"}, {"write", "write"}, {"chmod", "open"}};
  for (const auto& [call, what] : cases) {
    write_file(file, "old");
    const ProcessResult result = run(words, {call, EIO}, 1);
    EXPECT_EQ(result.exit_status, 1) << call;
    EXPECT_EQ(result.err, "trendtool: can't " + what + " '" + file + "': Input/output error\n");
    EXPECT_EQ(read_file(file), "old");
    EXPECT_EQ(std::distance(fs::directory_iterator(folder_.path()), {}), 2) << call;
  }
}

TEST_F(ToolCall, AFileIsClosedOrTheOldOneStays) {
  const std::string file = folder_.file("out.csv");
  int failed = 0;
  // Other files may be closed before.
  for (int number = 1; has_happened_; ++number) {
    write_file(file, "old");
    const ProcessResult result =
        run({"export", "-x", db_, "-d", "/d", "-u", "-f", file}, {"close", EIO}, number);
    if (result.exit_status == 0) {
      EXPECT_EQ(read_file(file), "time,interval,a:.ValueIntAvg\n1970-01-01T00:05:00Z,5,1\n");
      continue;
    }
    ++failed;
    EXPECT_EQ(result.err, "trendtool: can't write '" + file + "': Input/output error\n");
    EXPECT_EQ(read_file(file), "old");
  }
  EXPECT_EQ(failed, 1);
}

TEST_F(ToolCall, ABackupNeedsNoRenameThatReplacesNothing) {
  const std::string copy = folder_.file("copy.db");
  const ProcessResult result = run({"backup", "-x", db_, copy}, {"link", EINVAL}, 1);
  EXPECT_TRUE(has_happened_);
  EXPECT_EQ(result.exit_status, 0) << result.err;
  EXPECT_EQ(std::distance(fs::directory_iterator(folder_.path()), {}), 2);
  EXPECT_EQ(run_tool("trendtool", {"list", "-x", copy}).out,
            run_tool("trendtool", {"list", "-x", db_}).out);
}

TEST_F(ToolCall, ABackupThatCantBeSyncedIsNotThere) {
  const std::string copy = folder_.file("copy.db");
  // Not every file system can sync a folder.
  for (const auto& [error, expected] : {std::pair{EIO, 0}, {EINVAL, 1}}) {
    int failed = 0;
    int ignored = 0;
    has_happened_ = true;
    for (int number = 1; has_happened_; ++number) {
      const ProcessResult result = run({"backup", "-x", db_, copy}, {"sync", error}, number);
      EXPECT_EQ(fs::exists(copy), result.exit_status == 0) << result.err;
      if (result.exit_status != 0) ++failed;
      if (result.exit_status == 0 && has_happened_) ++ignored;
      fs::remove(copy);
    }
    EXPECT_GT(failed, 0);
    EXPECT_EQ(ignored, expected);
  }
}

TEST_F(ToolCall, AnExportThatCantBeReadToItsEndIsNotLoaded) {
  const std::string file = folder_.file("rows.csv");
  std::string rows = "time,interval,a:.ValueIntAvg\n";
  for (int i = 2; i < 20'000; ++i) rows += std::to_string(300 * i) + ",5,1\n";
  write_file(file, rows);
  for (int number = 1; number <= 3; ++number) {
    const ProcessResult result = run({"load", "-x", db_, "-d", "/d", file}, {"read", EIO}, number);
    EXPECT_EQ(result.exit_status, 1);
    // The target's SQLite reads by this call, too.
    if (is_emulated() && result.err == "trendtool: " + db_ + ": disk I/O error\n") continue;
    EXPECT_EQ(result.err, "trendtool: " + file + ": Input/output error\n");
  }
  EXPECT_THAT(run_tool("trendtool", {"export", "-x", db_, "-d", "/d", "--epoch"}).out,
              EndsWith("\n300,5,1\n"));
}

TEST_F(ToolCall, APictureSurvivesInterruptedCallsAndNoOthers) {
  if (is_emulated()) GTEST_SKIP() << "the shell can't load a library of the target";
  const std::string program = folder_.file("gnuplot");
  write_file(program, "#!/bin/sh\nunset LD_PRELOAD\nexec cat\n");
  fs::permissions(program, fs::perms::owner_all);
  const Environment path = {{"PATH", folder_.path().string() + ":" + std::getenv("PATH")}};
  const std::vector<std::string> words = {"plot", "-x", db_, "-d", "/d", "-u"};
  const std::string script = run_tool("trendtool", words, "", path).out;
  EXPECT_THAT(script, EndsWith("unset multiplot\n"));
  for (const char* call : {"poll", "read", "write", "wait"}) {
    const ProcessResult result = run(words, {call, EINTR}, 1, path);
    EXPECT_EQ(result.exit_status, 0) << call << result.err;
    EXPECT_EQ(result.out, script) << call;
  }
  EXPECT_EQ(run(words, {"write", EAGAIN}, 1, path).exit_status, 0);
  EXPECT_EQ(run(words, {"write", 0}, 1, path).out, script);
  const std::pair<const char*, std::string> cases[] = {
      {"pipe", "can't make a pipe to gnuplot: Input/output error"},
      {"poll", "can't exchange data with gnuplot: Input/output error"},
      {"read", "gnuplot has drawn nothing: it does not say why"},
      {"write", "gnuplot has drawn nothing: it does not say why"},
      {"wait", "can't wait for gnuplot: Input/output error"}};
  for (const auto& [call, message] : cases) {
    const ProcessResult result = run(words, {call, EIO}, 1, path);
    EXPECT_EQ(result.exit_status, 1) << call;
    EXPECT_EQ(result.out, "") << call;
    EXPECT_EQ(result.err, "trendtool: " + message + "\n");
  }
  for (const int number : {2, 3}) {
    EXPECT_EQ(run(words, {"pipe", EMFILE}, number, path).err,
              "trendtool: can't make a pipe to gnuplot: Too many open files\n");
  }
}

TEST_F(ToolCall, ASpreadsheetIsWholeOrNotThere) {
  const std::string file = folder_.file("out.xlsx");
  const std::vector<std::string> words = {"export",   "-x",   db_,  "-d", "/d",
                                          "--format", "xlsx", "-f", file};
  if (run_tool("trendtool", words).exit_status == 2)
    GTEST_SKIP() << "this build has no spreadsheets";
  fs::remove(file);
  int failed = 0;
  for (int number = 1; has_happened_; ++number) {
    const ProcessResult result = run(words, {"open", EMFILE, true}, number);
    EXPECT_EQ(result.exit_status == 0, fs::remove(file)) << number;
    if (result.exit_status == 0) continue;
    ++failed;
    EXPECT_EQ(result.exit_status, 1) << number;
    // The library of spreadsheets may write lines of its own before.
    EXPECT_THAT(result.err, HasSubstr("trendtool: can't ")) << number;
  }
  EXPECT_GT(failed, 0);
}

}  // namespace
