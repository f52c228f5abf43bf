#include "trendtool/common/interrupts.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>
#include <ctime>

namespace {

TEST(Interrupts, AreNoted) {
  for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
    note_interrupts();
    EXPECT_FALSE(is_interrupted());
    end_if_interrupted();
    std::raise(number);
    EXPECT_TRUE(is_interrupted());
    std::signal(number, SIG_DFL);
  }
}

TEST(Interrupts, DoNotCountWhereTheyAreIgnored) {
  std::signal(SIGHUP, SIG_IGN);
  note_interrupts();
  std::raise(SIGHUP);
  EXPECT_FALSE(is_interrupted());
  EXPECT_EQ(std::signal(SIGHUP, SIG_DFL), SIG_IGN);
}

TEST(Interrupts, EndTheProgramByTheirSignal) {
  const auto end = [] {
    note_interrupts();
    std::raise(SIGTERM);
    end_if_interrupted();
  };
  EXPECT_EXIT(end(), testing::KilledBySignal(SIGTERM), "");
  // Here the signal is held back, so that this program goes on.
  note_interrupts();
  std::raise(SIGTERM);
  sigset_t signals;
  sigset_t before;
  sigemptyset(&signals);
  sigaddset(&signals, SIGTERM);
  sigprocmask(SIG_BLOCK, &signals, &before);
  end_if_interrupted();
  const timespec no_time = {};
  EXPECT_EQ(sigtimedwait(&signals, nullptr, &no_time), SIGTERM);
  sigprocmask(SIG_SETMASK, &before, nullptr);
}

}  // namespace
