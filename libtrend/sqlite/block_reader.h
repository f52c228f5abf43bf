// Reading the rows of a database with blocks, which is version 2 of the format.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "libtrend/query/engine.h"
#include "libtrend/sqlite/block_cursor.h"
#include "libtrend/sqlite/block_table.h"
#include "libtrend/sqlite/loose_cursor.h"
#include "libtrend/sqlite/row_cursor.h"
#include "libtrend/sqlite/series_state.h"
#include "libtrend/sqlite/statement.h"

namespace toolkit::trend {

/// Makes cursors over the rows of a connection, which must outlive it. What was checked and read is
/// remembered until the database changes. A failure leaves the reason in `error`.
class BlockReader {
 public:
  BlockReader(sqlite3* db, std::string& error);
  /// Whether every statement could be prepared, which takes the tables.
  explicit operator bool() const;

  /// To be called in each transaction before anything else. `has_changed` tells whether the
  /// database may be another than in the last one. Returns false where the catalogue is damaged.
  [[nodiscard]] bool start_query(bool has_changed);

  /// Makes a cursor, see `LogReader`. A query makes at most one for a series. Returns null on
  /// failure.
  [[nodiscard]] std::unique_ptr<SeriesCursor> make_cursor(
      const CSeries& series, const std::vector<CParamProperties>& params, bool ascending);

  /// The id of the database, after `start_query`.
  [[nodiscard]] const std::string& uuid() const { return uuid_; }
  /// See `LogReader`. Returns false on failure.
  [[nodiscard]] bool get_changes(const CSeries& series, std::uint64_t since,
                                 CSeriesChanges& changes);

 private:
  /// What is known of a series.
  struct Series {
    Series(BlockTable& table, std::string& error) : chain(table, state, error) {}
    SeriesState state;
    CheckedRows loose;
    BlockChain chain;
    std::uint64_t query = 0;  ///< the last one that used it
  };

  bool check_catalogue();
  Series* find_series(std::int64_t id, const std::vector<CParamProperties>& params);

  sqlite3* db_;
  std::string& error_;
  Statement database_;
  Statement loose_row_;
  RowTable loose_;
  BlockTable blocks_;
  SeriesStates states_;
  bool is_catalogue_checked_ = false;
  std::string uuid_;
  std::map<std::int64_t, std::unique_ptr<Series>> series_;
  std::uint64_t query_ = 0;
  std::uint64_t forgot_before_ = 0;  ///< the query before which series were forgotten last
};

}  // namespace toolkit::trend
