// Reading what is left in a damaged database.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "libtrend/query/engine.h"
#include "libtrend/sqlite/block_cursor.h"
#include "libtrend/sqlite/damage_list.h"
#include "libtrend/sqlite/loose_cursor.h"
#include "libtrend/sqlite/remains.h"

namespace toolkit::trend {

/// Makes cursors over the rows of a connection that can be read, and notes what can't. The
/// connection must outlive it. What was found is remembered until the database changes.
class DamagedReader {
 public:
  /// `version` is that of the database's format. Damage is noted in `damage`. If a function fails,
  /// the reason is in `error`.
  DamagedReader(sqlite3* db, std::int64_t version, DamageList& damage, std::string& error);
  /// Whether the tables are there.
  explicit operator bool() const { return finder_ && row_; }

  /// To be called in each transaction before anything else. `has_changed` tells whether the
  /// database may be another than in the last one.
  void start_query(bool has_changed);

  /// Makes a cursor, see `LogReader`. A query makes at most one for a series. Returns null on
  /// failure.
  [[nodiscard]] std::unique_ptr<SeriesCursor> make_cursor(
      const CSeries& series, const std::vector<CParamProperties>& params, bool ascending);

 private:
  struct Series {
    explicit Series(const CSeries& which) : series(which) {}
    CSeries series;
    std::string device;
    CheckedRows loose;
    RemainingBlocks blocks;
    SeriesState state;
    std::unique_ptr<BlockChain> chain;
    std::uint64_t query = 0;  ///< the last one that used it
  };

  Series& find_series(const CSeries& series);

  sqlite3* db_;
  std::int64_t version_;
  DamageList& damage_;
  std::string& error_;
  RemainsFinder finder_;
  Statement row_;
  BlockTable blocks_;
  std::map<std::int64_t, std::unique_ptr<Series>> series_;
  std::uint64_t query_ = 0;
};

/// Returns the path of the device of a series, empty where that can't be read.
[[nodiscard]] std::string find_device_path(sqlite3* db, std::int64_t series_id);

}  // namespace toolkit::trend
