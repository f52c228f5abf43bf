// Rows of one series in memory, in order of time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <span>
#include <vector>

#include "libtrend/sqlite/block.h"

namespace toolkit::trend {

/// Collects the rows of one series, no two of one time. They may be added in any order; adding them
/// by ascending or by descending time is cheap.
class RowBuffer {
  struct Entry {
    std::int64_t time;
    std::size_t row;  ///< counted in the order in which rows were added
  };

 public:
  [[nodiscard]] bool empty() const { return order_.empty(); }
  [[nodiscard]] std::size_t size() const { return order_.size(); }
  /// How many slots the widest row that was added has, up to its last value.
  [[nodiscard]] std::size_t slots() const { return slots_; }
  /// About how many bytes of memory all rows take.
  [[nodiscard]] std::size_t bytes() const {
    return values_.size() * sizeof(double) + size() * (sizeof(Entry) + sizeof(double));
  }
  /// The times of the first and the last row; there must be one.
  [[nodiscard]] std::int64_t first_time() const { return order_.front().time; }
  [[nodiscard]] std::int64_t last_time() const { return order_.back().time; }
  [[nodiscard]] bool contains(std::int64_t time) const;
  /// Whether the last row added is the first in time of several.
  [[nodiscard]] bool is_descending() const { return size() > 1 && is_descending_; }
  /// Whether many rows were added in no order of time.
  [[nodiscard]] bool is_shuffled() const { return inner_ > size() / 4; }

  /// Adds a row. `slots` may be fewer or more than those of the rows before; a NaN, or a slot after
  /// the last, is a missing value.
  void add(std::int64_t time, double valid_ratio, std::span<const double> slots);

  /// Returns the time, the share of valid data and the values of the row at `place`, counted in
  /// order of time from 0. The values are as many as `slots`.
  [[nodiscard]] std::int64_t time(std::size_t place) const { return order_[place].time; }
  [[nodiscard]] double valid_ratio(std::size_t place) const {
    return valid_ratios_[order_[place].row];
  }
  [[nodiscard]] std::span<const double> values(std::size_t place) const {
    return std::span(values_).subspan(order_[place].row * slots_, slots_);
  }

  /// Returns a copy of `count` rows from `place` on, column by column.
  [[nodiscard]] BlockRows copy(std::size_t place, std::size_t count) const;
  /// Removes `count` rows from `place` on.
  void remove(std::size_t place, std::size_t count);
  /// Removes all rows. Keeps a little memory for the next ones.
  void clear();

 private:
  void widen(std::size_t slots);

  std::deque<Entry> order_;  ///< by time
  std::vector<double> valid_ratios_;
  std::vector<double> values_;  ///< row after row, each of `slots_` values
  std::size_t slots_ = 0;
  std::size_t inner_ = 0;  ///< rows added between others
  bool is_descending_ = false;
};

/// Returns `slots` without the missing values at its end.
[[nodiscard]] std::span<const double> trim(std::span<const double> slots);

}  // namespace toolkit::trend
