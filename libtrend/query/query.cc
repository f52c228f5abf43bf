#include "libtrend/query/query.h"

#include <algorithm>
#include <cstddef>

#include "libtrend/sqlite/samples.h"
#include "libtrend/sqlite/schema.h"

namespace toolkit::trend {

namespace {

// The id is the rowid, and under that name of the type that a rowid has in any table.
constexpr const char* ROWS_ASCENDING =
    "SELECT rowid, valid_ratio, samples FROM snapshot WHERE rowid >= ?1 ORDER BY rowid";
constexpr const char* ROWS_DESCENDING =
    "SELECT rowid, valid_ratio, samples FROM snapshot WHERE rowid <= ?1 ORDER BY rowid DESC";
constexpr const char* FIRST_ROW =
    "SELECT rowid FROM snapshot WHERE rowid BETWEEN ?1 AND ?2 ORDER BY rowid LIMIT 1";
constexpr const char* LAST_ROW =
    "SELECT rowid FROM snapshot WHERE rowid BETWEEN ?1 AND ?2 ORDER BY rowid DESC LIMIT 1";

// Timestamps of rows are above both.
constexpr std::int64_t NO_ROW = 0;
constexpr std::int64_t NOT_KNOWN = -1;

/// The rows of one series from `earliest` to `latest`, walked in the order of the query. `farthest`
/// finds the row of a range of ids that such a walk comes to last.
class Cursor {
 public:
  Cursor(Statement& rows, Statement& farthest, const Series& series, bool ascending,
         std::int64_t earliest, std::int64_t latest)
      : rows_(&rows),
        farthest_(&farthest),
        base_(series.id * (MAX_TIMESTAMP + 1)),
        minutes_(series.minutes),
        ascending_(ascending),
        earliest_(earliest),
        latest_(latest) {}

  /// Goes to the first row; false on failure.
  [[nodiscard]] bool start() {
    rows_->bind(1, base_ + (ascending_ ? earliest_ : latest_));
    return step();
  }

  /// Goes from a row to the next; false on failure.
  [[nodiscard]] bool advance() {
    passed_ = head_;
    // In a damaged table, keys may stand out of order.
    if (ascending_) {
      earliest_ = head_ + 1;
    } else {
      latest_ = head_ - 1;
    }
    return step();
  }

  /// The timestamp of the current row, NO_ROW behind the last.
  [[nodiscard]] std::int64_t head() const { return head_; }
  /// The timestamp of the row passed last, NOT_KNOWN where none was.
  [[nodiscard]] std::int64_t passed() const { return passed_; }
  /// How many seconds up to its timestamp a row describes.
  [[nodiscard]] std::int64_t stretch() const { return std::int64_t{60} * minutes_; }

  /// Looks for the last row before `time` in a walk oldest first, and takes it, or NO_ROW, for the
  /// row passed last; false on failure.
  [[nodiscard]] bool look_before(std::int64_t time) { return find_farthest(1, time - 1, passed_); }

  /// Appends the current row to `rows`; false where it is damaged.
  [[nodiscard]] bool copy_row(const std::vector<CParamProperties>& params,
                              std::vector<CSnapshot>& rows) const {
    CSnapshot& row = rows.emplace_back();
    row.interval_minutes = minutes_;
    row.timestamp = static_cast<std::time_t>(head_);
    std::span<const unsigned char> bytes;
    return rows_->read(1, row.valid_ratio) && rows_->read(2, bytes) &&
           unpack_samples(bytes, params, row.samples);
  }

 private:
  bool step() {
    head_ = NO_ROW;
    const Statement::Step step = rows_->step();
    if (step != Statement::Step::ROW) return step == Statement::Step::DONE && is_at_end();
    const std::int64_t id = rows_->read_id(0);
    // No row has such an id, but a page full of zeros looks like it.
    if ((id & MAX_TIMESTAMP) == 0) return false;
    // SQLite is asked for one bound alone, as it would look at the other at every row too.
    if (ascending_ ? id > base_ + latest_ : id < base_ + earliest_) return is_at_end();
    if (ascending_ ? id < base_ + earliest_ : id > base_ + latest_) return false;
    head_ = id - base_;
    return true;
  }

  /// Gives the timestamp of the row from `earliest` to `latest` that a walk comes to last, NO_ROW
  /// for no row; false on failure.
  bool find_farthest(std::int64_t earliest, std::int64_t latest, std::int64_t& timestamp) {
    farthest_->bind(1, base_ + earliest);
    farthest_->bind(2, base_ + latest);
    const RunningStatement running(farthest_);
    const Statement::Step step = farthest_->step();
    timestamp = step == Statement::Step::ROW ? farthest_->read_id(0) - base_ : NO_ROW;
    return step != Statement::Step::ERROR;
  }

  /// Whether the walk is over indeed. A damaged page may look like the end; from the other side
  /// rows are then left.
  bool is_at_end() {
    std::int64_t left = NO_ROW;
    return earliest_ > latest_ || (find_farthest(earliest_, latest_, left) && left == NO_ROW);
  }

  RunningStatement rows_;
  Statement* farthest_;
  std::int64_t base_;
  std::uint32_t minutes_;
  bool ascending_;
  std::int64_t earliest_;  ///< of the rows to come
  std::int64_t latest_;
  std::int64_t head_ = NO_ROW;
  std::int64_t passed_ = NOT_KNOWN;
};

/// Places one cursor per series; false on failure.
bool start(const RowQuery& query, std::vector<Statement>& statements, Statement& farthest,
           std::vector<Cursor>& cursors) {
  const std::int64_t longest = std::int64_t{60} * query.series.back().minutes;
  for (std::size_t i = 0; i < query.series.size(); ++i) {
    // Newest first, a finer row that hides a coarser one comes behind it, perhaps only before the
    // range. Oldest first, `is_hidden` looks there when it has to.
    const bool may_hide = i + 1 < query.series.size() && !query.ascending;
    const std::int64_t earliest =
        may_hide ? std::max<std::int64_t>(1, query.earliest - longest + 1) : query.earliest;
    cursors.emplace_back(statements[i], farthest, query.series[i], query.ascending, earliest,
                         query.latest);
    if (!cursors.back().start()) return false;
  }
  return true;
}

/// The index of the cursor whose current row comes next, or the number of cursors where there is
/// none. Of several rows at one time that is the finest, which hides the others.
std::size_t next_row(const std::vector<Cursor>& cursors, bool ascending) {
  std::size_t next = cursors.size();
  for (std::size_t i = 0; i < cursors.size(); ++i) {
    const std::int64_t head = cursors[i].head();
    if (head == NO_ROW) continue;
    if (next == cursors.size() ||
        (ascending ? head < cursors[next].head() : head > cursors[next].head())) {
      next = i;
    }
  }
  return next;
}

/// Tells whether a row of a finer series ends within the stretch of the current row of
/// `cursors[index]`, which is the finest one at its time; false on failure.
bool is_hidden(std::vector<Cursor>& cursors, std::size_t index, const RowQuery& query,
               bool& hidden) {
  hidden = false;
  // The stretch may begin before the epoch, where no rows are.
  const std::int64_t begin = std::max(cursors[index].head() - cursors[index].stretch(), NO_ROW);
  for (std::size_t i = 0; i < index && !hidden; ++i) {
    if (query.ascending && cursors[i].passed() == NOT_KNOWN && begin + 1 < query.earliest &&
        !cursors[i].look_before(query.earliest)) {
      return false;
    }
    // The series' last row before the current time is the one that it passed last or, as the walk
    // goes newest first, the one that it will come to.
    hidden = (query.ascending ? cursors[i].passed() : cursors[i].head()) > begin;
  }
  return true;
}

/// Runs `query` to its end; false on failure.
bool merge(const RowQuery& query, std::vector<Cursor>& cursors,
           const std::vector<CParamProperties>& params, std::vector<CSnapshot>& rows) {
  std::uint64_t to_pass = query.offset;
  std::uint64_t wanted = query.count;
  for (;;) {
    const std::size_t next = next_row(cursors, query.ascending);
    if (next == cursors.size() || cursors[next].head() < query.earliest) return true;
    bool hidden = false;
    if (!is_hidden(cursors, next, query, hidden)) return false;
    if (!hidden && to_pass > 0) {
      --to_pass;
    } else if (!hidden) {
      if (!cursors[next].copy_row(params, rows)) return false;
      if (--wanted == 0) return true;
    }
    const std::int64_t time = cursors[next].head();
    for (std::size_t i = next; i < cursors.size(); ++i) {
      if (cursors[i].head() == time && !cursors[i].advance()) return false;
    }
  }
}

}  // namespace

QueryRunner::QueryRunner(sqlite3* db)
    : db_(db), first_row_(db, FIRST_ROW), last_row_(db, LAST_ROW) {
  descending_.emplace_back(db, ROWS_DESCENDING);
}

bool QueryRunner::run(const RowQuery& query, const std::vector<CParamProperties>& params,
                      std::vector<CSnapshot>& rows) {
  if (query.series.empty()) return true;
  std::vector<Statement>& statements = query.ascending ? ascending_ : descending_;
  const char* sql = query.ascending ? ROWS_ASCENDING : ROWS_DESCENDING;
  while (statements.size() < query.series.size()) {
    statements.emplace_back(db_, sql);
    if (!statements.back()) {
      statements.pop_back();
      return false;
    }
  }
  std::vector<Cursor> cursors;
  Statement& farthest = query.ascending ? last_row_ : first_row_;
  return start(query, statements, farthest, cursors) && merge(query, cursors, params, rows);
}

}  // namespace toolkit::trend
