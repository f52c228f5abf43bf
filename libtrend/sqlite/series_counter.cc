#include "libtrend/sqlite/series_counter.h"

#include <algorithm>

#include "libtrend/sqlite/schema.h"

namespace toolkit::trend {

namespace {

constexpr const char* ROWS_DAMAGED = "the table of rows is damaged";
constexpr const char* BLOCK_MISSING = "a block is missing";

/// Adds rows with these times to `summary`.
void include(std::int64_t rows, std::int64_t first_time, std::int64_t last_time, std::int64_t bytes,
             CSeriesSummary& summary) {
  if (rows <= 0) return;
  summary.first_time = summary.rows == 0 ? first_time : std::min(summary.first_time, first_time);
  summary.last_time = std::max(summary.last_time, last_time);
  summary.rows += static_cast<std::uint64_t>(rows);
  summary.bytes += static_cast<std::uint64_t>(bytes);
}

// Each row has a time and a share of valid data besides its values. `length` does not read them.
std::string count_rows_of(const char* table) {
  return std::string(
             "SELECT count(*), ifnull(min(rowid), 0), ifnull(max(rowid), 0), "
             "ifnull(sum(length(samples) + 16), 0), ifnull(sum(rowid > ?3), 0) FROM ") +
         table + " WHERE rowid BETWEEN ?1 AND ?2";
}

constexpr const char* COUNT_BLOCKS =
    "SELECT ifnull(sum(rows), 0), ifnull(min(first_time), 0), ifnull(max(rowid), 0), "
    "ifnull(sum(bytes + length(content)), 0), count(*) FROM block WHERE rowid BETWEEN ?1 AND ?2";

}  // namespace

SeriesCounter::SeriesCounter(sqlite3* db, bool has_blocks)
    : has_blocks_(has_blocks), rows_(db, count_rows_of(has_blocks ? "loose" : "snapshot").c_str()) {
  if (!has_blocks) return;
  blocks_ = Statement(db, COUNT_BLOCKS);
  states_ = SeriesStates(db);
}

bool SeriesCounter::count(const CSeries& series, CSeriesSummary& summary, std::string& error) {
  summary = {.minutes = series.minutes};
  SeriesState state;
  state.series_id = series.id;
  if (!has_blocks_) return count_rows(state, summary, error);
  switch (states_.get(series.id, state, error)) {
    case SeriesStates::Result::FOUND:
      return count_rows(state, summary, error) && count_blocks(state, summary, error);
    case SeriesStates::Result::MISSING:
      error = "the state of a series is missing";
      return false;
    case SeriesStates::Result::FAILED:
      return false;
  }
  return false;
}

/// Adds the rows that are stored one by one.
bool SeriesCounter::count_rows(const SeriesState& state, CSeriesSummary& summary,
                               std::string& error) {
  const RunningStatement row(&rows_);
  row->bind(1, get_row_id(state.series_id, 1));
  row->bind(2, get_row_id(state.series_id, MAX_TIMESTAMP));
  row->bind(3, get_row_id(state.series_id, state.unchecked_until));
  std::int64_t rows = 0;
  std::int64_t first = 0;
  std::int64_t last = 0;
  std::int64_t bytes = 0;
  std::int64_t checked = 0;
  if (row->step() != Statement::Step::ROW) {
    error = row->error();
    return false;
  }
  if (!row->read(0, rows) || !row->read(1, first) || !row->read(2, last) || !row->read(3, bytes) ||
      !row->read(4, checked) || (has_blocks_ && checked != state.loose_rows)) {
    error = ROWS_DAMAGED;
    return false;
  }
  include(rows, first & MAX_TIMESTAMP, last & MAX_TIMESTAMP, bytes, summary);
  return true;
}

/// Adds the rows in blocks.
bool SeriesCounter::count_blocks(const SeriesState& state, CSeriesSummary& summary,
                                 std::string& error) {
  const RunningStatement row(&blocks_);
  row->bind(1, get_row_id(state.series_id, 1));
  row->bind(2, get_row_id(state.series_id, MAX_TIMESTAMP));
  std::int64_t rows = 0;
  std::int64_t first = 0;
  std::int64_t last = 0;
  std::int64_t bytes = 0;
  std::int64_t blocks = 0;
  if (row->step() != Statement::Step::ROW) {
    error = row->error();
    return false;
  }
  if (!row->read(0, rows) || !row->read(1, first) || !row->read(2, last) || !row->read(3, bytes) ||
      !row->read(4, blocks) || blocks != state.blocks || rows != state.sealed_rows ||
      (last & MAX_TIMESTAMP) != state.last_block) {
    error = BLOCK_MISSING;
    return false;
  }
  include(rows, first, last & MAX_TIMESTAMP, bytes, summary);
  return true;
}

}  // namespace toolkit::trend
