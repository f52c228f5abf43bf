// Counting the rows of series.
#pragma once

#include <string>

#include "libtrend/records.h"
#include "libtrend/sqlite/series_state.h"
#include "libtrend/sqlite/statement.h"

namespace toolkit::trend {

/// Counts rows on a connection, which must outlive it. Of rows in blocks, only the heads of the
/// blocks are read.
class SeriesCounter {
 public:
  /// `has_blocks` tells whether the database is of version 2.
  SeriesCounter(sqlite3* db, bool has_blocks);
  /// Whether every statement could be prepared, which takes the tables.
  explicit operator bool() const { return rows_ && (!has_blocks_ || (blocks_ && states_)); }

  /// Sets `summary` to that of `series`. Returns false on failure, also if what the database says
  /// about the series does not agree with its rows. The reason is then in `error`.
  [[nodiscard]] bool count(const CSeries& series, CSeriesSummary& summary, std::string& error);

 private:
  bool count_rows(const SeriesState& state, CSeriesSummary& summary, std::string& error);
  bool count_blocks(const SeriesState& state, CSeriesSummary& summary, std::string& error);

  bool has_blocks_;
  Statement rows_;
  Statement blocks_;
  SeriesStates states_;
};

}  // namespace toolkit::trend
