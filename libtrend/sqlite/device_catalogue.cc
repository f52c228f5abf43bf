#include "libtrend/sqlite/device_catalogue.h"

#include <algorithm>
#include <limits>
#include <utility>

#include "libtrend/sqlite/damage_text.h"
#include "libtrend/sqlite/schema.h"
#include "libtrend/statistics.h"

namespace toolkit::trend {

DeviceCatalogue::Table::Table(sqlite3* db, const std::string& name, const std::string& columns)
    : of_device(
          db,
          ("SELECT " + columns + " FROM " + name + " NOT INDEXED WHERE device_id = ?1").c_str()),
      by_id(db, ("SELECT " + columns + " FROM " + name + " WHERE id = ?1").c_str()),
      owners(db, ("SELECT device_id, id FROM " + name + " NOT INDEXED").c_str()) {}

void DeviceCatalogue::Table::forget() {
  ids = {};
  has_ids = false;
  asked = 0;
}

DeviceCatalogue::DeviceCatalogue(sqlite3* db)
    : params_(db, "parameter", "path, statistics, first_slot"),
      series_(db, "series", "id, minutes") {}

DeviceCatalogue::operator bool() const { return params_ && series_; }

void DeviceCatalogue::forget() {
  params_.forget();
  series_.forget();
  has_known_series_ = false;
}

/// Calls `take_row` on the rows of a device in any order. Returns false on failure.
bool DeviceCatalogue::for_rows_of(Table& table, std::int64_t device_id, const TakeRow& take_row,
                                  const LoseCatalogue& lose) {
  // To look at all rows for each of many devices would take very long.
  constexpr int FEW = 3;
  if (!table.has_ids && ++table.asked <= FEW) {
    table.of_device.bind(1, device_id);
    return for_each_row(table.of_device, take_row, lose);
  }
  if (!table.has_ids) {
    const auto take_owner = [&](const Statement& row) {
      auto& [device, id] = table.ids.emplace_back();
      return row.read(0, device) && row.read(1, id);
    };
    if (!for_each_row(table.owners, take_owner, lose)) return false;
    std::sort(table.ids.begin(), table.ids.end());
    table.has_ids = true;
  }
  constexpr std::int64_t FIRST = std::numeric_limits<std::int64_t>::min();
  auto place = std::lower_bound(table.ids.begin(), table.ids.end(), std::pair(device_id, FIRST));
  for (; place != table.ids.end() && place->first == device_id; ++place) {
    table.by_id.bind(1, place->second);
    bool is_there = false;
    const auto take = [&](const Statement& row) {
      is_there = true;
      return take_row(row);
    };
    if (!for_each_row(table.by_id, take, lose)) return false;
    if (!is_there && !lose(CATALOGUE_DAMAGED)) return false;
  }
  return true;
}

bool DeviceCatalogue::get_params(std::int64_t device_id, std::int64_t version,
                                 std::vector<CParamProperties>& params, const LoseCatalogue& lose) {
  const std::size_t size = params.size();
  const auto take_row = [&](const Statement& row) {
    CParamProperties param;
    std::int64_t statistics = 0;
    std::int64_t first_slot = 0;
    if (!row.read(0, param.path) || !row.read(1, statistics) || !row.read(2, first_slot) ||
        statistics < 0 || statistics > ALL_STATISTICS || first_slot < 0 ||
        params.size() - size == MAX_DEVICE_SLOTS) {
      return false;
    }
    // No row is long enough for slots that the field can't hold.
    constexpr std::int64_t MAX_SLOT = std::numeric_limits<std::uint32_t>::max();
    param.aux_1 = static_cast<std::uint32_t>(std::min(first_slot, MAX_SLOT));
    set_statistics(param, static_cast<std::uint32_t>(statistics));
    const bool has_limit = version != ROWS_ONLY_VERSION;
    if (has_limit && get_slot(param, STATISTICS.size()) > MAX_DEVICE_SLOTS) return false;
    params.push_back(std::move(param));
    return true;
  };
  if (!for_rows_of(params_, device_id, take_row, lose)) return false;
  std::sort(params.begin() + static_cast<std::ptrdiff_t>(size), params.end(),
            [](const auto& a, const auto& b) { return a.path < b.path; });
  return true;
}

bool DeviceCatalogue::get_series(std::int64_t device_id, std::int64_t version,
                                 std::vector<CSeries>& series, const LoseCatalogue& lose) {
  // A dump asks again and again for the series of one device.
  if (!has_known_series_ || known_device_ != device_id) {
    has_known_series_ = false;
    known_series_.clear();
    if (!find_series(device_id, version, known_series_, lose)) return false;
    known_device_ = device_id;
    has_known_series_ = true;
  }
  series.insert(series.end(), known_series_.begin(), known_series_.end());
  return true;
}

bool DeviceCatalogue::find_series(std::int64_t device_id, std::int64_t version,
                                  std::vector<CSeries>& series, const LoseCatalogue& lose) {
  const auto take_row = [&](const Statement& row) {
    std::int64_t id = 0;
    std::int64_t minutes = 0;
    if (!row.read(0, id) || !row.read(1, minutes) || minutes <= 0 || !is_series_id(id) ||
        series.size() == max_device_series(version)) {
      return false;
    }
    if (minutes <= std::numeric_limits<std::uint32_t>::max()) {
      series.push_back({.id = id, .minutes = static_cast<std::uint32_t>(minutes)});
    }
    return true;
  };
  if (!for_rows_of(series_, device_id, take_row, lose)) return false;
  std::sort(series.begin(), series.end(),
            [](const CSeries& a, const CSeries& b) { return a.minutes < b.minutes; });
  return true;
}

}  // namespace toolkit::trend
