#include "trendtool/remove/remove.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <limits>
#include <vector>

#include "libtrend/log.h"
#include "libtrend/recorder.h"
#include "text/csv.h"
#include "text/utf8.h"
#include "trendtool/common/iso_time.h"
#include "trendtool/common/messages.h"
#include "trendtool/common/selection.h"
#include "trendtool/common/times.h"

using toolkit::trend::CDeviceData;
using toolkit::trend::CDeviceProperties;
using toolkit::trend::CLog;
using toolkit::trend::CRecorder;
using toolkit::trend::CSeries;
using toolkit::trend::CSeriesSummary;

namespace {

/// What is to be removed, and what the user is asked about it.
struct Target {
  CDeviceProperties device;
  std::time_t time = 0;  ///< of the row
  std::string name;
};

std::string count_rows(std::uint64_t rows) {
  return std::to_string(rows) + (rows == 1 ? " row" : " rows");
}

/// Finds the row at `target.time`. Returns what is wrong, or an empty text.
std::string find_row(CLog& log, const RemoveOptions& options, const std::string& series,
                     Target& target) {
  constexpr std::time_t LAST = std::numeric_limits<long>::max();
  const auto time = static_cast<long>(std::min(target.time, LAST));
  const std::string text = IsoClock(options.use_utc).text_of(target.time);
  CDeviceData rows;
  if (log.get_trend_data(rows, {target.device, {}}, {{.interval = options.minutes}}, {time, time},
                         1, 0, true, true) != 0) {
    return "can't read the row: " + log.error();
  }
  if (rows.snapshots.empty()) return series + " has no row at " + text;
  target.name = "the row at " + text + " of " + series;
  return "";
}

/// Finds what is to be removed. Returns what is wrong, or an empty text.
std::string find_target(CLog& log, const RemoveOptions& options, Target& target) {
  std::vector<CDeviceProperties> devices;
  std::string wrong = select_devices(log, {options.device}, devices);
  if (!wrong.empty()) return wrong;
  target.device = devices.front();
  std::vector<CSeriesSummary> series;
  if (log.get_series(target.device, series) != 0) return "can't read the series: " + log.error();
  const std::string device = "device " + quote(options.device);
  if (options.minutes == 0) {
    std::uint64_t rows = 0;
    for (const CSeriesSummary& one : series) rows += one.rows;
    target.name = device + " with " + count_rows(rows);
    return "";
  }
  const auto found = std::find_if(series.begin(), series.end(), [&](const CSeriesSummary& one) {
    return one.minutes == options.minutes;
  });
  const std::string interval =
      " at the interval of " + std::to_string(options.minutes) + " minutes";
  if (found == series.end()) return device + " has no rows" + interval;
  if (!options.time.empty()) return find_row(log, options, device + interval, target);
  target.name = "all rows of " + device + interval + ", which are " + count_rows(found->rows);
  return "";
}

/// Asks the user. Returns whether the answer is yes.
bool ask(const std::string& name) {
  std::fprintf(stderr, "Remove %s? [y/N] ", show_controls(name).c_str());
  char answer[8] = {};
  if (std::fgets(answer, sizeof answer, stdin) == nullptr) return false;
  const std::string text = answer;
  return text == "y\n" || text == "Y\n" || text == "yes\n";
}

/// Removes what was found. Returns what is wrong, or an empty text.
std::string remove(const RemoveOptions& options, const Target& target) {
  CRecorder recorder;
  CDeviceProperties device = target.device;
  if (recorder.open(options.db_path) != 0 || recorder.begin() != 0 ||
      recorder.add_device(device) != 0) {
    return recorder.error();
  }
  if (device.aux_1 != target.device.aux_1) return "another program has changed the database";
  CSeries series;
  const bool is_removed =
      options.minutes == 0
          ? recorder.remove_device(device) == 0
          : recorder.add_series(device, options.minutes, series) == 0 &&
                (options.time.empty() ? recorder.remove_series(series)
                                      : recorder.remove_row(series, target.time)) == 0;
  return is_removed && recorder.commit() == 0 ? "" : recorder.error();
}

}  // namespace

int run_remove(const RemoveOptions& options) {
  Target target;
  if (!options.time.empty()) {
    std::string wrong =
        read_time(options.time, Bound::START, options.use_utc, std::time(nullptr), target.time);
    if (!wrong.empty()) return refuse_usage("--at: " + wrong);
  }
  {
    CLog log;
    std::string wrong = open_log(log, options.db_path);
    if (wrong.empty()) wrong = find_target(log, options, target);
    if (!wrong.empty()) return fail(wrong);
  }
  if (!options.is_sure && (isatty(STDIN_FILENO) == 0 || isatty(STDERR_FILENO) == 0)) {
    return refuse_usage("nobody can be asked whether to remove " + target.name +
                        "; with --yes, nobody is asked");
  }
  if (!options.is_sure && !ask(target.name)) return fail("nothing was removed");
  std::string wrong = remove(options, target);
  return wrong.empty() ? SUCCESS : fail("can't remove " + target.name + ": " + wrong);
}
