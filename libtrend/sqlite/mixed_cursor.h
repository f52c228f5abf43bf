// The rows of one series, in blocks and loose.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "libtrend/query/engine.h"
#include "libtrend/sqlite/block_cursor.h"

namespace toolkit::trend {

/// Merges the rows of one series that are stored in several ways. Two rows at one time are damage.
class MixedCursor : public SeriesCursor {
 public:
  /// `loose` are cursors over the rows that are not in `blocks`. A failure leaves the reason in
  /// `error`.
  MixedCursor(std::unique_ptr<BlockCursor> blocks, std::vector<std::unique_ptr<SeriesCursor>> loose,
              bool ascending, std::string& error);

  [[nodiscard]] bool place(std::int64_t earliest, std::int64_t latest) override;
  [[nodiscard]] bool advance() override;
  [[nodiscard]] bool pass(std::uint64_t count) override;
  [[nodiscard]] bool decode(CSnapshot& row) override;
  [[nodiscard]] bool find_before(std::int64_t time, std::int64_t& timestamp) override;

 private:
  bool choose();

  BlockCursor& blocks_;
  std::vector<std::unique_ptr<SeriesCursor>> cursors_;  ///< all of them
  bool ascending_;
  std::string& error_;
  SeriesCursor* next_ = nullptr;  ///< the one whose row is the current one
  std::int64_t bound_ = 0;        ///< no other cursor has a row before this time
};

}  // namespace toolkit::trend
