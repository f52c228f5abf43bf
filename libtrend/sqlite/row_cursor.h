// The rows of one series in the table of rows.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "libtrend/query/engine.h"
#include "libtrend/sqlite/statement.h"

namespace toolkit::trend {

/// The statements that walk through rows, and where their failures are told.
struct RowStatements {
  Statement& ascending_or_descending;  ///< of the direction of the walk; nobody else uses it
  Statement& first_row;                ///< of a range of ids
  Statement& last_row;
  std::string& error;
};

/// A cursor over rows that are stored one by one.
class RowCursor : public SeriesCursor {
 public:
  static constexpr const char* ASCENDING =
      "SELECT rowid, valid_ratio, samples FROM snapshot WHERE rowid >= ?1 ORDER BY rowid";
  static constexpr const char* DESCENDING =
      "SELECT rowid, valid_ratio, samples FROM snapshot WHERE rowid <= ?1 ORDER BY rowid DESC";
  static constexpr const char* FIRST_ROW =
      "SELECT rowid FROM snapshot WHERE rowid BETWEEN ?1 AND ?2 ORDER BY rowid LIMIT 1";
  static constexpr const char* LAST_ROW =
      "SELECT rowid FROM snapshot WHERE rowid BETWEEN ?1 AND ?2 ORDER BY rowid DESC LIMIT 1";

  RowCursor(const RowStatements& statements, const CSeries& series,
            const std::vector<CParamProperties>& params, bool ascending);

  [[nodiscard]] bool place(std::int64_t earliest, std::int64_t latest) override;
  [[nodiscard]] bool advance() override;
  [[nodiscard]] bool decode(CSnapshot& row) override;
  [[nodiscard]] bool find_before(std::int64_t time, std::int64_t& timestamp) override;

 private:
  bool step();
  bool find(Statement& statement, std::int64_t earliest, std::int64_t latest,
            std::int64_t& timestamp);
  bool is_at_end();
  bool fail_as_damaged();

  RunningStatement rows_;
  RowStatements statements_;
  std::int64_t base_;  ///< what the ids of the series' rows have besides the timestamp
  const std::vector<CParamProperties>& params_;
  bool ascending_;
  std::int64_t earliest_ = 1;  ///< of the rows to come
  std::int64_t latest_ = 0;
};

}  // namespace toolkit::trend
