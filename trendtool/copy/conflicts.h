// Rows that are recorded with other values.
#pragma once

#include <cstddef>
#include <cstdint>
#include <ctime>
#include <string>
#include <vector>

#include "trendtool/common/iso_time.h"

/// The conflicts of one series. The first of them are named on standard error, the others are
/// counted.
class Conflicts {
 public:
  /// `series` names the series in messages.
  Conflicts(std::string series, bool use_utc) : series_(std::move(series)), clock_(use_utc) {}

  /// Notes that the row at `time` can't be copied.
  void add(std::time_t time, const std::string& reason);
  /// Forgets what was noted since the last `print`.
  void drop();
  /// Prints what was noted.
  void print();
  /// Says how many were not printed.
  void finish() const;

  /// How many conflicts there are, with those that were noted.
  [[nodiscard]] std::uint64_t count() const { return printed_ + noted_; }

 private:
  std::string series_;
  IsoClock clock_;
  std::vector<std::string> texts_;  ///< of the first that were noted
  std::uint64_t noted_ = 0;
  std::uint64_t printed_ = 0;  ///< or counted instead
};
