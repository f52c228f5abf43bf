#include "trendtool/purge/purge.h"

#include <algorithm>
#include <ctime>
#include <limits>
#include <string>
#include <vector>

#include "libtrend/log.h"
#include "libtrend/recorder.h"
#include "text/csv.h"
#include "trendtool/common/messages.h"
#include "trendtool/common/output_file.h"
#include "trendtool/common/rows.h"
#include "trendtool/common/selection.h"
#include "trendtool/common/times.h"

using toolkit::trend::CDeviceProperties;
using toolkit::trend::CLog;
using toolkit::trend::CRecorder;
using toolkit::trend::CSeries;
using toolkit::trend::CSeriesSummary;
using toolkit::trend::CSnapshot;

namespace {

/// The rows that are removed.
struct OldRows {
  CDeviceProperties device;
  std::time_t before = 0;
  std::uint64_t count = 0;
};

/// Finds the rows. Returns what is wrong, or an empty text.
std::string find_rows(const PurgeOptions& options, OldRows& rows) {
  CLog log;
  std::vector<CDeviceProperties> devices;
  std::string wrong = open_log(log, options.db_path);
  if (wrong.empty()) wrong = select_devices(log, {options.device}, devices);
  if (!wrong.empty()) return wrong;
  rows.device = devices.front();
  std::vector<CSeriesSummary> series;
  if (log.get_series(rows.device, series) != 0) return "can't read the series: " + log.error();
  const bool is_there = std::any_of(series.begin(), series.end(), [&](const CSeriesSummary& one) {
    return one.minutes == options.minutes;
  });
  if (!is_there) {
    return "device " + quote(options.device) + " has no rows at the interval of " +
           std::to_string(options.minutes) + " minutes";
  }
  // No row has a time before the epoch.
  const std::int64_t last = std::max<std::int64_t>(std::int64_t{rows.before} - 1, 0);
  const RowRequest request = {.selection = {rows.device, {}},
                              .periods = {{.interval = options.minutes}},
                              .range = {-1, static_cast<long>(std::min<std::int64_t>(
                                                last, std::numeric_limits<long>::max()))},
                              .ascending = true};
  return read_rows(log, request, [&](const std::vector<CSnapshot>& chunk) {
    rows.count += chunk.size();
    return true;
  });
}

/// Removes the rows. Returns what is wrong, or an empty text.
std::string purge(const PurgeOptions& options, const OldRows& rows) {
  CRecorder recorder;
  CDeviceProperties device = rows.device;
  CSeries series;
  if (recorder.open(options.db_path) != 0 || recorder.begin() != 0 ||
      recorder.add_device(device) != 0) {
    return recorder.error();
  }
  if (device.aux_1 != rows.device.aux_1) return "another program has changed the database";
  return recorder.add_series(device, options.minutes, series) == 0 &&
                 recorder.purge(series, rows.before) == 0 && recorder.commit() == 0
             ? ""
             : recorder.error();
}

}  // namespace

int run_purge(const PurgeOptions& options) {
  OldRows rows;
  std::string wrong =
      read_time(options.before, Bound::START, options.use_utc, std::time(nullptr), rows.before);
  if (!wrong.empty()) return refuse_usage("--before: " + wrong);
  if (wrong = find_rows(options, rows); !wrong.empty()) return fail(wrong);
  if (wrong = purge(options, rows); !wrong.empty()) return fail("can't remove the rows: " + wrong);
  return print_result(std::to_string(rows.count) + " rows removed\n");
}
