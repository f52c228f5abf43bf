#include "libtrend/sqlite/block_reader.h"

#include <sqlite3.h>

#include <utility>

#include "libtrend/sqlite/damage_text.h"
#include "libtrend/sqlite/loose_rows.h"
#include "libtrend/sqlite/mixed_cursor.h"
#include "libtrend/sqlite/series_changes.h"

namespace toolkit::trend {

BlockReader::BlockReader(sqlite3* db, std::string& error)
    : db_(db),
      error_(error),
      database_(db, "SELECT uuid, next_block, catalogue, checksum FROM database WHERE rowid = 1"),
      loose_row_(db, LooseCursor::ROW),
      loose_(db, "loose", "checksum"),
      blocks_(db),
      states_(db) {}

BlockReader::operator bool() const {
  return database_ && loose_row_ && loose_ && blocks_ && states_;
}

bool BlockReader::start_query(bool has_changed) {
  ++query_;
  if (has_changed) {
    is_catalogue_checked_ = false;
    series_.clear();
  }
  is_catalogue_checked_ = is_catalogue_checked_ || check_catalogue();
  return is_catalogue_checked_;
}

bool BlockReader::check_catalogue() {
  const RunningStatement row(&database_);
  const Statement::Step step = row->step();
  if (step == Statement::Step::ERROR) {
    error_ = row->error();
    return false;
  }
  std::int64_t next_block = 0;
  std::int64_t expected = 0;
  std::int64_t checksum = 0;
  std::uint32_t catalogue = 0;
  if (step == Statement::Step::ROW && row->read(0, uuid_) && row->read(1, next_block) &&
      row->read(2, expected) && row->read(3, checksum) &&
      checksum == std::int64_t{get_database_checksum(uuid_, next_block, expected)} &&
      get_catalogue_checksum(db_, catalogue) && expected == std::int64_t{catalogue}) {
    return true;
  }
  error_ = CATALOGUE_DAMAGED;
  return false;
}

/// Returns what is known of a series, after its state and its loose rows were checked. Returns null
/// on failure.
BlockReader::Series* BlockReader::find_series(std::int64_t id,
                                              const std::vector<CParamProperties>& params) {
  const auto known = series_.find(id);
  if (known != series_.end()) return known->second.get();
  // The values of a block take memory, so only the series of one query are remembered.
  if (std::exchange(forgot_before_, query_) != query_) {
    std::erase_if(series_, [&](const auto& entry) { return entry.second->query != query_; });
  }
  auto series = std::make_unique<Series>(blocks_, error_);
  switch (states_.get(id, series->state, error_)) {
    case SeriesStates::Result::FOUND:
      break;
    case SeriesStates::Result::MISSING:
      error_ = STATE_MISSING;
      return nullptr;
    case SeriesStates::Result::FAILED:
      return nullptr;
  }
  if (!check_loose_rows(loose_, series->state, params, series->loose, error_)) return nullptr;
  return (series_[id] = std::move(series)).get();
}

std::unique_ptr<SeriesCursor> BlockReader::make_cursor(const CSeries& series,
                                                       const std::vector<CParamProperties>& params,
                                                       bool ascending) {
  Series* known = find_series(series.id, params);
  if (known == nullptr) return nullptr;
  known->query = query_;
  auto blocks = std::make_unique<BlockCursor>(known->chain, params, ascending);
  std::vector<std::unique_ptr<SeriesCursor>> loose;
  if (!known->loose.times.empty()) {
    loose.push_back(std::make_unique<LooseCursor>(loose_row_, known->loose, series, params,
                                                  ascending, true, error_));
  }
  if (known->state.unchecked_until != 0) {
    BorrowedStatement walk = loose_.borrow_walk(ascending);
    if (!walk) {
      error_ = sqlite3_errmsg(db_);
      return nullptr;
    }
    loose.push_back(std::make_unique<RowCursor>(loose_, std::move(walk), series, params, ascending,
                                                known->state.unchecked_until, error_));
  }
  if (loose.empty()) return blocks;
  return std::make_unique<MixedCursor>(std::move(blocks), std::move(loose), ascending, error_);
}

bool BlockReader::get_changes(const CSeries& series, std::uint64_t since, CSeriesChanges& changes) {
  Series* known = find_series(series.id, {});
  if (known == nullptr) return false;
  known->query = query_;
  LooseRows loose(db_);
  if (!loose) {
    error_ = sqlite3_errmsg(db_);
    return false;
  }
  return find_changes(loose, known->loose.times, known->chain, known->state, since, changes,
                      error_);
}

}  // namespace toolkit::trend
