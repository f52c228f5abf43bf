#include "trendtool/copy/catalogue.h"

#include <algorithm>

#include "libtrend/statistics.h"
#include "text/csv.h"
#include "trendtool/common/statistic_names.h"

using toolkit::trend::CLog;
using toolkit::trend::CParamProperties;
using toolkit::trend::CRecorder;
using toolkit::trend::CSeriesSummary;
using toolkit::trend::get_statistics;

namespace {

/// Adds the device to the database. Returns false if the recorder failed.
bool add_device(CRecorder& to, const std::string& prefix, DeviceToCopy& device) {
  device.target.device = {.path = prefix + device.source.device.path,
                          .aux_text = device.source.device.aux_text};
  if (to.add_device(device.target.device) != 0) return false;
  if (device.target.device.aux_text != device.source.device.aux_text) {
    device.note = "device " + quote(device.target.device.path) +
                  " keeps its description, which is another one";
  }
  return true;
}

/// Adds the parameters to the database. Those that it has with other statistics are taken off the
/// list of what is copied. Returns false if the recorder failed.
bool add_params(CRecorder& to, DeviceToCopy& device) {
  std::vector<CParamProperties> wanted;
  wanted.swap(device.source.params);
  for (const CParamProperties& param : wanted) {
    CParamProperties recorded = param;
    if (to.add_param(device.target.device, recorded) != 0) return false;
    if (get_statistics(recorded) != get_statistics(param)) {
      device.conflicts.push_back("parameter " + quote(param.path) + " of device " +
                                 quote(device.source.device.path) + " has the statistics " +
                                 join_statistics(param) + ", but is recorded with " +
                                 join_statistics(recorded) + "; its values are not copied");
      continue;
    }
    device.source.params.push_back(param);
    device.target.params.push_back(recorded);
  }
  return true;
}

bool add_series(CRecorder& to, const std::string& uuid, DeviceToCopy& device) {
  return std::all_of(device.series.begin(), device.series.end(), [&](SeriesToCopy& series) {
    return to.add_series(device.target.device, series.source.minutes, series.target) == 0 &&
           (uuid.empty() || to.get_copied(uuid, series.target, series.copied) == 0);
  });
}

}  // namespace

std::string read_device(CLog& from, const std::vector<std::uint32_t>& minutes,
                        DeviceToCopy& device) {
  const std::string name = "device " + quote(device.source.device.path);
  if (from.get_params(device.source.device, device.source.params) != 0) {
    return "can't read the parameters of " + name + ": " + from.error();
  }
  // In the order of their slots, so that a new device gets the same ones.
  std::sort(device.source.params.begin(), device.source.params.end(),
            [](const auto& a, const auto& b) { return a.aux_1 < b.aux_1; });
  std::vector<CSeriesSummary> all;
  if (from.get_series(device.source.device, all) != 0) {
    return "can't read the series of " + name + ": " + from.error();
  }
  for (const CSeriesSummary& series : all) {
    const bool is_wanted = minutes.empty() || std::find(minutes.begin(), minutes.end(),
                                                        series.minutes) != minutes.end();
    if (is_wanted) device.series.push_back({.source = series, .target = {}});
  }
  return "";
}

std::string copy_catalogue(CRecorder& to, const std::string& uuid, const std::string& prefix,
                           std::vector<DeviceToCopy>& devices) {
  bool is_done = to.begin() == 0;
  for (DeviceToCopy& device : devices) {
    is_done = is_done && add_device(to, prefix, device) && add_params(to, device) &&
              add_series(to, uuid, device);
  }
  return is_done && to.commit() == 0 ? "" : "can't copy the catalogue: " + to.error();
}
