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

/// Consecutive rows of a series, as one statement has returned them.
struct Portion {
  std::int64_t changes = -1;  ///< the number of the series' last change before them
  std::string sql;            ///< the statement
  std::int64_t earliest = 0;  ///< the range that it was for, on the side of its first row
  std::int64_t latest = 0;    ///< without the rows that were skipped
  std::uint64_t wanted = 0;   ///< rows it was to return at most
  Result rows;
};

/// Reads the rows in portions. While rows are skipped, a portion has times alone.
///
/// The last portion stays with the reader. As long as nobody changes the series, the next query can
/// go on in it. Where rows are read one portion after another, the server prepares the next portion
/// while the caller works on one.
class ArchiveCursor : public SeriesCursor {
 public:
  /// `changes` is the number of the series' last change, and `wanted` what the query wants of the
  /// series, as far as that is known. `portion`, which must outlive the cursor, is empty or that of
  /// an earlier cursor over the series. `ahead` is the portion, without its rows, that was sent
  /// ahead; null if this cursor shall not do so. A failure leaves the reason in `error`.
  ArchiveCursor(Connection& connection, const CSeries& series, std::int64_t changes,
                const std::vector<CParamProperties>& params, bool ascending,
                const RowsWanted& wanted, Portion& portion, Portion* ahead, std::string& error);

  [[nodiscard]] bool place(std::int64_t earliest, std::int64_t latest) override;
  [[nodiscard]] bool advance() override;
  [[nodiscard]] bool pass(std::uint64_t count) override;
  [[nodiscard]] bool decode(CSnapshot& row) override;
  [[nodiscard]] bool find_before(std::int64_t time, std::int64_t& timestamp) override;

 private:
  [[nodiscard]] bool fetch(std::uint64_t offset, std::uint64_t rows);
  [[nodiscard]] Portion describe(std::uint64_t size) const;
  [[nodiscard]] static Parameters get_parameters(const Portion& portion, std::uint64_t offset);
  void look_ahead();
  [[nodiscard]] bool is_usable(const Portion& portion) const;
  [[nodiscard]] bool is_last_portion() const;
  [[nodiscard]] bool go_on(bool& is_placed);
  [[nodiscard]] bool go_on_in_portion();
  [[nodiscard]] bool go_to_range();
  [[nodiscard]] bool take_row();
  [[nodiscard]] std::string get_sql(bool with_values) const;
  [[nodiscard]] std::uint64_t get_size() const {
    return wants_values_ ? portion_size_ : skip_size_;
  }
  bool fail(const std::string& reason);

  Connection& connection_;
  std::int64_t series_id_;
  std::int64_t changes_;
  bool ascending_;
  Portion& portion_;
  Portion* ahead_;
  std::string& error_;
  SlotRuns runs_;
  std::uint64_t largest_size_;  ///< of portions with values
  std::uint64_t portion_size_;  ///< of the next one with values
  std::uint64_t skip_size_;     ///< of portions without
  bool wants_values_;
  bool goes_on_;               ///< whether the portion after the current one is likely wanted
  std::int64_t earliest_ = 0;  ///< the rows after the current one are from here
  std::int64_t latest_ = 0;    ///< to here
  std::size_t row_ = 0;        ///< the current row of the portion
};

}  // namespace toolkit::trend
