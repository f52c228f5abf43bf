// The values of some slots of a block.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "libtrend/sqlite/block.h"
#include "libtrend/sqlite/block_table.h"

namespace toolkit::trend {

/// Decodes the columns of one block that a query wants, once for all rows, and keeps the values
/// until others are wanted.
class BlockValues {
 public:
  /// Is called with the index in `slots` of a slot whose values are damaged.
  using Lose = std::function<void(std::size_t)>;

  /// Makes the values of `slots` of the block with `head` and `layout` be there. Does nothing where
  /// they are. Returns false on failure, with the reason in `error`. With `lose`, damaged values
  /// are not a failure: they become missing values.
  [[nodiscard]] bool load(BlockTable& table, const BlockHead& head, const BlockLayout& layout,
                          const std::vector<std::uint32_t>& slots, const Lose* lose,
                          std::string& error) {
    return (head.number == number_ && slots == slots_) ||
           read(table, head, layout, slots, lose, error);
  }

  /// Returns the values of row `index`, counted from 0: one per slot, in their order. A NaN is a
  /// missing value.
  [[nodiscard]] const double* row(std::size_t index) const {
    return values_.data() + index * slots_.size();
  }

 private:
  bool read(BlockTable& table, const BlockHead& head, const BlockLayout& layout,
            const std::vector<std::uint32_t>& slots, const Lose* lose, std::string& error);
  void read_one_by_one(BlockTable& table, const BlockHead& head, const BlockLayout& layout,
                       std::size_t first, std::size_t end, const Lose& lose);
  bool read_run(BlockTable& table, const BlockHead& head, const BlockLayout& layout,
                std::size_t first, std::size_t end, std::string& error);
  void transpose(std::size_t first, std::size_t columns, std::size_t rows);

  std::int64_t number_ = -1;  ///< of the block; -1 for none
  std::vector<std::uint32_t> slots_;
  std::vector<double> values_;        ///< row after row
  std::vector<unsigned char> bytes_;  ///< encoded columns
  std::vector<double> tile_;          ///< a few decoded columns, one after another
};

}  // namespace toolkit::trend
