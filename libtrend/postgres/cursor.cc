#include "libtrend/postgres/cursor.h"

#include <algorithm>
#include <ctime>

namespace toolkit::trend {

namespace {

/// How many bytes of values a portion may have.
constexpr std::size_t PORTION_BYTES = std::size_t{1} << 20;
constexpr std::size_t VALUE_BYTES = 12;  // with its length
/// Portions grow, so that a query for few rows reads few.
constexpr std::uint64_t GROWTH = 4;

enum Column : std::size_t { TIME, VALID_RATIO, VALUES };

}  // namespace

ArchiveCursor::ArchiveCursor(Connection& connection, const CSeries& series, std::int64_t changes,
                             const std::vector<CParamProperties>& params, bool ascending,
                             const RowsWanted& wanted, Portion& portion, std::string& error)
    : connection_(connection),
      series_id_(series.id),
      changes_(changes),
      ascending_(ascending),
      portion_(portion),
      error_(error),
      runs_(params),
      largest_size_(std::clamp<std::uint64_t>(PORTION_BYTES / (VALUE_BYTES * (runs_.slots() + 1)),
                                              1, MAX_ROWS)),
      portion_size_(std::min(wanted.rows, largest_size_)),
      skip_size_(std::min(wanted.skipped, MAX_ROWS) + std::min(wanted.rows, MAX_ROWS)),
      wants_values_(wanted.skipped == 0) {}

std::string ArchiveCursor::get_sql(bool with_values) const {
  std::string sql = "SELECT time";
  if (with_values) sql.append(", valid_ratio").append(runs_.columns());
  // As a constant, the id tells the planner which partition it needs.
  sql.append(" FROM snapshot WHERE series_id = ").append(std::to_string(series_id_));
  sql.append(" AND time BETWEEN $1 AND $2 ORDER BY time");
  return sql.append(ascending_ ? "" : " DESC").append(" LIMIT $3 OFFSET $4");
}

/// Fetches the portion of `size` rows that comes after the next `offset`, and goes to its first
/// row.
bool ArchiveCursor::fetch(std::uint64_t offset, std::uint64_t size) {
  timestamp_ = NO_ROW;
  row_ = 0;
  portion_ = {.changes = changes_,
              .sql = get_sql(wants_values_),
              .earliest = earliest_,
              .latest = latest_,
              .wanted = size,
              .rows = Result()};
  if (earliest_ > latest_) return true;
  Parameters parameters;
  parameters.add_time(earliest_).add_time(latest_);
  parameters.add(static_cast<std::int64_t>(size)).add(static_cast<std::int64_t>(offset));
  if (!connection_.run(portion_.sql, parameters, portion_.rows)) {
    error_ = connection_.error();
    return false;
  }
  if (wants_values_) portion_size_ = std::min(GROWTH * portion_size_, largest_size_);
  if (portion_.rows.rows() == 0) return true;
  if (!take_row()) return false;
  if (offset > 0) (ascending_ ? portion_.earliest : portion_.latest) = timestamp_;
  return true;
}

/// Takes the time of the current row over, unless it is beyond the range.
bool ArchiveCursor::take_row() {
  if (!portion_.rows.read_time(row_, TIME, timestamp_)) return fail_as_damaged();
  if (ascending_ ? timestamp_ > latest_ : timestamp_ < earliest_) {
    timestamp_ = NO_ROW;
    latest_ = earliest_ - 1;
    return true;
  }
  if (ascending_ ? timestamp_ < earliest_ : timestamp_ > latest_) return fail_as_damaged();
  if (ascending_) {
    earliest_ = timestamp_ + 1;
  } else {
    latest_ = timestamp_ - 1;
  }
  return true;
}

/// Goes to the first row of the range in the portion that an earlier cursor left, if that row must
/// be there. Sets `is_placed` to whether it is.
bool ArchiveCursor::go_on_in_portion(bool& is_placed) {
  is_placed = false;
  const std::size_t count = portion_.rows.rows();
  if (portion_.changes != changes_ || portion_.sql != get_sql(true) || count == 0 ||
      (ascending_ ? earliest_ < portion_.earliest : latest_ > portion_.latest)) {
    return true;
  }
  // The query goes on, so it will want more.
  portion_size_ = std::min(GROWTH * portion_.wanted, largest_size_);
  std::size_t first = 0;
  for (std::size_t end = count; first < end;) {
    const std::size_t middle = first + (end - first) / 2;
    std::int64_t time = 0;
    if (!portion_.rows.read_time(middle, TIME, time)) return fail_as_damaged();
    if (ascending_ ? time < earliest_ : time > latest_) {
      first = middle + 1;
    } else {
      end = middle;
    }
  }
  if (first == count) return true;
  row_ = first;
  is_placed = true;
  return take_row();
}

bool ArchiveCursor::place(std::int64_t earliest, std::int64_t latest) {
  earliest_ = earliest;
  latest_ = latest;
  bool is_placed = false;
  if (wants_values_ && !go_on_in_portion(is_placed)) return false;
  return is_placed || fetch(0, get_size());
}

bool ArchiveCursor::advance() {
  if (++row_ < portion_.rows.rows()) return take_row();
  timestamp_ = NO_ROW;
  const bool is_last = portion_.rows.rows() < portion_.wanted && earliest_ >= portion_.earliest &&
                       latest_ <= portion_.latest;
  return is_last || fetch(0, get_size());
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
    if (timestamp_ == NO_ROW) return fail_as_damaged();
  }
  row.timestamp = static_cast<std::time_t>(timestamp_);
  if (!portion_.rows.read(row_, VALID_RATIO, row.valid_ratio) ||
      !runs_.unpack(portion_.rows, row_, VALUES, row.samples)) {
    return fail_as_damaged();
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
  if (!connection_.run(sql, parameters, result)) {
    error_ = connection_.error();
    return false;
  }
  return result.rows() == 0 || result.read_time(0, 0, timestamp) || fail_as_damaged();
}

bool ArchiveCursor::fail_as_damaged() {
  error_ = "the archive has a row that is not one of a trend";
  return false;
}

}  // namespace toolkit::trend
