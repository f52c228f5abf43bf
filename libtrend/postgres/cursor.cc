#include "libtrend/postgres/cursor.h"

#include <algorithm>
#include <ctime>
#include <utility>

#include "libtrend/postgres/catalogue.h"

namespace toolkit::trend {

namespace {

/// How many bytes of values a portion may have, and how many rows. Programs mostly query some
/// hundred rows at a time; the server shall prepare as many while the program works on them.
constexpr std::size_t PORTION_BYTES = std::size_t{1} << 19;
constexpr std::size_t VALUE_BYTES = 12;  // with its length
constexpr std::uint64_t MAX_ROWS = 512;
/// The same for rows that are skipped, whose times alone are read.
constexpr std::uint64_t MAX_TIMES = 4096;
/// Portions grow, so that a query for few rows reads few.
constexpr std::uint64_t GROWTH = 4;

enum Column : std::size_t { TIME, VALID_RATIO, VALUES };

}  // namespace

ArchiveCursor::ArchiveCursor(Connection& connection, const CSeries& series, std::int64_t changes,
                             const std::vector<CParamProperties>& params, bool ascending,
                             const RowsWanted& wanted, Portion& portion, Portion* ahead,
                             std::string& error)
    : connection_(connection),
      series_id_(series.id),
      changes_(changes),
      ascending_(ascending),
      portion_(portion),
      ahead_(ahead),
      error_(error),
      runs_(params),
      largest_size_(std::clamp<std::uint64_t>(PORTION_BYTES / (VALUE_BYTES * (runs_.slots() + 1)),
                                              1, MAX_ROWS)),
      portion_size_(std::min(wanted.rows, largest_size_)),
      skip_size_(std::min(wanted.skipped, MAX_TIMES) + std::min(wanted.rows, MAX_TIMES)),
      wants_values_(wanted.skipped == 0),
      goes_on_(wanted.rows > MAX_ROWS) {}

std::string ArchiveCursor::get_sql(bool with_values) const {
  std::string sql = "SELECT time";
  if (with_values) sql.append(", valid_ratio").append(runs_.columns());
  // As a constant, the id tells the planner which partition it needs.
  sql.append(" FROM snapshot WHERE series_id = ").append(std::to_string(series_id_));
  sql.append(" AND time BETWEEN $1 AND $2 ORDER BY time");
  return sql.append(ascending_ ? "" : " DESC").append(" LIMIT $3 OFFSET $4");
}

/// Returns the portion of the next `size` rows, without them.
Portion ArchiveCursor::describe(std::uint64_t size) const {
  return {.changes = changes_,
          .sql = get_sql(wants_values_),
          .earliest = earliest_,
          .latest = latest_,
          .wanted = size,
          .rows = Result()};
}

Parameters ArchiveCursor::get_parameters(const Portion& portion, std::uint64_t offset) {
  Parameters parameters;
  parameters.add_time(portion.earliest).add_time(portion.latest);
  parameters.add(static_cast<std::int64_t>(portion.wanted));
  return parameters.add(static_cast<std::int64_t>(offset));
}

/// Fetches the portion of `size` rows that comes after the next `offset`, and goes to its first
/// row.
bool ArchiveCursor::fetch(std::uint64_t offset, std::uint64_t size) {
  timestamp_ = NO_ROW;
  row_ = 0;
  portion_ = describe(size);
  if (earliest_ > latest_) return true;
  if (!connection_.run(portion_.sql, get_parameters(portion_, offset), portion_.rows)) {
    return fail(connection_.error());
  }
  if (wants_values_) portion_size_ = std::min(GROWTH * portion_size_, largest_size_);
  if (portion_.rows.rows() == 0) return true;
  if (!take_row()) return false;
  if (offset > 0) (ascending_ ? portion_.earliest : portion_.latest) = timestamp_;
  look_ahead();
  return true;
}

/// Has the server prepare the portion after this one, if it is likely wanted.
void ArchiveCursor::look_ahead() {
  std::int64_t last = NO_ROW;
  if (ahead_ == nullptr || !goes_on_ || !wants_values_ || is_last_portion() ||
      !portion_.rows.read_time(portion_.rows.rows() - 1, TIME, last)) {
    return;
  }
  Portion next = describe(portion_size_);
  (ascending_ ? next.earliest : next.latest) = ascending_ ? last + 1 : last - 1;
  if (next.earliest > next.latest ||
      (next.sql == ahead_->sql && next.changes == ahead_->changes &&
       next.earliest == ahead_->earliest && next.latest == ahead_->latest)) {
    return;
  }
  connection_.send_ahead(next.sql, get_parameters(next, 0));
  *ahead_ = std::move(next);
}

/// Takes the time of the current row over, unless it is beyond the range.
bool ArchiveCursor::take_row() {
  if (!portion_.rows.read_time(row_, TIME, timestamp_)) return fail(NOT_A_ROW);
  if (ascending_ ? timestamp_ > latest_ : timestamp_ < earliest_) {
    timestamp_ = NO_ROW;
    latest_ = earliest_ - 1;
    return true;
  }
  if (ascending_ ? timestamp_ < earliest_ : timestamp_ > latest_) return fail(NOT_A_ROW);
  if (ascending_) {
    earliest_ = timestamp_ + 1;
  } else {
    latest_ = timestamp_ - 1;
  }
  return true;
}

/// Whether the first rows of the range with their values, if there are any, are in `portion` or
/// come after it.
bool ArchiveCursor::is_usable(const Portion& portion) const {
  return portion.changes == changes_ && portion.sql == get_sql(true) &&
         (ascending_ ? earliest_ >= portion.earliest : latest_ <= portion.latest);
}

/// Whether no rows of the range come after the portion.
bool ArchiveCursor::is_last_portion() const {
  return portion_.rows.rows() < portion_.wanted && earliest_ >= portion_.earliest &&
         latest_ <= portion_.latest;
}

/// Goes to the first row of the range in the portion. Returns false unless that row is certainly
/// there: after the last row of the portion, or where one can't be read, the server must be asked.
bool ArchiveCursor::go_on_in_portion() {
  std::size_t first = 0;
  for (std::size_t end = portion_.rows.rows(); first < end;) {
    const std::size_t middle = first + (end - first) / 2;
    std::int64_t time = 0;
    if (!portion_.rows.read_time(middle, TIME, time)) return false;
    if (ascending_ ? time < earliest_ : time > latest_) {
      first = middle + 1;
    } else {
      end = middle;
    }
  }
  if (first == portion_.rows.rows()) return false;
  row_ = first;
  look_ahead();
  return take_row();
}

/// Goes to the first row of the range in the portion at hand, or in the one that was sent ahead.
/// Sets `is_placed` to whether it is there.
bool ArchiveCursor::go_on(bool& is_placed) {
  if (portion_.rows.rows() > 0 && is_usable(portion_)) {
    goes_on_ = true;
    portion_size_ = std::min(GROWTH * portion_.wanted, largest_size_);
    is_placed = go_on_in_portion();
  }
  if (is_placed || ahead_ == nullptr || !is_usable(*ahead_)) return true;
  Portion next = std::exchange(*ahead_, Portion());
  if (!connection_.take_ahead(next.rows)) return fail(connection_.error());
  if (next.rows.rows() == 0) return true;
  portion_ = std::move(next);
  is_placed = go_on_in_portion();
  return true;
}

/// Goes to the first row of the range.
bool ArchiveCursor::go_to_range() {
  bool is_placed = false;
  if (wants_values_ && !go_on(is_placed)) return false;
  return is_placed || fetch(0, get_size());
}

bool ArchiveCursor::place(std::int64_t earliest, std::int64_t latest) {
  earliest_ = earliest;
  latest_ = latest;
  return go_to_range();
}

bool ArchiveCursor::advance() {
  if (++row_ < portion_.rows.rows()) return take_row();
  timestamp_ = NO_ROW;
  return is_last_portion() || go_to_range();
}

bool ArchiveCursor::pass(std::uint64_t count) {
  const std::uint64_t rest = portion_.rows.rows() - row_;  // with the current row
  if (timestamp_ == NO_ROW || count < rest) return SeriesCursor::pass(count);
  if (rest > 1) {
    row_ += rest - 1;
    if (!take_row()) return false;
  }
  wants_values_ = true;
  return fetch(count - rest, portion_size_);
}

bool ArchiveCursor::decode(CSnapshot& row) {
  if (!wants_values_) {
    // From the current row on, values are wanted.
    wants_values_ = true;
    (ascending_ ? earliest_ : latest_) = timestamp_;
    if (!fetch(0, portion_size_)) return false;
    if (timestamp_ == NO_ROW) return fail(NOT_A_ROW);
  }
  // A call of the system for each row would cost more than the row.
  constexpr std::size_t ROWS_BETWEEN = 32;
  if (row_ % ROWS_BETWEEN == 0) connection_.take_in();
  row.timestamp = static_cast<std::time_t>(timestamp_);
  if (!portion_.rows.read(row_, VALID_RATIO, row.valid_ratio) ||
      !runs_.unpack(portion_.rows, row_, VALUES, row.samples)) {
    return fail(NOT_A_ROW);
  }
  return true;
}

bool ArchiveCursor::find_before(std::int64_t time, std::int64_t& timestamp) {
  timestamp = NO_ROW;
  Result result;
  Parameters parameters;
  parameters.add_time(1).add_time(time);
  std::string sql = "SELECT time FROM snapshot WHERE series_id = ";
  sql.append(std::to_string(series_id_));
  sql.append(" AND time >= $1 AND time < $2 ORDER BY time DESC LIMIT 1");
  if (!connection_.run(sql, parameters, result)) return fail(connection_.error());
  if (result.rows() == 0 || result.read_time(0, 0, timestamp)) return true;
  return fail(NOT_A_ROW);
}

/// Notes the reason. Later queries do not go on in what this one has read.
bool ArchiveCursor::fail(const std::string& reason) {
  error_ = reason;
  portion_ = Portion();
  return false;
}

}  // namespace toolkit::trend
