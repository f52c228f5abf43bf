// The programs, while one call of the system after the other fails: an answer is whole or refused,
// and what is said to be recorded is.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <iterator>
#include <map>
#include <string>
#include <vector>

#include "tests/support/failing_call.h"
#include "tests/support/log_content.h"
#include "tests/support/process.h"
#include "tests/support/small_databases.h"

namespace {

/// A way to fail.
struct Kind {
  const char* name;
  FailingCall failing;
  bool is_slow = false;  ///< SQLite then waits for seconds
};

const Kind KINDS[] = {
    {"Open", {"open", EMFILE}},
    {"OpenAndLater", {"open", EMFILE, true}},
    {"Read", {"pread", EIO}},
    {"ReadAndLater", {"pread", EIO, true}},
    {"ReadInterrupted", {"pread", EINTR}},
    {"ReadHalf", {"pread", 0}},
    {"ReadStream", {"read", EIO}},
    {"ReadStreamInterrupted", {"read", EINTR}},
    {"ReadStreamHalf", {"read", 0}},
    {"Write", {"pwrite", EIO}},
    {"WriteAndLater", {"pwrite", EIO, true}},
    {"FullDisk", {"pwrite", ENOSPC}},
    {"FullDiskAndLater", {"pwrite", ENOSPC, true}},
    {"WriteInterrupted", {"pwrite", EINTR}},
    {"WriteHalf", {"pwrite", 0}},
    {"WriteStream", {"write", EIO}},
    {"WriteStreamFull", {"write", ENOSPC, true}},
    {"WriteStreamInterrupted", {"write", EINTR}},
    {"WriteStreamHalf", {"write", 0}},
    {"Sync", {"sync", EIO}},
    {"SyncAndLater", {"sync", EIO, true}},
    {"Truncate", {"truncate", EIO, true}},
    {"Lock", {"lock", EIO}},
    {"LockHeld", {"lock", EAGAIN}},
    {"LockInterrupted", {"lock", EINTR}},
    {"Unlock", {"unlock", EIO}, true},
    {"Stat", {"stat", EIO}},
    {"StatAndLater", {"stat", EIO, true}},
    {"Unlink", {"unlink", EIO, true}},
    {"Rename", {"link", EIO, true}},
    {"MapMemory", {"mmap", ENOMEM, true}},
    {"Memory", {"malloc", ENOMEM}},
    {"MemoryAndLater", {"malloc", ENOMEM, true}},
};

/// The rows of a load.
std::string make_csv(int rows) {
  std::string text =
      "Date,Time,level:.ValueIntMin,level:.ValueIntMax,level:.ValueIntAvg,state:Value\n";
  for (int i = 0; i < rows; ++i) {
    char line[80];
    std::snprintf(line, sizeof line, "2001-02-%02d,%02d:%02d,1.5,2.5,%d,1\n", 1 + i / 288,
                  i / 12 % 24, i % 12 * 5, i);
    text += line;
  }
  return text;
}

class ProgramFault : public testing::Test {
 protected:
  /// A program and what it is given.
  struct Command {
    std::string program;
    std::vector<std::string> arguments;
    std::string input;
  };

  /// Makes the database of this state at `path`.
  static void make(const std::string& state, const std::string& path) {
    static std::map<std::string, std::string> made;
    std::string& content = made[state];
    if (content.empty()) {
      const TemporaryFolder folder;
      small_database(state).make(folder.file("trend.db"));
      content = read_file(folder.file("trend.db"));
    }
    write_file(path, content);
  }

  /// Runs a program without a fault.
  ProcessResult run(const Command& command) const {
    return run_tool(command.program, command.arguments, command.input, {{"TZ", "UTC0"}},
                    enter(folder_.path()));
  }

  /// Runs a program in which a call fails. Sets `has_happened` to whether there were so many calls.
  ProcessResult run(const Command& command, const Kind& kind, int number,
                    bool& has_happened) const {
    const std::string mark = folder_.file("mark");
    std::filesystem::remove(mark);
    const auto start = [&] {
      enter(folder_.path())();
      // A program that hangs ends by this signal.
      alarm(60);
    };
    const ProcessResult result = run_tool(command.program, command.arguments, command.input,
                                          make_environment(kind.failing, number, mark), start);
    has_happened = std::filesystem::exists(mark);
    return result;
  }

  /// Whether a program that failed has written a message. What a check finds is its output.
  static bool says_why(const ProcessResult& result, const Command& command) {
    if (result.err.empty()) return command.arguments[0] == "check" && !result.out.empty();
    return result.err.starts_with("Error") || result.err.starts_with("trendtool: ");
  }

  /// Lets `command` meet each fault in each number in turn. `prepare` runs before each, and `look`
  /// after it with the result.
  template <typename Prepare, typename Look>
  void for_each_fault(const Command& command, const Prepare& prepare, const Look& look) {
    // Where programs start slowly, each command meets some of the kinds: which ones depends on it.
    const std::size_t step = is_long_run() ? 1 : KIND_STEP;
    for (std::size_t i = command.arguments[0].size() % step; i < std::size(KINDS); i += step) {
      const Kind& kind = KINDS[i];
      if (kind.is_slow && !is_long_run()) continue;
      // Usually, the first calls fail, and then fewer and fewer.
      bool has_happened = true;
      for (int number = 1; has_happened && !HasFatalFailure();
           number += is_long_run() ? 1 : 1 + number * FAULT_STEP / 8) {
        SCOPED_TRACE(std::string(kind.name) + ", call " + std::to_string(number));
        prepare();
        const ProcessResult result = run(command, kind, number, has_happened);
        ASSERT_LE(result.exit_status, 2) << result.err;
        ASSERT_TRUE(result.exit_status == 0 || says_why(result, command)) << result.err;
        look(result);
      }
    }
  }

  /// Expects `command` to write the same as without a fault, or to fail.
  void expect_whole_answers(const Command& command) {
    make("Sealed", folder_.file("trend.db"));
    right_ = run(command);
    ASSERT_EQ(right_.exit_status, 0) << right_.err;
    for_each_fault(
        command, [] {},
        [&](const ProcessResult& result) {
          if (result.exit_status == 0) {
            ASSERT_EQ(result.out, right_.out);
            ASSERT_EQ(result.err, right_.err);
          }
        });
    EXPECT_EQ(run(command).out, right_.out);
  }

  /// Expects `command` to change the database of this state as without a fault, or not at all.
  void expect_truth(const std::string& state, const Command& command) {
    const std::string path = folder_.file("trend.db");
    const auto prepare = [&] {
      for (const char* end : {"", "-wal", "-shm"}) std::filesystem::remove(path + end);
      make(state, path);
    };
    prepare();
    const LogContent before = read_content(path);
    ASSERT_EQ(run(command).exit_status, 0);
    const LogContent after = read_content(path);
    for_each_fault(command, prepare, [&](const ProcessResult& result) {
      const LogContent content = read_content(path);
      // What was done stays, also if the result can't be printed.
      const bool is_unprinted = result.err.find("standard output") != std::string::npos;
      if (result.exit_status == 0 || is_unprinted) {
        ASSERT_TRUE(content == after) << result.err;
      } else if (result.err.find("in doubt") != std::string::npos) {
        ASSERT_TRUE(content == before || content == after);
      } else {
        ASSERT_TRUE(content == before) << result.err;
      }
    });
  }

  TemporaryFolder folder_;
  ProcessResult right_;  ///< without a fault
};

TEST_F(ProgramFault, ADumpIsWholeOrRefused) {
  expect_whole_answers({"trendcsv", {"-x", "trend.db", "-d", "/two", "-m", "560", "-c", "50"}, ""});
}

TEST_F(ProgramFault, AListIsWholeOrRefused) {
  expect_whole_answers({"trendtool", {"list", "-x", "trend.db", "-d", "/two"}, ""});
}

TEST_F(ProgramFault, AnExportIsWholeOrRefused) {
  expect_whole_answers({"trendtool", {"export", "-x", "trend.db", "--all-devices"}, ""});
}

TEST_F(ProgramFault, ACheckIsTrueOrRefused) {
  expect_whole_answers({"trendtool", {"check", "-x", "trend.db"}, ""});
}

TEST_F(ProgramFault, ALoadIsToldAsItIs) {
  expect_truth(
      "Loose",
      {"trendtool", {"load", "-x", "trend.db", "-d", "/two", "-i", "5", "-u"}, make_csv(5)});
}

TEST_F(ProgramFault, ALoadThatSealsIsToldAsItIs) {
  expect_truth(
      "Loose",
      {"trendtool", {"load", "-x", "trend.db", "-d", "/two", "-i", "5", "-u"}, make_csv(600)});
}

TEST_F(ProgramFault, AnUpgradeIsToldAsItIs) {
  expect_truth(
      "Version1",
      {"trendtool", {"load", "-x", "trend.db", "-d", "/two", "-i", "5", "-u"}, make_csv(5)});
}

TEST_F(ProgramFault, APurgeIsToldAsItIs) {
  expect_truth("Sealed", {"trendtool",
                          {"purge", "-x", "trend.db", "-d", "/two", "-i", "5", "--before",
                           "1970-01-01T05:00", "-u"},
                          ""});
}

TEST_F(ProgramFault, ABackupIsWholeOrNotThere) {
  const std::string copy = folder_.file("copy.db");
  make("Sealed", folder_.file("trend.db"));
  const LogContent whole = read_content(folder_.file("trend.db"));
  for_each_fault(
      {"trendtool", {"backup", "-x", "trend.db", "copy.db"}, ""},
      [&] { std::filesystem::remove(copy); },
      [&](const ProcessResult& result) {
        ASSERT_EQ(result.exit_status == 0, std::filesystem::exists(copy)) << result.err;
        ASSERT_TRUE(result.exit_status != 0 || read_content(copy) == whole);
      });
}

TEST_F(ProgramFault, ACopyGoesOnWhereItFailed) {
  const Command command = {"trendtool", {"copy", "from.db", "copy.db"}, ""};
  const std::string path = folder_.file("copy.db");
  make("Sealed", folder_.file("from.db"));
  const LogContent whole = read_content(folder_.file("from.db"));
  const auto prepare = [&] {
    for (const char* end : {"", "-wal", "-shm"}) std::filesystem::remove(path + end);
  };
  for_each_fault(command, prepare, [&](const ProcessResult& result) {
    if (result.exit_status != 0 && std::filesystem::exists(path)) {
      ASSERT_TRUE(is_part(read_content(path), whole));
    }
    if (result.exit_status != 0) {
      ASSERT_EQ(run(command).exit_status, 0);
    }
    ASSERT_TRUE(read_content(path) == whole);
  });
}

}  // namespace
