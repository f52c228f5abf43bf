// The rows of one series that are in blocks.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "libtrend/query/engine.h"
#include "libtrend/sqlite/block.h"
#include "libtrend/sqlite/block_table.h"
#include "libtrend/sqlite/block_values.h"
#include "libtrend/sqlite/series_state.h"

namespace toolkit::trend {

/// Blocks of a damaged series that can be read, for a walk that leaves out all others.
struct RemainingBlocks {
  std::vector<std::int64_t> ends;  ///< their last times, in order
  /// Is called if the values of the slot with an index in the list of wanted ones are damaged in a
  /// block. They are then missing values.
  std::function<void(const BlockHead&, std::size_t)> lose_values;
};

/// The blocks of one series: the block that was looked at last, and the way to others. What it
/// knows holds for as long as the database does not change.
class BlockChain {
 public:
  /// `state` is that of the series. All must outlive the chain; a failure leaves the reason in
  /// `error`.
  BlockChain(BlockTable& table, const SeriesState& state, std::string& error)
      : table_(table), state_(state), error_(error) {}
  /// The chain of `remaining` blocks alone. `state` has the series, and the first and the last of
  /// these blocks.
  BlockChain(BlockTable& table, const SeriesState& state, const RemainingBlocks& remaining,
             std::string& error)
      : table_(table), state_(state), remaining_(&remaining), error_(error) {}

  /// Goes to the first block that ends at `time` or later. `is_found` tells whether there is one.
  /// Returns false on failure, which a block that should be there and is not is as well.
  [[nodiscard]] bool find(std::int64_t time, bool& is_found);
  /// Goes to the next or the previous block; `is_found` tells whether there is one.
  [[nodiscard]] bool go_on(bool ascending, bool& is_found);
  /// Goes to the last block; `is_found` tells whether there is one.
  [[nodiscard]] bool go_to_last(bool& is_found);

  /// Sets `timestamp` to the time of the last row before `time`, or to NO_ROW. The current block
  /// stays the same. Returns false on failure.
  [[nodiscard]] bool find_before(std::int64_t time, std::int64_t& timestamp);

  [[nodiscard]] const BlockHead& head() const { return head_; }
  /// The layout of the current block. Returns null on failure.
  [[nodiscard]] const BlockLayout* layout();
  /// Decodes the values of `slots` of the current block. Returns null on failure.
  [[nodiscard]] const BlockValues* values(const std::vector<std::uint32_t>& slots);

 private:
  [[nodiscard]] bool has_at(std::int64_t time) const {
    return has_head_ && head_.previous < time && time <= head_.last_time;
  }
  bool go_to(std::int64_t last_time);
  bool go_to_first_from(std::int64_t time);
  bool take(BlockTable::Result result);
  bool has_right_sum();
  bool expect(bool is_right);

  static constexpr std::int64_t UNKNOWN = -1;

  BlockTable& table_;
  const SeriesState& state_;
  const RemainingBlocks* remaining_ = nullptr;  ///< null where all blocks have to be there
  std::string& error_;
  BlockHead head_;
  bool has_head_ = false;
  /// The rows of the blocks from the first to the current one, if a walk has passed all of these.
  std::int64_t rows_from_first_ = UNKNOWN;
  std::int64_t rows_to_last_ = UNKNOWN;  ///< likewise, from the current to the last one
  BlockLayout layout_;
  bool has_layout_ = false;
  BlockValues values_;
};

/// A cursor over the rows that are in blocks.
class BlockCursor : public SeriesCursor {
 public:
  /// Nobody else uses `chain` while the cursor does.
  BlockCursor(BlockChain& chain, const std::vector<CParamProperties>& params, bool ascending);

  [[nodiscard]] bool place(std::int64_t earliest, std::int64_t latest) override;
  [[nodiscard]] bool advance() override;
  [[nodiscard]] bool pass(std::uint64_t count) override;
  /// Skips rows like `pass`, but none from `bound` on in the direction of the walk. Takes the rows
  /// skipped off `count`.
  [[nodiscard]] bool pass_before(std::int64_t bound, std::uint64_t& count);
  [[nodiscard]] bool decode(CSnapshot& row) override;
  [[nodiscard]] bool find_before(std::int64_t time, std::int64_t& timestamp) override {
    return chain_.find_before(time, timestamp);
  }

 private:
  /// A value of a row.
  struct Place {
    std::uint32_t sample;
    double CSample::*member;
  };

  bool place_in_block(std::int64_t time);
  void enter_block();
  bool leave_block();
  bool load_times();
  void set_timestamp(std::int64_t time);
  [[nodiscard]] bool is_before(std::int64_t time, std::int64_t bound) const {
    return ascending_ ? time < bound : time > bound;
  }

  BlockChain& chain_;
  std::size_t sample_count_;          ///< of a row: one per parameter
  std::vector<Place> places_;         ///< where the wanted values of a row go
  std::vector<std::uint32_t> slots_;  ///< where they are stored
  bool ascending_;
  std::int64_t earliest_ = 1;
  std::int64_t latest_ = 0;
  std::size_t index_ = 0;                ///< of the current row in its block
  std::size_t left_ = 0;                 ///< rows of the block after the current one
  const BlockLayout* layout_ = nullptr;  ///< of the current block; null where it was not needed yet
  const BlockValues* values_ = nullptr;  ///< likewise
};

}  // namespace toolkit::trend
