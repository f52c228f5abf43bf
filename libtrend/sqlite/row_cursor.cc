#include "libtrend/sqlite/row_cursor.h"

#include <algorithm>
#include <ctime>
#include <span>
#include <utility>

#include "libtrend/sqlite/damage_text.h"
#include "libtrend/sqlite/samples.h"
#include "libtrend/sqlite/schema.h"
#include "libtrend/sqlite/series_state.h"

namespace toolkit::trend {

void StatementReturner::operator()(Statement* statement) const {
  statement->reset();
  unused->emplace_back(statement);
}

RowTable::RowTable(sqlite3* db, const std::string& name, const std::string& checksum) : db_(db) {
  const std::string walk = "SELECT rowid, valid_ratio, samples, " + checksum + " FROM " + name;
  walks_[0] = walk + " WHERE rowid <= ?1 ORDER BY rowid DESC";
  walks_[1] = walk + " WHERE rowid >= ?1 ORDER BY rowid";
  const std::string find = "SELECT rowid FROM " + name + " WHERE rowid BETWEEN ?1 AND ?2 ORDER BY ";
  first_row_ = Statement(db, (find + "rowid LIMIT 1").c_str());
  last_row_ = Statement(db, (find + "rowid DESC LIMIT 1").c_str());
  // One walk shows that the columns are there, too; its end goes with the rest of the statement.
  static_cast<void>(borrow_walk(false));
}

BorrowedStatement RowTable::borrow_walk(bool ascending) {
  const std::size_t direction = ascending ? 1 : 0;
  auto& unused = unused_[direction];
  std::unique_ptr<Statement> statement;
  if (unused.empty()) {
    statement = std::make_unique<Statement>(db_, walks_[direction].c_str());
    if (!*statement) return nullptr;
    unused.reserve(++made_[direction]);
  } else {
    statement = std::move(unused.back());
    unused.pop_back();
  }
  return {statement.release(), StatementReturner{&unused}};
}

std::size_t RowTable::lent_walks(bool ascending) const {
  const std::size_t direction = ascending ? 1 : 0;
  return made_[direction] - unused_[direction].size();
}

bool read_row(const Statement& row, std::int64_t id, bool must_have_checksum, double& valid_ratio,
              std::span<const unsigned char>& samples) {
  std::int64_t checksum = 0;
  if (!row.read(1, valid_ratio) || !row.read(2, samples)) return false;
  if (!must_have_checksum && row.is_null(3)) return true;
  return row.read(3, checksum) &&
         checksum == std::int64_t{get_row_checksum(id, valid_ratio, samples)};
}

RowCursor::RowCursor(RowTable& table, BorrowedStatement walk, const CSeries& series,
                     const std::vector<CParamProperties>& params, bool ascending,
                     std::int64_t until, std::string& error)
    : table_(table),
      rows_(std::move(walk)),
      is_borrower_(rows_ == nullptr),
      base_(get_row_id(series.id, 0)),
      params_(params),
      ascending_(ascending),
      until_(until),
      error_(error) {}

bool RowCursor::place(std::int64_t earliest, std::int64_t latest) {
  earliest_ = earliest;
  latest_ = std::min(latest, until_);
  return seek();
}

/// Goes to the first row of the range.
bool RowCursor::seek() {
  if (is_borrower_ && !borrow()) return false;
  rows_->reset();
  rows_->bind(1, base_ + (ascending_ ? earliest_ : latest_));
  const bool is_done = step();
  if (is_borrower_) rows_.reset();
  return is_done;
}

bool RowCursor::borrow() {
  rows_ = table_.borrow_walk(ascending_);
  if (!rows_) error_ = "out of memory";
  return rows_ != nullptr;
}

bool RowCursor::advance() {
  // In a damaged table, keys may stand out of order.
  if (ascending_) {
    earliest_ = timestamp_ + 1;
  } else {
    latest_ = timestamp_ - 1;
  }
  return is_borrower_ ? seek() : step();
}

bool RowCursor::decode(CSnapshot& row) {
  const std::int64_t id = base_ + timestamp_;
  row.timestamp = static_cast<std::time_t>(timestamp_);
  if (is_borrower_) {
    if (!borrow()) return false;
    rows_->bind(1, id);
    if (rows_->step() != Statement::Step::ROW || rows_->read_whole(0) != id)
      return fail_as_damaged();
  }
  std::span<const unsigned char> bytes;
  const bool is_read = read_row(*rows_, id, false, row.valid_ratio, bytes) &&
                       unpack_samples(bytes, params_, row.samples);
  if (is_borrower_) rows_.reset();
  if (!is_read) return fail_as_damaged();
  return true;
}

bool RowCursor::find_before(std::int64_t time, std::int64_t& timestamp) {
  return find(table_.last_row(), 1, std::min(time - 1, until_), timestamp);
}

bool RowCursor::step() {
  timestamp_ = NO_ROW;
  const Statement::Step step = rows_->step();
  if (step == Statement::Step::ERROR) {
    error_ = rows_->error();
    return false;
  }
  if (step == Statement::Step::DONE) return is_at_end();
  const std::int64_t id = rows_->read_whole(0);
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
  timestamp = step == Statement::Step::ROW ? statement.read_whole(0) - base_ : NO_ROW;
  if (step == Statement::Step::ERROR) error_ = statement.error();
  return step != Statement::Step::ERROR;
}

/// Whether the walk is really over. A damaged page may look like the end; seen from the other side,
/// rows are then left.
bool RowCursor::is_at_end() {
  if (earliest_ > latest_) return true;
  std::int64_t left = NO_ROW;
  Statement& farthest = ascending_ ? table_.last_row() : table_.first_row();
  if (!find(farthest, earliest_, latest_, left)) return false;
  if (left == NO_ROW) return true;
  return fail_as_damaged();
}

bool RowCursor::fail_as_damaged() {
  error_ = ROWS_DAMAGED;
  return false;
}

}  // namespace toolkit::trend
