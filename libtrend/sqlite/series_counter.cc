#include "libtrend/sqlite/series_counter.h"

#include <algorithm>

#include "libtrend/sqlite/schema.h"

namespace toolkit::trend {

namespace {

constexpr const char* ROWS_DAMAGED = "the table of rows is damaged";
constexpr const char* BLOCK_MISSING = "a block is missing";

/// The row that one of the statements returns.
struct Counts {
  std::int64_t rows = 0;
  std::int64_t first_time = 0;  ///< as these times, or as the rowids that they are part of
  std::int64_t last_time = 0;
  std::int64_t bytes = 0;
  std::int64_t recorded = 0;  ///< what the state of the series counts, too
};

/// Runs `statement` for a series. Returns false on failure, with `damage` in `error` if a column
/// has the wrong type.
bool read_counts(Statement& statement, std::int64_t series_id, const char* damage, Counts& counts,
                 std::string& error) {
  const RunningStatement row(&statement);
  row->bind(1, get_row_id(series_id, 1));
  row->bind(2, get_row_id(series_id, MAX_TIMESTAMP));
  if (row->step() != Statement::Step::ROW) {
    error = row->error();
    return false;
  }
  error = damage;
  return row->read(0, counts.rows) && row->read(1, counts.first_time) &&
         row->read(2, counts.last_time) && row->read(3, counts.bytes) &&
         row->read(4, counts.recorded);
}

/// Adds what was counted to `summary`.
void include(const Counts& counts, CSeriesSummary& summary) {
  if (counts.rows <= 0) return;
  const std::int64_t first = counts.first_time & MAX_TIMESTAMP;
  summary.first_time = summary.rows == 0 ? first : std::min(summary.first_time, first);
  summary.last_time = std::max(summary.last_time, counts.last_time & MAX_TIMESTAMP);
  summary.rows += static_cast<std::uint64_t>(counts.rows);
  summary.bytes += static_cast<std::uint64_t>(counts.bytes);
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
  Counts counts;
  rows_.bind(3, get_row_id(state.series_id, state.unchecked_until));
  if (!read_counts(rows_, state.series_id, ROWS_DAMAGED, counts, error)) return false;
  if (has_blocks_ && counts.recorded != state.loose_rows) {
    error = ROWS_DAMAGED;
    return false;
  }
  include(counts, summary);
  return true;
}

/// Adds the rows in blocks.
bool SeriesCounter::count_blocks(const SeriesState& state, CSeriesSummary& summary,
                                 std::string& error) {
  Counts counts;
  if (!read_counts(blocks_, state.series_id, BLOCK_MISSING, counts, error)) return false;
  if (counts.recorded != state.blocks || counts.rows != state.sealed_rows ||
      (counts.last_time & MAX_TIMESTAMP) != state.last_block) {
    error = BLOCK_MISSING;
    return false;
  }
  include(counts, summary);
  return true;
}

}  // namespace toolkit::trend
