#include "trendtool/common/interrupts.h"

#include <csignal>
#include <initializer_list>

namespace {

/// The signal that came, 0 for none.
volatile std::sig_atomic_t signal_number = 0;

void note_signal(int number) { signal_number = number; }

}  // namespace

void note_interrupts() {
  signal_number = 0;
  for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
    if (std::signal(number, note_signal) == SIG_IGN) std::signal(number, SIG_IGN);
  }
}

bool is_interrupted() { return signal_number != 0; }

void end_if_interrupted() {
  const int number = signal_number;
  if (number == 0) return;
  std::signal(number, SIG_DFL);
  std::raise(number);
}
