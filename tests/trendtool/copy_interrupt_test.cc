// trendtool copy, killed, interrupted, and run twice at once.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <thread>

#include "tests/support/log_content.h"
#include "tests/support/model.h"
#include "tests/trendtool/copy_fixture.h"

namespace {

using testing::HasSubstr;
using testing::StartsWith;

/// Sends a signal to this process after so many microseconds, also after `exec`, if it still runs.
std::function<void()> alarm_with(int number, unsigned microseconds) {
  return [=] {
    const pid_t program = getpid();
    if (fork() != 0) return;
    usleep(microseconds);
    if (getppid() == program) kill(program, number);
    _exit(0);
  };
}

/// A database with enough rows that copying takes a while, and several transactions.
class LongCopy : public TrendtoolCopy {
 protected:
  LongCopy() {
    for (const char* device : {"a", "b", "c", "d", "e"}) {
      append_rows(from_, device, 1, make_rows(60, 60, 8000));
    }
    append_rows(from_, "f", 1, make_rows(60, 60, is_emulated() ? 40'000 : 120'000));
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(copy().exit_status, 0);
    const std::chrono::duration<double, std::micro> took = std::chrono::steady_clock::now() - start;
    duration_ = static_cast<std::uint32_t>(took.count());
    std::filesystem::remove(to_);
  }

  std::uint32_t duration_ = 0;  ///< of a copy, in microseconds
};

TEST_F(LongCopy, CanBeKilledAtAnyTime) {
  Random random(3);
  int killed = 0;
  for (int round = random_rounds(12, 3); round > 0; --round) {
    const ProcessResult result = copy({}, alarm_with(SIGKILL, pick(random, duration_)));
    if (result.exit_status == 0) std::filesystem::remove(to_);
    killed += result.exit_status == 128 + SIGKILL ? 1 : 0;
    if (!std::filesystem::exists(to_)) continue;
    const ProcessResult check = run_tool("trendtool", {"check", "-x", to_});
    EXPECT_THAT(check.out, testing::Not(HasSubstr("damaged")));
    // Each series has the first of its rows, or all.
    const LogContent whole = read_content(from_);
    for (const auto& [path, device] : read_content(to_).devices) {
      for (const auto& [minutes, series] : device.series) {
        const auto& rows = whole.devices.at(path).series.at(minutes).rows;
        EXPECT_TRUE(std::equal(series.rows.begin(), series.rows.end(), rows.begin()));
      }
    }
  }
  EXPECT_GT(killed, 0);
  copy_surely();
  EXPECT_EQ(read_content(to_), read_content(from_));
}

TEST_F(LongCopy, EndsBetweenTwoTransactionsWhenItIsInterrupted) {
  Random random(4);
  int interrupted = 0;
  for (int round = random_rounds(8, 2); round > 0; --round) {
    const int number = pick(random, 2) == 0 ? SIGINT : SIGTERM;
    const ProcessResult result = copy({}, alarm_with(number, pick(random, duration_)));
    if (result.exit_status == 128 + number && !result.err.empty()) {
      ++interrupted;
      EXPECT_THAT(result.out, StartsWith("devices: 6, series: "));
      EXPECT_EQ(result.err, "trendtool: interrupted; the next copy goes on from here\n");
      EXPECT_EQ(run_tool("trendtool", {"check", "-x", to_}).out, "");
    } else {
      // The signal came before the copy, or after it.
      if (!result.out.empty()) {
        EXPECT_EQ(read_content(to_), read_content(from_));
      }
      std::filesystem::remove(to_);
    }
  }
  EXPECT_GT(interrupted, 0);
  copy_surely();
  EXPECT_EQ(read_content(to_), read_content(from_));
}

TEST_F(LongCopy, WorksTwiceAtTheSameTime) {
  ProcessResult other;
  std::thread thread([&] { other = copy(); });
  const ProcessResult result = copy();
  thread.join();
  EXPECT_EQ(result.exit_status, 0) << result.err;
  EXPECT_EQ(other.exit_status, 0) << other.err;
  EXPECT_EQ(run_tool("trendtool", {"check", "-x", to_}).exit_status, 0);
  EXPECT_EQ(read_content(to_), read_content(from_));
}

}  // namespace
