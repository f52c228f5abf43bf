#include "libtrend/sqlite/row_cursor.h"

#include <ctime>
#include <span>

#include "libtrend/sqlite/samples.h"
#include "libtrend/sqlite/schema.h"

namespace toolkit::trend {

RowCursor::RowCursor(const RowStatements& statements, const CSeries& series,
                     const std::vector<CParamProperties>& params, bool ascending)
    : rows_(&statements.ascending_or_descending),
      statements_(statements),
      base_(get_row_id(series.id, 0)),
      params_(params),
      ascending_(ascending) {}

bool RowCursor::place(std::int64_t earliest, std::int64_t latest) {
  earliest_ = earliest;
  latest_ = latest;
  rows_->reset();
  rows_->bind(1, base_ + (ascending_ ? earliest_ : latest_));
  return step();
}

bool RowCursor::advance() {
  // In a damaged table, keys may stand out of order.
  if (ascending_) {
    earliest_ = timestamp_ + 1;
  } else {
    latest_ = timestamp_ - 1;
  }
  return step();
}

bool RowCursor::decode(CSnapshot& row) {
  row.timestamp = static_cast<std::time_t>(timestamp_);
  std::span<const unsigned char> bytes;
  return (rows_->read(1, row.valid_ratio) && rows_->read(2, bytes) &&
          unpack_samples(bytes, params_, row.samples)) ||
         fail_as_damaged();
}

bool RowCursor::find_before(std::int64_t time, std::int64_t& timestamp) {
  return find(statements_.last_row, 1, time - 1, timestamp);
}

bool RowCursor::step() {
  timestamp_ = NO_ROW;
  const Statement::Step step = rows_->step();
  if (step == Statement::Step::ERROR) {
    statements_.error = rows_->error();
    return false;
  }
  if (step == Statement::Step::DONE) return is_at_end();
  const std::int64_t id = rows_->read_id(0);
  // No row has such an id, but a page full of zeros looks like it.
  if ((id & MAX_TIMESTAMP) == 0) return fail_as_damaged();
  // SQLite is asked for one bound alone, as it would look at the other at every row too.
  if (ascending_ ? id > base_ + latest_ : id < base_ + earliest_) return is_at_end();
  if (ascending_ ? id < base_ + earliest_ : id > base_ + latest_) return fail_as_damaged();
  timestamp_ = id - base_;
  return true;
}

/// Sets `timestamp` to the time of the row that `statement` finds from `earliest` to `latest`, or
/// to NO_ROW. Returns false on failure.
bool RowCursor::find(Statement& statement, std::int64_t earliest, std::int64_t latest,
                     std::int64_t& timestamp) {
  statement.bind(1, base_ + earliest);
  statement.bind(2, base_ + latest);
  const RunningStatement running(&statement);
  const Statement::Step step = statement.step();
  timestamp = step == Statement::Step::ROW ? statement.read_id(0) - base_ : NO_ROW;
  if (step == Statement::Step::ERROR) statements_.error = statement.error();
  return step != Statement::Step::ERROR;
}

/// Whether the walk is really over. A damaged page may look like the end; seen from the other side,
/// rows are then left.
bool RowCursor::is_at_end() {
  if (earliest_ > latest_) return true;
  std::int64_t left = NO_ROW;
  Statement& farthest = ascending_ ? statements_.last_row : statements_.first_row;
  if (!find(farthest, earliest_, latest_, left)) return false;
  return left == NO_ROW || fail_as_damaged();
}

bool RowCursor::fail_as_damaged() {
  statements_.error = "the table of rows is damaged";
  return false;
}

}  // namespace toolkit::trend
