// The table of rows that are not sealed yet.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <vector>

#include "libtrend/records.h"
#include "libtrend/sqlite/statement.h"

namespace toolkit::trend {

/// Reads and writes loose rows on one connection, which must outlive it. Functions that return
/// false have failed and leave the reason in `error`.
class LooseRows {
 public:
  enum class Order { OLDEST_FIRST, NEWEST_FIRST };
  /// Is called with the time, the share of valid data and the values of a row. Returns whether it
  /// took the row; no other follows if it did not.
  using Take = std::function<bool(std::int64_t, double, std::span<const double>)>;

  struct Count {
    std::size_t rows = 0;
    std::size_t slots = 0;  ///< of the widest row
  };

  LooseRows() = default;
  explicit LooseRows(sqlite3* db);
  /// Whether every statement could be prepared, which takes the table.
  explicit operator bool() const;

  /// Inserts a row with its checksum.
  [[nodiscard]] bool insert(std::int64_t series_id, std::int64_t time, double valid_ratio,
                            std::span<const double> slots, std::string& error);

  /// Sets `time` to that of the first row, in the given order, among those in `range`, or to
  /// NO_ROW.
  [[nodiscard]] bool find(std::int64_t series_id, CTimeRange range, Order order, std::int64_t& time,
                          std::string& error);
  /// Sets `id` to that of the first row of any series whose id is `id` or more, and `is_there` to
  /// whether there is one.
  [[nodiscard]] bool find_next(std::int64_t& id, bool& is_there, std::string& error);

  /// Counts the rows in `range`, but no more than `limit`.
  [[nodiscard]] bool count(std::int64_t series_id, CTimeRange range, std::size_t limit,
                           Count& count, std::string& error);

  /// Reads the rows in `range`. Those up to the time `unchecked_until` may be without a checksum.
  [[nodiscard]] bool read(std::int64_t series_id, CTimeRange range, Order order,
                          std::int64_t unchecked_until, const Take& take, std::string& error);

  /// Deletes the rows in `range`, and sets `rows` to how many these were.
  [[nodiscard]] bool remove(std::int64_t series_id, CTimeRange range, std::int64_t& rows,
                            std::string& error);

 private:
  sqlite3* db_ = nullptr;
  std::vector<unsigned char> samples_;  ///< of the row that is inserted
  Statement insert_;
  Statement find_first_;
  Statement find_last_;
  Statement find_next_;
  Statement count_;
  Statement read_ascending_;
  Statement read_descending_;
  Statement remove_;
};

}  // namespace toolkit::trend
