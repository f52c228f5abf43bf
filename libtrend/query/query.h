// The trend data query: one pass over the rows of several series, merged by time.
#pragma once

#include <cstdint>
#include <vector>

#include "libtrend/log.h"
#include "libtrend/sqlite/database.h"
#include "libtrend/sqlite/statement.h"

namespace toolkit::trend {

/// One series of a device: its rows at one interval.
struct Series {
  std::int64_t id = 0;
  std::uint32_t minutes = 0;
};

/// Which rows of some series a query wants; see `CLog::get_trend_data`.
struct RowQuery {
  std::vector<Series> series;  ///< by ascending `minutes`
  std::int64_t earliest = 0;   ///< both at least 1 and at most MAX_TIMESTAMP
  std::int64_t latest = 0;
  std::uint64_t count = 0;  ///< at least 1
  std::uint64_t offset = 0;
  bool ascending = false;
};

/// Runs queries on one connection, and keeps its statements prepared from one to the next.
class QueryRunner {
 public:
  QueryRunner() = default;
  /// `db` is borrowed and must stay open for as long as this object lives.
  explicit QueryRunner(sqlite3* db);

  /// Whether the table of rows is there.
  [[nodiscard]] bool is_usable() const { return first_row_ && last_row_ && descending_.front(); }

  /// Appends the rows of `query` to `rows`, with one sample per entry of `params`. False on
  /// failure. The caller sees to it that the database does not change during the call.
  [[nodiscard]] bool run(const RowQuery& query, const std::vector<CParamProperties>& params,
                         std::vector<CSnapshot>& rows);

 private:
  sqlite3* db_ = nullptr;
  std::vector<Statement> ascending_;   ///< one per series that is read at a time
  std::vector<Statement> descending_;  ///< likewise
  Statement first_row_;                ///< of a range of ids
  Statement last_row_;
};

}  // namespace toolkit::trend
