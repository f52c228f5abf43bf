// Counting the rows of series.
#pragma once

#include <memory>
#include <string>

#include "libtrend/records.h"
#include "libtrend/sqlite/row_cursor.h"
#include "libtrend/sqlite/series_state.h"
#include "libtrend/sqlite/statement.h"

namespace toolkit::trend {

/// Counts rows on a connection, which must outlive it. Of rows in blocks, only the heads of the
/// blocks are read. What has a checksum is compared with it.
class SeriesCounter {
 public:
  /// `has_blocks` tells whether the database is of version 2.
  SeriesCounter(sqlite3* db, bool has_blocks);
  /// Whether every statement could be prepared, which takes the tables.
  explicit operator bool() const;

  /// Sets `summary` to that of `series`. Returns false on failure, also if what the database says
  /// about the series does not agree with its rows. The reason is then in `error`.
  [[nodiscard]] bool count(const CSeries& series, CSeriesSummary& summary, std::string& error);

 private:
  bool count_unchecked_rows(const SeriesState& state, CSeriesSummary& summary, std::string& error);
  bool count_loose_rows(const SeriesState& state, CSeriesSummary& summary, std::string& error);
  bool count_blocks(const SeriesState& state, CSeriesSummary& summary, std::string& error);

  bool has_blocks_;
  Statement rows_;
  std::unique_ptr<RowTable> loose_;
  Statement blocks_;
  SeriesStates states_;
};

}  // namespace toolkit::trend
