#include "trendtool/common/progress.h"

#include <unistd.h>

#include <cstdio>

namespace {

/// Goes to the start of the line and removes what is on it.
constexpr const char* NEW_LINE = "\r\033[K";

}  // namespace

Progress::Progress(const char* program)
    : program_(program), is_terminal_(isatty(STDERR_FILENO) == 1) {}

void Progress::remove() {
  if (is_shown_) std::fputs(NEW_LINE, stderr);
  is_shown_ = false;
}

void Progress::show(std::uint64_t rows, double share, const char* unit) {
  if (!is_terminal_) return;
  const Clock::time_point now = Clock::now();
  if (now < next_) return;
  constexpr auto PAUSE = std::chrono::milliseconds(200);
  next_ = now + PAUSE;
  const double seconds = std::chrono::duration<double>(now - start_).count();
  std::fprintf(stderr, "%s%s: %llu %s", NEW_LINE, program_, static_cast<unsigned long long>(rows),
               unit);
  if (share >= 0) std::fprintf(stderr, ", %.0f %%", share * 100);
  std::fprintf(stderr, ", %.0f %s/s", static_cast<double>(rows) / seconds, unit);
  is_shown_ = true;
}
