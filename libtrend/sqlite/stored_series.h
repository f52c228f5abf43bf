// What a database holds of one series, for its writer: loose rows, a chain of blocks, and the state
// that counts them.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "libtrend/sqlite/block_table.h"
#include "libtrend/sqlite/database_row.h"
#include "libtrend/sqlite/loose_rows.h"
#include "libtrend/sqlite/row_buffer.h"
#include "libtrend/sqlite/series_state.h"

namespace toolkit::trend {

/// The tables that recording writes, on one connection.
struct RecordTables {
  LooseRows loose;
  BlockTable blocks;
  SeriesStates states;
  DatabaseRow database;
  sqlite3* db = nullptr;
  std::int64_t segment_size = 0;  ///< of new blocks
  SeriesState last_stored;        ///< in this transaction; with 0 changes if there is none
  std::string error;              ///< why the last function that failed did

  /// Prepares all statements; false where SQLite refused one.
  [[nodiscard]] bool prepare(sqlite3* connection);
  /// Whether the transaction is still there. SQLite undoes it by itself after some errors.
  [[nodiscard]] bool is_in_transaction() const;
};

/// A part of the time of a series: the span of a block, or a gap before, between or after blocks.
struct Region {
  CTimeRange times;
  bool is_span = false;
  /// The block of the span, or the one after the gap; none after the last block.
  std::optional<BlockHead> block;
};

/// One series. What changes it is part of the transaction, which has to be undone after a failure,
/// and `store` has to be called before the end. Functions that return false have failed and leave
/// the reason in `RecordTables::error`.
class StoredSeries {
 public:
  StoredSeries(RecordTables& tables, std::int64_t id) : tables_(tables) { state_.series_id = id; }

  /// Makes the state of a new series.
  [[nodiscard]] bool create() { return tables_.states.add(state_, tables_.error); }
  /// Reads the state of a series that is there.
  [[nodiscard]] bool load();
  /// Writes the state if the series has changed.
  [[nodiscard]] bool store();

  [[nodiscard]] std::int64_t id() const { return state_.series_id; }
  /// The last time of the last block, 0 where there is none.
  [[nodiscard]] std::int64_t last_block() const { return state_.last_block; }

  /// Sets `times` to the times of the first and the last row, or to an empty range of times.
  [[nodiscard]] bool find_ends(CTimeRange& times);
  /// Sets `is_there` to whether there is a row at `time`.
  [[nodiscard]] bool find(std::int64_t time, bool& is_there);
  /// Returns the region around `time`, valid until the series changes; null on failure.
  [[nodiscard]] const Region* find_region(std::int64_t time);

  /// Counts loose rows, at most `limit`.
  [[nodiscard]] bool count_loose(CTimeRange range, std::size_t limit, LooseRows::Count& count);
  /// Adds copies of loose rows to `rows`, until these are a full block, or `limit` rows if that is
  /// more.
  [[nodiscard]] bool read_loose(CTimeRange range, LooseRows::Order order, std::size_t limit,
                                RowBuffer& rows);
  /// Sets `time` to that of the first loose row in `order`, or to NO_ROW.
  [[nodiscard]] bool find_loose(CTimeRange range, LooseRows::Order order, std::int64_t& time);
  [[nodiscard]] bool insert_loose(std::int64_t time, double valid_ratio,
                                  std::span<const double> slots);
  [[nodiscard]] bool remove_loose(CTimeRange range);

  /// Adds copies of all rows of a block to `rows`.
  [[nodiscard]] bool read_block(const BlockHead& head, RowBuffer& rows);
  /// Inserts a block of `rows` into `gap`, which has room for it.
  [[nodiscard]] bool seal(const BlockRows& rows, const Region& gap);
  /// Puts blocks of `rows` in the place of the block `head`, within the times of its rows. There
  /// may be none.
  [[nodiscard]] bool replace_block(const BlockHead& head, const RowBuffer& rows);
  /// Removes all rows with times before `time`.
  [[nodiscard]] bool purge(std::int64_t time);
  /// Removes the row at `time`. `is_found` tells whether there was one.
  [[nodiscard]] bool remove_row(std::int64_t time, bool& is_found);
  /// Removes the state of the series, which must have no rows any more.
  [[nodiscard]] bool remove_state();

 private:
  void touch();
  bool fail(const char* reason);
  bool find_block(std::int64_t last_time, BlockHead& head);
  bool insert_block(const BlockRows& rows, std::int64_t previous, std::int64_t& last_time);
  bool remove_block(const BlockHead& head);
  bool link(std::int64_t old_end, std::int64_t new_end);
  bool remove_from_block(const BlockHead& head, CTimeRange times, bool& is_found);
  bool set_previous(BlockHead& head, std::int64_t previous);

  RecordTables& tables_;
  SeriesState state_;
  bool is_changed_ = false;
  std::optional<Region> region_;     ///< the last one found, until it changes
  std::vector<std::int64_t> times_;  ///< of the block whose span it is, once they are needed
};

}  // namespace toolkit::trend
