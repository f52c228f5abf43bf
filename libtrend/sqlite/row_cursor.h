// The rows of one series in the table of rows.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "libtrend/query/engine.h"
#include "libtrend/sqlite/statement.h"

namespace toolkit::trend {

/// Gives a statement back to those that nobody uses. Takes no memory, as it may run while an
/// exception is under way.
struct StatementReturner {
  std::vector<std::unique_ptr<Statement>>* unused = nullptr;
  void operator()(Statement* statement) const;
};
using BorrowedStatement = std::unique_ptr<Statement, StatementReturner>;

/// A table of rows that are stored one by one: `snapshot` of version 1 or `loose` of version 2. It
/// keeps its statements prepared. Must not outlive the connection.
class RowTable {
 public:
  RowTable() = default;
  /// `checksum` is the SQL of a row's checksum, NULL where rows have none.
  RowTable(sqlite3* db, const std::string& name, const std::string& checksum);
  RowTable(const RowTable&) = delete;
  RowTable& operator=(const RowTable&) = delete;
  /// Whether the table is there.
  explicit operator bool() const { return first_row_ && last_row_ && !unused_[0].empty(); }

  /// Lends a statement that starts at the id of parameter 1 and yields id, share of valid data,
  /// samples and checksum of each row. Returns null on failure.
  [[nodiscard]] BorrowedStatement borrow_walk(bool ascending);
  /// Returns how many of these statements are lent.
  [[nodiscard]] std::size_t lent_walks(bool ascending) const;
  /// The statement that finds the id of the first row from parameter 1 to parameter 2.
  [[nodiscard]] Statement& first_row() { return first_row_; }
  [[nodiscard]] Statement& last_row() { return last_row_; }

 private:
  sqlite3* db_ = nullptr;
  std::string walks_[2];                               ///< their SQL, by `ascending`
  std::vector<std::unique_ptr<Statement>> unused_[2];  ///< with room for all that were made
  std::size_t made_[2] = {0, 0};
  Statement first_row_;
  Statement last_row_;
};

/// Reads share of valid data and samples from columns 1 and 2 of `row`, which is the one with `id`.
/// Returns false where they are damaged, or where there is no checksum in column 3 but there must
/// be one.
[[nodiscard]] bool read_row(const Statement& row, std::int64_t id, bool must_have_checksum,
                            double& valid_ratio, std::span<const unsigned char>& samples);

/// A cursor over rows that are stored one by one, and may be without checksums.
class RowCursor : public SeriesCursor {
 public:
  /// `walk` is a statement of `table` for the direction. If it is null, the cursor borrows one for
  /// each row: SQLite slows down with each statement that is open, so a query of very many series
  /// must not keep one for each. The cursor visits rows up to the time `until` alone. A failure
  /// leaves the reason in `error`.
  RowCursor(RowTable& table, BorrowedStatement walk, const CSeries& series,
            const std::vector<CParamProperties>& params, bool ascending, std::int64_t until,
            std::string& error);

  [[nodiscard]] bool place(std::int64_t earliest, std::int64_t latest) override;
  [[nodiscard]] bool advance() override;
  [[nodiscard]] bool decode(CSnapshot& row) override;
  [[nodiscard]] bool find_before(std::int64_t time, std::int64_t& timestamp) override;

 private:
  bool seek();
  bool borrow();
  bool step();
  bool find(Statement& statement, std::int64_t earliest, std::int64_t latest,
            std::int64_t& timestamp);
  bool is_at_end();
  bool fail_as_damaged();

  RowTable& table_;
  BorrowedStatement rows_;
  bool is_borrower_;   ///< whether it has `rows_` only where it reads
  std::int64_t base_;  ///< what the ids of the series' rows have besides the timestamp
  const std::vector<CParamProperties>& params_;
  bool ascending_;
  std::int64_t until_;
  std::string& error_;
  std::int64_t earliest_ = 1;  ///< of the rows to come
  std::int64_t latest_ = 0;
};

}  // namespace toolkit::trend
