#include "libtrend/sqlite/series_counter.h"

#include <algorithm>

#include "libtrend/sqlite/block_table.h"
#include "libtrend/sqlite/damage_text.h"
#include "libtrend/sqlite/loose_cursor.h"
#include "libtrend/sqlite/schema.h"

namespace toolkit::trend {

namespace {

/// Adds what was counted to `summary`.
void include(const CSeriesSummary& counted, CSeriesSummary& summary) {
  if (counted.rows == 0) return;
  const bool is_first = summary.rows == 0;
  summary.first_time =
      is_first ? counted.first_time : std::min(summary.first_time, counted.first_time);
  summary.last_time = std::max(summary.last_time, counted.last_time);
  summary.rows += counted.rows;
  summary.bytes += counted.bytes;
}

// Each row has a time and a share of valid data besides its values. `length` does not read them.
std::string count_rows_of(const char* table) {
  return std::string(
             "SELECT count(*), ifnull(min(rowid), 0), ifnull(max(rowid), 0), "
             "ifnull(sum(length(samples) + 16), 0) FROM ") +
         table + " WHERE rowid BETWEEN ?1 AND ?2";
}

}  // namespace

SeriesCounter::SeriesCounter(sqlite3* db, bool has_blocks)
    : has_blocks_(has_blocks), rows_(db, count_rows_of(has_blocks ? "loose" : "snapshot").c_str()) {
  if (!has_blocks) return;
  loose_ = std::make_unique<RowTable>(db, "loose", "checksum");
  blocks_ = Statement(db, READ_BLOCK_HEADS);
  states_ = SeriesStates(db);
}

SeriesCounter::operator bool() const {
  return rows_ && (!has_blocks_ || (*loose_ && blocks_ && states_));
}

bool SeriesCounter::count(const CSeries& series, CSeriesSummary& summary, std::string& error) {
  summary = {.minutes = series.minutes};
  SeriesState state;
  state.series_id = series.id;
  state.unchecked_until = MAX_TIMESTAMP;
  if (!has_blocks_) return count_unchecked_rows(state, summary, error);
  switch (states_.get(series.id, state, error)) {
    case SeriesStates::Result::FOUND:
      return count_unchecked_rows(state, summary, error) &&
             count_loose_rows(state, summary, error) && count_blocks(state, summary, error);
    case SeriesStates::Result::MISSING:
      error = STATE_MISSING;
      return false;
    case SeriesStates::Result::FAILED:
      return false;
  }
  return false;
}

/// Adds the rows that have no checksums.
bool SeriesCounter::count_unchecked_rows(const SeriesState& state, CSeriesSummary& summary,
                                         std::string& error) {
  if (state.unchecked_until == 0) return true;
  const RunningStatement row(&rows_);
  row->bind(1, get_row_id(state.series_id, 1));
  row->bind(2, get_row_id(state.series_id, state.unchecked_until));
  if (row->step() != Statement::Step::ROW) {
    error = row->error();
    return false;
  }
  include({.rows = static_cast<std::uint64_t>(row->read_whole(0)),
           .first_time = row->read_whole(1) & MAX_TIMESTAMP,
           .last_time = row->read_whole(2) & MAX_TIMESTAMP,
           .bytes = static_cast<std::uint64_t>(row->read_whole(3))},
          summary);
  return true;
}

/// Adds the loose rows that have checksums.
bool SeriesCounter::count_loose_rows(const SeriesState& state, CSeriesSummary& summary,
                                     std::string& error) {
  CheckedRows rows;
  if (!check_loose_rows(*loose_, state, {}, rows, error)) return false;
  if (rows.times.empty()) return true;
  include({.rows = rows.times.size(),
           .first_time = rows.times.front(),
           .last_time = rows.times.back(),
           .bytes = rows.bytes},
          summary);
  return true;
}

/// Adds the rows in blocks.
bool SeriesCounter::count_blocks(const SeriesState& state, CSeriesSummary& summary,
                                 std::string& error) {
  const RunningStatement row(&blocks_);
  row->bind(1, get_row_id(state.series_id, 1));
  row->bind(2, get_row_id(state.series_id, MAX_TIMESTAMP));
  CSeriesSummary counted;
  BlockHead head;
  std::int64_t blocks = 0;
  BlockTable::Result result = read_block_head(*row, head, error);
  for (; result == BlockTable::Result::FOUND; result = read_block_head(*row, head, error)) {
    if (head.previous != counted.last_time) break;
    ++blocks;
    include({.rows = static_cast<std::uint64_t>(head.rows),
             .first_time = head.first_time,
             .last_time = head.last_time,
             .bytes = static_cast<std::uint64_t>(head.bytes) + head.content.size()},
            counted);
  }
  if (result == BlockTable::Result::FAILED) return false;
  if (result == BlockTable::Result::FOUND || blocks != state.blocks ||
      counted.last_time != state.last_block ||
      counted.rows != static_cast<std::uint64_t>(state.sealed_rows)) {
    error = BLOCK_MISSING;
    return false;
  }
  include(counted, summary);
  return true;
}

}  // namespace toolkit::trend
