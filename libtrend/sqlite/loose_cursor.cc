#include "libtrend/sqlite/loose_cursor.h"

#include <algorithm>
#include <ctime>
#include <span>

#include "libtrend/sqlite/samples.h"
#include "libtrend/sqlite/schema.h"

namespace toolkit::trend {

namespace {

constexpr const char* DAMAGED = "the table of rows is damaged";

}  // namespace

bool check_loose_rows(RowTable& table, const SeriesState& state, std::vector<std::int64_t>& times,
                      std::string& error) {
  times.clear();
  const BorrowedStatement row = table.borrow_walk(true);
  if (!row) {
    error = DAMAGED;
    return false;
  }
  const std::int64_t last = get_row_id(state.series_id, MAX_TIMESTAMP);
  std::int64_t before = get_row_id(state.series_id, state.unchecked_until);
  row->bind(1, before + 1);
  Statement::Step step = row->step();
  for (; step == Statement::Step::ROW && row->read_id(0) <= last; step = row->step()) {
    const std::int64_t id = row->read_id(0);
    double valid_ratio = 0;
    std::span<const unsigned char> samples;
    if (id <= before || !read_row(*row, id, true, valid_ratio, samples)) {
      error = DAMAGED;
      return false;
    }
    times.push_back(id & MAX_TIMESTAMP);
    before = id;
  }
  if (step == Statement::Step::ERROR) {
    error = row->error();
    return false;
  }
  if (static_cast<std::int64_t>(times.size()) == state.loose_rows) return true;
  error = DAMAGED;
  return false;
}

bool LooseCursor::place(std::int64_t earliest, std::int64_t latest) {
  const auto first = std::lower_bound(times_.begin(), times_.end(), earliest);
  const auto end = std::upper_bound(first, times_.end(), latest);
  first_ = static_cast<std::size_t>(first - times_.begin());
  end_ = static_cast<std::size_t>(end - times_.begin());
  return advance();
}

bool LooseCursor::advance() {
  if (first_ == end_) {
    timestamp_ = NO_ROW;
  } else {
    timestamp_ = times_[ascending_ ? first_++ : --end_];
  }
  return true;
}

bool LooseCursor::decode(CSnapshot& row) {
  const std::int64_t id = get_row_id(series_id_, timestamp_);
  row.timestamp = static_cast<std::time_t>(timestamp_);
  const RunningStatement running(&row_);
  row_.bind(1, id);
  const Statement::Step step = row_.step();
  std::span<const unsigned char> samples;
  if (step == Statement::Step::ROW &&
      read_row(row_, id, have_checksums_, row.valid_ratio, samples) &&
      unpack_samples(samples, params_, row.samples)) {
    return true;
  }
  error_ = step == Statement::Step::ERROR ? row_.error() : DAMAGED;
  return false;
}

bool LooseCursor::find_before(std::int64_t time, std::int64_t& timestamp) {
  const auto place = std::lower_bound(times_.begin(), times_.end(), time);
  timestamp = place == times_.begin() ? NO_ROW : *(place - 1);
  return true;
}

}  // namespace toolkit::trend
