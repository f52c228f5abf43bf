// The largest of many numbers that change one by one.
#pragma once

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <vector>

namespace toolkit::trend {

/// Numbers at the places from 0 on. A change, and each question, takes a time that grows with the
/// logarithm of how many there are.
class Tournament {
 public:
  static constexpr std::int64_t LEAST = std::numeric_limits<std::int64_t>::min();

  /// Starts with as many numbers as `count`, each of them LEAST.
  void start(std::size_t count) {
    size_ = std::bit_ceil(std::max<std::size_t>(count, 1));
    nodes_.assign(2 * size_, LEAST);
  }

  void set(std::size_t place, std::int64_t number) {
    std::size_t node = size_ + place;
    nodes_[node] = number;
    for (node /= 2; node > 0; node /= 2) {
      nodes_[node] = std::max(nodes_[2 * node], nodes_[2 * node + 1]);
    }
  }

  [[nodiscard]] std::int64_t largest() const { return nodes_[1]; }

  /// Returns the first place with the largest number.
  [[nodiscard]] std::size_t first_largest() const {
    std::size_t node = 1;
    while (node < size_) node = 2 * node + (nodes_[2 * node] == nodes_[node] ? 0 : 1);
    return node - size_;
  }

  /// Returns the largest number at the places before `place`; LEAST if there is none.
  [[nodiscard]] std::int64_t largest_before(std::size_t place) const {
    std::int64_t largest = LEAST;
    for (std::size_t node = size_ + place; node > 1; node /= 2) {
      // All places under the other half of a pair are before, if it is the left one.
      if (node % 2 == 1) largest = std::max(largest, nodes_[node - 1]);
    }
    return largest;
  }

 private:
  std::size_t size_ = 0;  ///< of the last level, a power of 2
  std::vector<std::int64_t>
      nodes_;  ///< of the two below node i, 2 i and 2 i + 1, the larger; from 1
};

}  // namespace toolkit::trend
