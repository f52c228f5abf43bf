#include "libtrend/sqlite/loose_cursor.h"

#include <algorithm>
#include <ctime>
#include <span>

#include "libtrend/sqlite/damage_text.h"
#include "libtrend/sqlite/samples.h"
#include "libtrend/sqlite/schema.h"
#include "libtrend/statistics.h"

namespace toolkit::trend {

namespace {

/// The samples of a series' rows are kept if they take at most so many bytes.
constexpr std::size_t MAX_KEPT = 65536;

/// Whether the samples of these rows are to be kept.
bool is_narrow(std::int64_t rows, std::size_t params) {
  const std::size_t row_size = sizeof(double) + params * sizeof(CSample);
  return static_cast<std::uint64_t>(rows) <= MAX_KEPT / row_size;
}

bool have_same_slots(const std::vector<CParamProperties>& some,
                     const std::vector<CParamProperties>& others) {
  return std::equal(some.begin(), some.end(), others.begin(), others.end(),
                    [](const CParamProperties& one, const CParamProperties& other) {
                      return one.aux_1 == other.aux_1 &&
                             get_statistics(one) == get_statistics(other);
                    });
}

}  // namespace

bool check_loose_rows(RowTable& table, const SeriesState& state,
                      const std::vector<CParamProperties>& params, CheckedRows& rows,
                      std::string& error) {
  rows = {};
  const bool keeps_samples = is_narrow(state.loose_rows, params.size());
  if (keeps_samples) rows.params = params;
  std::vector<CSample> unpacked;
  const BorrowedStatement row = table.borrow_walk(true);
  if (!row) {
    error = ROWS_DAMAGED;
    return false;
  }
  const std::int64_t last = get_row_id(state.series_id, MAX_TIMESTAMP);
  std::int64_t before = get_row_id(state.series_id, state.unchecked_until);
  Statement::Step step = Statement::Step::DONE;
  if (before < last) {
    row->bind(1, before + 1);
    step = row->step();
  }
  for (; step == Statement::Step::ROW && row->read_whole(0) <= last; step = row->step()) {
    const std::int64_t id = row->read_whole(0);
    double valid_ratio = 0;
    std::span<const unsigned char> samples;
    if (id <= before || !read_row(*row, id, true, valid_ratio, samples)) {
      error = ROWS_DAMAGED;
      return false;
    }
    rows.times.push_back(id & MAX_TIMESTAMP);
    rows.bytes += sizeof id + sizeof valid_ratio + samples.size();
    before = id;
    if (keeps_samples && unpack_samples(samples, params, unpacked)) {
      rows.valid_ratios.push_back(valid_ratio);
      rows.samples.insert(rows.samples.end(), unpacked.begin(), unpacked.end());
    }
  }
  if (step == Statement::Step::ERROR) {
    error = row->error();
    return false;
  }
  if (static_cast<std::int64_t>(rows.times.size()) == state.loose_rows) return true;
  error = ROWS_DAMAGED;
  return false;
}

LooseCursor::LooseCursor(Statement& row, const CheckedRows& rows, const CSeries& series,
                         const std::vector<CParamProperties>& params, bool ascending,
                         bool have_checksums, std::string& error)
    : row_(row),
      rows_(rows),
      series_id_(series.id),
      params_(params),
      ascending_(ascending),
      have_checksums_(have_checksums),
      error_(error),
      has_samples_(rows.valid_ratios.size() == rows.times.size() &&
                   have_same_slots(rows.params, params)) {}

bool LooseCursor::place(std::int64_t earliest, std::int64_t latest) {
  const std::vector<std::int64_t>& times = rows_.times;
  const auto first = std::lower_bound(times.begin(), times.end(), earliest);
  const auto end = std::upper_bound(first, times.end(), latest);
  first_ = static_cast<std::size_t>(first - times.begin());
  end_ = static_cast<std::size_t>(end - times.begin());
  return advance();
}

bool LooseCursor::advance() {
  if (first_ == end_) {
    timestamp_ = NO_ROW;
  } else {
    index_ = ascending_ ? first_++ : --end_;
    timestamp_ = rows_.times[index_];
  }
  return true;
}

bool LooseCursor::decode(CSnapshot& row) {
  row.timestamp = static_cast<std::time_t>(timestamp_);
  if (has_samples_) {
    row.valid_ratio = rows_.valid_ratios[index_];
    const CSample* const first = rows_.samples.data() + index_ * params_.size();
    row.samples.assign(first, first + params_.size());
    return true;
  }
  const std::int64_t id = get_row_id(series_id_, timestamp_);
  const RunningStatement running(&row_);
  row_.bind(1, id);
  const Statement::Step step = row_.step();
  std::span<const unsigned char> samples;
  if (step == Statement::Step::ROW &&
      read_row(row_, id, have_checksums_, row.valid_ratio, samples) &&
      unpack_samples(samples, params_, row.samples)) {
    return true;
  }
  error_ = step == Statement::Step::ERROR ? row_.error() : ROWS_DAMAGED;
  return false;
}

bool LooseCursor::find_before(std::int64_t time, std::int64_t& timestamp) {
  const std::vector<std::int64_t>& times = rows_.times;
  const auto place = std::lower_bound(times.begin(), times.end(), time);
  timestamp = place == times.begin() ? NO_ROW : *(place - 1);
  return true;
}

}  // namespace toolkit::trend
