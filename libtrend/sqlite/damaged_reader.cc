#include "libtrend/sqlite/damaged_reader.h"

#include <utility>

#include "libtrend/sqlite/block_reader.h"
#include "libtrend/sqlite/damage_text.h"
#include "libtrend/sqlite/mixed_cursor.h"
#include "libtrend/sqlite/schema.h"
#include "libtrend/statistics.h"

namespace toolkit::trend {

namespace {

/// Returns the parameter that has the value at `index` among all values of `params`.
const CParamProperties& find_param(const std::vector<CParamProperties>& params, std::size_t index) {
  const auto count_values = [](const CParamProperties& param) {
    return get_slot(param, STATISTICS.size()) - param.aux_1;
  };
  auto param = params.begin();
  for (; index >= count_values(*param); ++param) index -= count_values(*param);
  return *param;
}

}  // namespace

std::string find_device_path(sqlite3* db, std::int64_t series_id) {
  Statement row(db,
                "SELECT path FROM device NOT INDEXED WHERE id = "
                "(SELECT device_id FROM series NOT INDEXED WHERE id = ?1)");
  std::string path;
  if (!row) return path;
  row.bind(1, series_id);
  if (row.step() != Statement::Step::ROW || !row.read(0, path)) path.clear();
  return path;
}

DamagedReader::DamagedReader(sqlite3* db, std::int64_t version, DamageList& damage,
                             std::string& error)
    : db_(db), version_(version), damage_(damage), error_(error), finder_(db, version) {
  const bool has_blocks = version != ROWS_ONLY_VERSION;
  row_ = Statement(db, has_blocks ? LooseCursor::ROW : LooseCursor::ROW_OF_VERSION_1);
  if (has_blocks) blocks_ = BlockTable(db);
}

void DamagedReader::start_query(bool has_changed) {
  ++query_;
  if (!has_changed) return;
  series_.clear();
  if (version_ == ROWS_ONLY_VERSION) return;
  std::string reason = TABLE_MISSING;
  BlockReader strict(db_, reason);
  if (strict && strict.start_query(true)) return;
  damage_.insert({.device = "", .param = "", .text = reason});
}

/// Returns what is left of a series.
DamagedReader::Series& DamagedReader::find_series(const CSeries& series) {
  const auto known = series_.find(series.id);
  if (known != series_.end()) return *known->second;
  // The times of rows take memory, so only the series of one query are remembered.
  std::erase_if(series_, [&](const auto& entry) { return entry.second->query != query_; });
  auto found = std::make_unique<Series>(series);
  found->device = find_device_path(db_, series.id);
  const auto lose = [&](CTimeRange range, const std::string& reason) {
    damage_.insert({.device = found->device,
                    .minutes = series.minutes,
                    .param = "",
                    .first = range.first,
                    .last = range.last,
                    .text = reason});
  };
  std::optional<Remains> remains = finder_.find(
      series, lose, [](const auto&, const auto&) {}, [](std::uint64_t) { return true; });
  found->loose.times = std::move(remains->loose);
  found->blocks.ends = std::move(remains->blocks);
  found->state.series_id = series.id;
  if (!found->blocks.ends.empty()) {
    found->state.first_block = found->blocks.ends.front();
    found->state.last_block = found->blocks.ends.back();
  }
  found->chain = std::make_unique<BlockChain>(blocks_, found->state, found->blocks, error_);
  return *(series_[series.id] = std::move(found));
}

std::unique_ptr<SeriesCursor> DamagedReader::make_cursor(
    const CSeries& series, const std::vector<CParamProperties>& params, bool ascending) {
  Series& known = find_series(series);
  known.query = query_;
  known.blocks.lose_values = [this, &known, &params](const BlockHead& head, std::size_t index) {
    damage_.insert({.device = known.device,
                    .minutes = known.series.minutes,
                    .param = find_param(params, index).path,
                    .first = head.first_time,
                    .last = head.last_time,
                    .text = "the values of a parameter are damaged"});
  };
  auto blocks = std::make_unique<BlockCursor>(*known.chain, params, ascending);
  std::vector<std::unique_ptr<SeriesCursor>> loose;
  loose.push_back(
      std::make_unique<LooseCursor>(row_, known.loose, series, params, ascending, false, error_));
  return std::make_unique<MixedCursor>(std::move(blocks), std::move(loose), ascending, error_);
}

}  // namespace toolkit::trend
