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

/// What is known of loose rows. If it takes little memory, that is all that one query wants of
/// them.
struct CheckedRows {
  std::vector<std::int64_t> times;
  std::uint64_t bytes = 0;               ///< that all of them take
  std::vector<CParamProperties> params;  ///< those of that query
  std::vector<double> valid_ratios;      ///< one per row, or none
  std::vector<CSample> samples;          ///< row after row, one for each of `params`; or none
};

/// Reads all loose rows of a series that must have a checksum, and sets `rows` to what a query for
/// `params` wants of them. Returns false, with the reason in `error`, where one is damaged or lost.
[[nodiscard]] bool check_loose_rows(RowTable& table, const SeriesState& state,
                                    const std::vector<CParamProperties>& params, CheckedRows& rows,
                                    std::string& error);

/// A cursor over the loose rows that were checked. The tree of the table is trusted no more: a row
/// is looked up by its time, unless its samples are known.
class LooseCursor : public SeriesCursor {
 public:
  static constexpr const char* ROW =
      "SELECT rowid, valid_ratio, samples, checksum FROM loose WHERE rowid = ?1";
  static constexpr const char* ROW_OF_VERSION_1 =
      "SELECT rowid, valid_ratio, samples, NULL FROM snapshot WHERE rowid = ?1";

  /// `row` is the statement `ROW`, or the one of version 1. `rows` are those that were checked,
  /// `have_checksums` tells whether all of these had a checksum. A failure leaves the reason in
  /// `error`.
  LooseCursor(Statement& row, const CheckedRows& rows, const CSeries& series,
              const std::vector<CParamProperties>& params, bool ascending, bool have_checksums,
              std::string& error);

  [[nodiscard]] bool place(std::int64_t earliest, std::int64_t latest) override;
  [[nodiscard]] bool advance() override;
  [[nodiscard]] bool decode(CSnapshot& row) override;
  [[nodiscard]] bool find_before(std::int64_t time, std::int64_t& timestamp) override;

 private:
  Statement& row_;
  const CheckedRows& rows_;
  std::int64_t series_id_;
  const std::vector<CParamProperties>& params_;
  bool ascending_;
  bool have_checksums_;
  std::string& error_;
  bool has_samples_;       ///< whether `rows_` has the samples of `params_`
  std::size_t index_ = 0;  ///< of the current row in `rows_`
  std::size_t first_ = 0;  ///< the rows to come are those from first_ to end_ - 1
  std::size_t end_ = 0;
};

}  // namespace toolkit::trend
