// What can still be read of a series in a damaged database.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "libtrend/records.h"
#include "libtrend/sqlite/block.h"
#include "libtrend/sqlite/block_table.h"
#include "libtrend/sqlite/id_walk.h"
#include "libtrend/sqlite/loose_rows.h"
#include "libtrend/sqlite/series_state.h"
#include "libtrend/sqlite/statement.h"

namespace toolkit::trend {

/// The rows of a series that can be read.
struct Remains {
  std::vector<std::int64_t> loose;   ///< the times of loose rows
  std::vector<std::int64_t> blocks;  ///< the last times of blocks
};

/// Finds the remains of series on one connection, which must outlive it. A database without any
/// damage remains as a whole.
class RemainsFinder {
 public:
  /// Is called with the times at which rows may be lost, and the reason.
  using Lose = std::function<void(CTimeRange, const std::string&)>;
  /// Is called with each block that can be read, but for its columns.
  using TakeBlock = std::function<void(const BlockHead&, const BlockLayout&)>;
  /// Is called again and again with the number of rows since the last call. Returns whether to go
  /// on.
  using Tick = std::function<bool(std::uint64_t)>;

  /// `version` is that of the database's format.
  RemainsFinder(sqlite3* db, std::int64_t version);
  /// Whether the tables are there.
  explicit operator bool() const;

  /// Finds the remains of `series`. Returns nothing if `tick` ended the search.
  [[nodiscard]] std::optional<Remains> find(const CSeries& series, const Lose& lose,
                                            const TakeBlock& take_block, const Tick& tick);

 private:
  struct Search;

  void find_state(Search& search);
  bool find_loose(Search& search);
  bool find_blocks(Search& search);
  bool read_loose_row(const Search& search, std::int64_t id, std::string& reason);
  void drop_repeated(const BlockLayout& layout, Search& search);

  bool has_blocks_;
  IdWalk row_ids_;
  IdWalk block_ids_;
  Statement row_;
  BlockTable blocks_;
  SeriesStates states_;
};

}  // namespace toolkit::trend
