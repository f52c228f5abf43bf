// Programs that use an archive, while calls that talk to the server fail: an answer is whole or
// refused, and what is said to be recorded is.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "tests/support/archive_server.h"
#include "tests/support/failing_call.h"
#include "tests/support/log_content.h"

namespace {

/// Two failures are not among them, as libpq then waits for what never comes. After a failed `send`
/// it waits for the server to end the connection, which it does if there really is a failure. And
/// where memory is lacking just when the end of a pipeline arrives, it does not take note of that.
const FailingCall FAILURES[] = {
    {"connect", ECONNREFUSED}, {"connect", EACCES, true},
    {"poll", EINTR},           {"poll", ENOMEM},
    {"poll", ENOMEM, true},    {"send", EINTR},
    {"send", EAGAIN},          {"send", 0},
    {"send", 0, true},         {"recv", EINTR},
    {"recv", ECONNRESET},      {"recv", EIO, true},
    {"recv", EAGAIN},          {"recv", 0},
    {"recv", 0, true},
};

constexpr int ROWS = 3000;

/// The rows of a load.
std::string make_csv(int rows) {
  std::string text = "Date,Time,level:.ValueIntMin,level:.ValueIntMax,state:Value\n";
  for (int i = 0; i < rows; ++i) {
    char line[80];
    std::snprintf(line, sizeof line, "2001-%02d-%02d,%02d:%02d,%d.5,2.5,1\n", 1 + i / 24 / 60 / 28,
                  1 + i / 24 / 60 % 28, i / 60 % 24, i % 60, i);
    text += line;
  }
  return text;
}

class ArchiveCallFault : public testing::Test {
 protected:
  ArchiveCallFault() {
    const ProcessResult result = run("trendtool", load_arguments(url_), make_csv(ROWS));
    EXPECT_EQ(result.exit_status, 0) << result.err;
  }

  static std::vector<std::string> load_arguments(const std::string& url) {
    return {"load", "-x", url, "-d", "/plant", "-i", "1", "-u"};
  }

  static ProcessResult run(const std::string& program, const std::vector<std::string>& arguments,
                           const std::string& input = "") {
    return run_tool(program, arguments, input, {{"TZ", "UTC0"}});
  }

  /// Runs a program once for each call that fails, and lets `look` see the results.
  void for_each_failure(const std::string& program,
                        const std::function<std::vector<std::string>()>& make_arguments,
                        const std::string& input,
                        const std::function<void(const ProcessResult&)>& look) const {
    const std::string mark = folder_.file("mark");
    for (const FailingCall& failing : FAILURES) {
      bool has_happened = true;
      // Usually, the first calls fail, and then fewer and fewer.
      for (int number = 1; has_happened && !HasFatalFailure();
           number += is_long_run() ? 1 : 1 + number * FAULT_STEP / 8) {
        SCOPED_TRACE(std::string(failing.call) + ' ' + std::to_string(number) + ", error " +
                     std::to_string(failing.error) + (failing.lasts ? ", lasting" : ""));
        std::filesystem::remove(mark);
        // A program that hangs ends by this signal.
        const auto start = [] { alarm(60); };
        const ProcessResult result = run_tool(program, make_arguments(), input,
                                              make_environment(failing, number, mark), start);
        has_happened = std::filesystem::exists(mark);
        ASSERT_LE(result.exit_status, 2) << result.err;
        look(result);
      }
    }
  }

  void expect_whole_answers(const std::string& program, const std::vector<std::string>& arguments) {
    const ProcessResult right = run(program, arguments);
    ASSERT_EQ(right.err, "");
    for_each_failure(
        program, [&] { return arguments; }, "",
        [&](const ProcessResult& result) {
          if (result.exit_status == 0) {
            ASSERT_EQ(result.out, right.out);
          } else {
            ASSERT_EQ(result.out, right.out.substr(0, result.out.size()));
          }
        });
  }

  const std::string url_ = server().make_archive();
  const TemporaryFolder folder_;
};

TEST_F(ArchiveCallFault, ADumpIsRightAsFarAsItGoes) {
  expect_whole_answers("trendcsv", {"-x", url_, "-d", "/plant", "-u"});
}

TEST_F(ArchiveCallFault, AListIsWholeOrRefused) {
  expect_whole_answers("trendtool", {"list", "-x", url_});
}

TEST_F(ArchiveCallFault, ALoadIsToldAsItIs) {
  const LogContent whole = read_content(url_);
  std::string url = server().make_archive();
  const LogContent nothing = read_content(url);
  for_each_failure(
      "trendtool", [&] { return load_arguments(url); }, make_csv(ROWS),
      [&](const ProcessResult& result) {
        const LogContent content = read_content(url);
        const bool is_in_doubt = result.err.find("in doubt") != std::string::npos;
        ASSERT_TRUE(content == whole || (result.exit_status != 0 && content == nothing))
            << result.err;
        ASSERT_TRUE(content == nothing || result.exit_status == 0 || is_in_doubt) << result.err;
        if (content != nothing) {
          url = server().make_archive();
        }
      });
}

}  // namespace
