// A cursor over the rows of one series of an archive.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "libtrend/postgres/connection.h"
#include "libtrend/postgres/slot_runs.h"
#include "libtrend/query/engine.h"
#include "libtrend/records.h"

namespace toolkit::trend {

/// Reads the rows in portions, each with one statement. While rows are skipped, a portion has times
/// alone.
class ArchiveCursor : public SeriesCursor {
 public:
  /// `wanted` is what the query wants of this series, as far as that is known. A failure leaves the
  /// reason in `error`.
  ArchiveCursor(Connection& connection, const CSeries& series,
                const std::vector<CParamProperties>& params, bool ascending,
                const RowsWanted& wanted, std::string& error);

  [[nodiscard]] bool place(std::int64_t earliest, std::int64_t latest) override;
  [[nodiscard]] bool advance() override;
  [[nodiscard]] bool pass(std::uint64_t count) override;
  [[nodiscard]] bool decode(CSnapshot& row) override;
  [[nodiscard]] bool find_before(std::int64_t time, std::int64_t& timestamp) override;

 private:
  [[nodiscard]] bool fetch(std::uint64_t offset, std::uint64_t rows);
  [[nodiscard]] bool take_row();
  [[nodiscard]] std::string get_sql() const;
  bool fail_as_damaged();

  Connection& connection_;
  std::int64_t series_id_;
  bool ascending_;
  std::string& error_;
  SlotRuns runs_;
  std::uint64_t largest_portion_;
  std::uint64_t first_portion_;  ///< of those with values
  bool wants_values_;
  std::int64_t earliest_ = 0;  ///< the rows to come, with those of the portion, are from here
  std::int64_t latest_ = 0;    ///< to here
  Result portion_;
  std::size_t row_ = 0;      ///< the current row of the portion
  bool has_values_ = false;  ///< whether the portion has them
  bool is_last_portion_ = true;
};

}  // namespace toolkit::trend
