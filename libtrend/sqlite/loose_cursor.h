// The rows of one series that are not in blocks.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "libtrend/query/engine.h"
#include "libtrend/sqlite/row_cursor.h"
#include "libtrend/sqlite/series_state.h"
#include "libtrend/sqlite/statement.h"

namespace toolkit::trend {

/// Reads all loose rows of a series that must have a checksum, and sets `times` to their times.
/// Returns false, with the reason in `error`, where one is damaged or lost.
[[nodiscard]] bool check_loose_rows(RowTable& table, const SeriesState& state,
                                    std::vector<std::int64_t>& times, std::string& error);

/// A cursor over the loose rows that were checked. The tree of the table is trusted no more: each
/// row is looked up by its time.
class LooseCursor : public SeriesCursor {
 public:
  static constexpr const char* ROW =
      "SELECT rowid, valid_ratio, samples, checksum FROM loose WHERE rowid = ?1";
  static constexpr const char* ROW_OF_VERSION_1 =
      "SELECT rowid, valid_ratio, samples, NULL FROM snapshot WHERE rowid = ?1";

  /// `row` is the statement `ROW`, or the one of version 1. `times` are those of rows that were
  /// checked, `have_checksums` tells whether all of these had a checksum. A failure leaves the
  /// reason in `error`.
  LooseCursor(Statement& row, const std::vector<std::int64_t>& times, const CSeries& series,
              const std::vector<CParamProperties>& params, bool ascending, bool have_checksums,
              std::string& error)
      : row_(row),
        times_(times),
        series_id_(series.id),
        params_(params),
        ascending_(ascending),
        have_checksums_(have_checksums),
        error_(error) {}

  [[nodiscard]] bool place(std::int64_t earliest, std::int64_t latest) override;
  [[nodiscard]] bool advance() override;
  [[nodiscard]] bool decode(CSnapshot& row) override;
  [[nodiscard]] bool find_before(std::int64_t time, std::int64_t& timestamp) override;

 private:
  Statement& row_;
  const std::vector<std::int64_t>& times_;
  std::int64_t series_id_;
  const std::vector<CParamProperties>& params_;
  bool ascending_;
  bool have_checksums_;
  std::string& error_;
  std::size_t first_ = 0;  ///< the rows to come are times_[first_] to times_[end_ - 1]
  std::size_t end_ = 0;
};

}  // namespace toolkit::trend
