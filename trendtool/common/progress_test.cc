#include "trendtool/common/progress.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pty.h>
#include <unistd.h>

#include <chrono>
#include <functional>
#include <string>
#include <thread>

namespace {

using testing::MatchesRegex;

// A carriage return and \033[K remove what is on the line.

/// Runs `work` while standard error is a terminal. Returns what that shows.
std::string show_at_terminal(const std::function<void()>& work) {
  int user_end = -1;
  int program_end = -1;
  EXPECT_EQ(openpty(&user_end, &program_end, nullptr, nullptr, nullptr), 0);
  const int before = dup(STDERR_FILENO);
  dup2(program_end, STDERR_FILENO);
  close(program_end);
  work();
  dup2(before, STDERR_FILENO);
  close(before);
  std::string shown;
  char text[256];
  for (ssize_t size = 0; (size = read(user_end, text, sizeof text)) > 0;) {
    shown.append(text, static_cast<std::size_t>(size));
  }
  close(user_end);
  return shown;
}

void wait_a_second() { std::this_thread::sleep_for(std::chrono::milliseconds(1100)); }

TEST(TestProgress, ShowsNothingInTheFirstSecond) {
  EXPECT_EQ(show_at_terminal([] { Progress().show(5, 0.5); }), "");
}

TEST(TestProgress, ShowsTheShareIfItIsKnown) {
  EXPECT_THAT(show_at_terminal([] {
                Progress progress;
                wait_a_second();
                progress.show(5, 0.5);
              }),
              MatchesRegex("\r\033\\[Ktrendtool: 5 rows, 50 %, [0-9] rows/s\r\033\\[K"));
  EXPECT_THAT(show_at_terminal([] {
                Progress progress("trendload");
                wait_a_second();
                progress.show(5, -1, "pages");
              }),
              MatchesRegex("\r\033\\[Ktrendload: 5 pages, [0-9] pages/s\r\033\\[K"));
}

TEST(TestProgress, IsRemovedOnce) {
  EXPECT_THAT(show_at_terminal([] {
                Progress progress;
                wait_a_second();
                progress.show(5, -1);
                progress.remove();
              }),
              MatchesRegex("\r\033\\[Ktrendtool: 5 rows, [0-9] rows/s\r\033\\[K"));
}

}  // namespace
