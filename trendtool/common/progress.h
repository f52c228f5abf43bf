// How far a long piece of work has come.
#pragma once

#include <chrono>
#include <cstdint>

/// Shows progress on one line of standard error, if that is a terminal and the work takes longer
/// than a second. The destructor removes the line.
class Progress {
 public:
  /// The line starts with `program`, which must outlive the object.
  explicit Progress(const char* program = "trendtool");
  ~Progress() { remove(); }
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

  /// Whether progress can be seen, so that it is worth finding out.
  [[nodiscard]] bool is_visible() const { return is_terminal_; }

  /// Notes that `rows` rows are done, which are the share `share` of the work, from 0 to 1; below 0
  /// if that is not known. May be called for every chunk of rows: it seldom prints. `unit` is the
  /// word for what is counted.
  void show(std::uint64_t rows, double share, const char* unit = "rows");

  /// Removes the line. To be called before a message is printed.
  void remove();

 private:
  using Clock = std::chrono::steady_clock;

  const char* program_;
  bool is_terminal_;
  bool is_shown_ = false;
  Clock::time_point start_ = Clock::now();
  Clock::time_point next_ = start_ + std::chrono::seconds(1);
};
