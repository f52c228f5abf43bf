// Appends rows to one series and seals them into blocks.
#pragma once

#include <cstddef>
#include <cstdint>
#include <set>
#include <span>

#include "libtrend/query/engine.h"
#include "libtrend/sqlite/row_buffer.h"
#include "libtrend/sqlite/stored_series.h"

namespace toolkit::trend {

/// The writer of one series. It stays valid from one transaction to the next while no other
/// connection writes. Functions that return false have failed and leave the reason in
/// `RecordTables::error`; the transaction then has to be undone, and the writer to be dropped.
///
/// Rows are collected in memory. When they are more than a block and come in order of time, they
/// become blocks at once; otherwise `spill` inserts them into the table of loose rows. What is
/// loose is sealed by `seal_at`.
class SeriesWriter {
 public:
  /// Where `spill` notes regions that may have enough loose rows to be sealed: the id that a row at
  /// the region's first time has. It outlives the writer.
  using Regions = std::set<std::int64_t>;

  SeriesWriter(RecordTables& tables, Regions& crowded, std::int64_t id)
      : tables_(tables), stored_(tables, id), crowded_(crowded) {}

  /// Makes the state of a new series.
  [[nodiscard]] bool create() { return stored_.create(); }
  /// Reads the state of a series that is there.
  [[nodiscard]] bool load();

  /// Appends a row, at whose time there must be none.
  [[nodiscard]] bool append(std::int64_t time, double valid_ratio, std::span<const double> slots);
  /// Removes all rows before `time`.
  [[nodiscard]] bool purge(std::int64_t time);
  /// Removes the row at `time`. Fails if there is none.
  [[nodiscard]] bool remove_row(std::int64_t time);
  /// Removes all rows and the state; the writer then has to be dropped.
  [[nodiscard]] bool remove_all();

  /// About how many bytes the rows in memory take.
  [[nodiscard]] std::size_t bytes() const { return rows_.bytes(); }
  /// Inserts the rows in memory into the table of loose rows.
  [[nodiscard]] bool spill();
  /// Writes the state. To be called at the end of a transaction, after `spill`.
  [[nodiscard]] bool store() { return stored_.store(); }

  /// Seals loose rows of the region around `time` if they are enough: one block in a gap, or the
  /// block of a span again with the rows that came late. Sets `is_sealed` to whether they were, and
  /// `end` to the last time of the region. Where they can't be read they stay loose.
  [[nodiscard]] bool seal_at(std::int64_t time, bool& is_sealed, std::int64_t& end);

 private:
  bool flush();
  bool take_loose_rows_in(const Region& gap, bool& is_alone);
  bool seal_rows_into(Region gap);
  bool seal_gap(const Region& gap, bool& is_sealed);
  bool seal_span(const Region& span, bool& is_sealed);
  bool count_rows_after_blocks();
  void note_crowded(std::int64_t time);

  RecordTables& tables_;
  StoredSeries stored_;
  Regions& crowded_;
  RowBuffer rows_;
  CTimeRange ends_{MAX_TIMESTAMP + 1, 0};  ///< of all rows, also of those in memory
  /// The loose rows after the last block, up to the number that can be sealed.
  LooseRows::Count after_blocks_;
  bool has_counted_ = true;  ///< whether `after_blocks_` is up to date
};

}  // namespace toolkit::trend
