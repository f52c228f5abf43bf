#include "tests/fuzz/whole_database.h"

#include <sqlite3.h>

#include <algorithm>
#include <array>
#include <limits>
#include <map>
#include <memory>
#include <optional>
#include <stdexcept>
#include <utility>

#include "libtrend/log.h"
#include "libtrend/statistics.h"
#include "tests/fuzz/fuzz.h"
#include "tests/support/recorded_rows.h"

using namespace toolkit::trend;

namespace {

/// The rows of a series by time, with the values of the parameters in their order.
using Rows = RecordedSeries;
using Series = std::pair<std::string, std::uint32_t>;  ///< device and interval
struct Reading {
  std::map<std::string, std::vector<CParamProperties>> params;  ///< by device
  std::map<Series, Rows> series;
};

std::vector<double> values_of(const CSnapshot& row, const std::vector<CParamProperties>& params) {
  std::vector<double> values;
  for (std::size_t i = 0; i < params.size(); ++i) {
    for (const Statistic& statistic : STATISTICS) {
      if (params[i].*statistic.flag) values.push_back(row.samples[i].*statistic.member);
    }
  }
  return values;
}

/// Reads everything. Returns nothing if one of the calls fails.
std::optional<Reading> read_all(CLog& log) {
  Reading reading;
  std::vector<CDeviceProperties> devices;
  std::vector<CPeriodProperties> periods;
  if (log.get_devices(devices) != 0 || log.get_periods(periods) != 0) return {};
  for (const CDeviceProperties& device : devices) {
    CDeviceParams selection = {device, {}};
    if (log.get_params(device, selection.params) != 0) return {};
    reading.params[device.path] = selection.params;
    for (const CPeriodProperties& period : periods) {
      CDeviceData data;
      if (log.get_trend_data(data, selection, {period}, {-1, -1}, 0, 0, true, true) != 0) return {};
      Rows& rows = reading.series[{device.path, period.interval}];
      for (const CSnapshot& row : data.snapshots) {
        demand(rows.emplace(row.timestamp,
                            RecordedRow{row.valid_ratio, values_of(row, selection.params)})
                   .second,
               "two rows have one time");
      }
    }
  }
  return reading;
}

std::optional<Reading> read(const std::string& path, bool may_be_damaged) {
  CLog log;
  OpenOptions options;
  options.busy_timeout = 0;
  const int status = may_be_damaged ? log.open_damaged(path, options) : log.open(path, options);
  return status == 0 ? read_all(log) : std::nullopt;
}

/// Returns whether `CLog::check` finds nothing.
bool is_sound(const std::string& path) {
  CLog log;
  OpenOptions options;
  options.busy_timeout = 0;
  std::vector<CDamage> damage;
  if (log.open_damaged(path, options) != 0 || log.check(damage) != 0) return false;
  return damage.empty();
}

/// Reads with the simple reader. Returns nothing, and says why, if a rule is broken.
std::optional<RecordedDatabase> read_simply(const std::string& path, std::string& broken) {
  try {
    return read_recorded_rows(path);
  } catch (const std::runtime_error& error) {
    broken = error.what();
    return {};
  }
}

/// The ids of all series that programs know, by device and interval.
std::map<Series, std::int64_t> find_ids(const std::string& path) {
  std::map<Series, std::int64_t> ids;
  sqlite3* db = nullptr;
  sqlite3_stmt* statement = nullptr;
  sqlite3_open_v2(path.c_str(), &db, SQLITE_OPEN_READONLY, nullptr);
  const std::unique_ptr<sqlite3, int (*)(sqlite3*)> owner(db, sqlite3_close_v2);
  sqlite3_prepare_v2(db,
                     "SELECT path, minutes, series.id FROM series JOIN device "
                     "ON device.id = device_id WHERE minutes < 4294967296",
                     -1, &statement, nullptr);
  while (sqlite3_step(statement) == SQLITE_ROW) {
    const auto* name = reinterpret_cast<const char*>(sqlite3_column_text(statement, 0));
    const std::string device(name, static_cast<std::size_t>(sqlite3_column_bytes(statement, 0)));
    const auto minutes = static_cast<std::uint32_t>(sqlite3_column_int64(statement, 1));
    ids[{device, minutes}] = sqlite3_column_int64(statement, 2);
  }
  sqlite3_finalize(statement);
  return ids;
}

/// The values of the parameters in a row that has values by slots.
std::vector<double> select(const RecordedRow& row, const std::vector<CParamProperties>& params) {
  std::vector<double> values;
  for (const CParamProperties& param : params) {
    for (std::size_t i = 0; i < STATISTICS.size(); ++i) {
      if (!(param.*STATISTICS[i].flag)) continue;
      const std::size_t slot = get_slot(param, i);
      values.push_back(slot < row.values.size() ? row.values[slot]
                                                : std::numeric_limits<double>::quiet_NaN());
    }
  }
  return values;
}

void compare(const Reading& reading, const RecordedDatabase& recorded, const std::string& path) {
  for (const auto& [series, id] : find_ids(path)) {
    const auto& [device, minutes] = series;
    const std::string name = device + ", " + std::to_string(minutes) + " min: ";
    const auto rows = reading.series.find(series);
    demand(rows != reading.series.end(), name + "the series is missing");
    const RecordedSeries& expected = recorded.series.at(id);
    demand(rows->second.size() == expected.size(), name + "another number of rows");
    for (const auto& [time, row] : expected) {
      const RecordedRow wanted = {row.valid_ratio, select(row, reading.params.at(device))};
      const auto found = rows->second.find(time);
      demand(found != rows->second.end() && found->second == wanted,
             name + "the row at " + std::to_string(time) + " is wrong");
    }
  }
}

/// Whether a reader of all series must notice that the rule `broken` is broken. It does not see
/// rows, blocks and segments of no series, nor what only a writer needs.
bool is_readers_rule(const std::string& broken) {
  constexpr std::array RULES = {"a loose row has half a value",
                                "a loose row lacks its checksum",
                                "a parameter has slots that no row has",
                                "a state has a wrong number of loose rows",
                                "a state has wrong ends",
                                "the chain of blocks is broken",
                                "blocks overlap",
                                "a block has a wrong segment size",
                                "a block has a change of the future",
                                "the content of a head is damaged",
                                "a segment has a wrong length"};
  return std::find(RULES.begin(), RULES.end(), broken) != RULES.end() ||
         broken.starts_with("two rows of a series have one time");
}

}  // namespace

void check_database(const std::string& path, bool is_any_file) {
  const std::optional<Reading> whole = read(path, false);
  const std::optional<Reading> rest = read(path, true);
  const bool is_good = is_sound(path);
  std::string broken;
  const std::optional<RecordedDatabase> recorded = read_simply(path, broken);
  const bool is_old = broken == "it has another version";

  if (recorded && !is_any_file) demand(whole && is_good, "a reader refuses what keeps all rules");
  if (is_good) demand(whole.has_value(), "a reader refuses what the check finds good");
  // A recorder may let rows go without checksums as long as it likes.
  const bool is_writers_rule = broken == "no row is left that may be without a checksum";
  if (is_good) {
    demand(recorded || is_old || is_writers_rule, "the check does not find that " + broken);
  }
  if (!is_any_file && is_readers_rule(broken))
    demand(!whole, "a reader does not notice: " + broken);
  if (whole) demand(rest && rest->series == whole->series, "a damaged database has other rows");
  if (whole && recorded) compare(*whole, *recorded, path);
}
