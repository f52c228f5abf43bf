#include "libtrend/postgres/cursor.h"

#include <algorithm>
#include <ctime>

#include "libtrend/postgres/wire_time.h"

namespace toolkit::trend {

namespace {

/// How many bytes of values a portion may have, and how many rows.
constexpr std::size_t PORTION_BYTES = std::size_t{1} << 20;
constexpr std::size_t PORTION_ROWS = 512;
constexpr std::size_t VALUE_BYTES = 12;  // with its length

enum Column : std::size_t { TIME, VALID_RATIO, VALUES };

}  // namespace

ArchiveCursor::ArchiveCursor(Connection& connection, const CSeries& series,
                             const std::vector<CParamProperties>& params, bool ascending,
                             const RowsWanted& wanted, std::string& error)
    : connection_(connection),
      series_id_(series.id),
      ascending_(ascending),
      error_(error),
      runs_(params),
      largest_portion_(std::clamp<std::size_t>(PORTION_BYTES / (VALUE_BYTES * (runs_.slots() + 1)),
                                               1, PORTION_ROWS)),
      first_portion_(std::min(wanted.rows, largest_portion_)),
      wants_values_(wanted.skipped == 0) {}

std::string ArchiveCursor::get_sql() const {
  std::string sql = "SELECT time";
  if (wants_values_) sql.append(", valid_ratio").append(runs_.columns());
  sql.append(" FROM snapshot WHERE series_id = $1 AND time BETWEEN $2 AND $3 ORDER BY time");
  return sql.append(ascending_ ? "" : " DESC").append(" LIMIT $4 OFFSET $5");
}

/// Fetches the portion of `rows` rows that comes after the next `offset`, and goes to its first
/// row.
bool ArchiveCursor::fetch(std::uint64_t offset, std::uint64_t rows) {
  timestamp_ = NO_ROW;
  row_ = 0;
  is_last_portion_ = true;
  portion_ = Result();
  if (earliest_ > latest_) return true;
  Parameters parameters;
  parameters.add(series_id_).add_time(earliest_).add_time(latest_);
  parameters.add(static_cast<std::int64_t>(rows)).add(static_cast<std::int64_t>(offset));
  if (!connection_.run(get_sql(), parameters, portion_)) {
    error_ = connection_.error();
    return false;
  }
  has_values_ = wants_values_;
  is_last_portion_ = portion_.rows() < rows;
  return portion_.rows() == 0 || take_row();
}

/// Takes the time of the current row over.
bool ArchiveCursor::take_row() {
  if (!portion_.read_time(row_, TIME, timestamp_) || timestamp_ < earliest_ ||
      timestamp_ > latest_) {
    return fail_as_damaged();
  }
  if (ascending_) {
    earliest_ = timestamp_ + 1;
  } else {
    latest_ = timestamp_ - 1;
  }
  return true;
}

bool ArchiveCursor::place(std::int64_t earliest, std::int64_t latest) {
  earliest_ = earliest;
  latest_ = latest;
  return fetch(0, wants_values_ ? first_portion_ : PORTION_ROWS);
}

bool ArchiveCursor::advance() {
  if (++row_ < portion_.rows()) return take_row();
  if (!is_last_portion_) return fetch(0, wants_values_ ? largest_portion_ : PORTION_ROWS);
  timestamp_ = NO_ROW;
  return true;
}

bool ArchiveCursor::pass(std::uint64_t count) {
  // The row that is current counts, so it is one more than the rows behind it.
  const std::uint64_t rest = portion_.rows() - row_;
  if (timestamp_ == NO_ROW || count < rest || is_last_portion_) return SeriesCursor::pass(count);
  row_ = portion_.rows() - 1;
  if (!take_row()) return false;
  wants_values_ = true;
  return fetch(count - rest, first_portion_);
}

bool ArchiveCursor::decode(CSnapshot& row) {
  if (!has_values_) {
    // From the current row on, values are wanted.
    wants_values_ = true;
    (ascending_ ? earliest_ : latest_) = timestamp_;
    if (!fetch(0, first_portion_)) return false;
    if (timestamp_ == NO_ROW) return fail_as_damaged();
  }
  row.timestamp = static_cast<std::time_t>(timestamp_);
  if (!portion_.read(row_, VALID_RATIO, row.valid_ratio) ||
      !runs_.unpack(portion_, row_, VALUES, row.samples)) {
    return fail_as_damaged();
  }
  return true;
}

bool ArchiveCursor::find_before(std::int64_t time, std::int64_t& timestamp) {
  timestamp = NO_ROW;
  Result result;
  Parameters parameters;
  parameters.add(series_id_).add_time(1).add_time(time);
  if (!connection_.run("SELECT time FROM snapshot WHERE series_id = $1 AND time >= $2 AND "
                       "time < $3 ORDER BY time DESC LIMIT 1",
                       parameters, result)) {
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
