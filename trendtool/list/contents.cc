#include "trendtool/list/contents.h"

#include <algorithm>
#include <utility>

#include "trendtool/common/selection.h"

using toolkit::trend::CDeviceParams;
using toolkit::trend::CDeviceProperties;
using toolkit::trend::CLog;
using toolkit::trend::CSeriesSummary;

std::uint64_t DeviceContents::rows() const {
  std::uint64_t rows = 0;
  for (const CSeriesSummary& one : series) rows += one.rows;
  return rows;
}

std::uint64_t DeviceContents::bytes() const {
  std::uint64_t bytes = 0;
  for (const CSeriesSummary& one : series) bytes += one.bytes;
  return bytes;
}

std::int64_t DeviceContents::first_time() const {
  std::int64_t first = 0;
  for (const CSeriesSummary& one : series) {
    if (one.rows > 0 && (first == 0 || one.first_time < first)) first = one.first_time;
  }
  return first;
}

std::int64_t DeviceContents::last_time() const {
  std::int64_t last = 0;
  for (const CSeriesSummary& one : series) last = std::max(last, one.last_time);
  return last;
}

std::string read_contents(CLog& log, const std::vector<std::string>& names, bool use_display_names,
                          bool with_series, std::vector<DeviceContents>& contents) {
  std::vector<CDeviceProperties> devices;
  if (std::string wrong = select_devices(log, names, devices); !wrong.empty()) return wrong;
  bool can_be_named = use_display_names;
  for (const CDeviceProperties& device : devices) {
    DeviceContents& entry = contents.emplace_back();
    entry.device = device;
    std::string wrong = select_params(log, device, {}, entry.params);
    if (!wrong.empty()) return wrong;
    // What is wrong with display names is said once.
    if (use_display_names) {
      const CDeviceParams selection = {device, entry.params};
      can_be_named = name_params(selection, can_be_named, entry.display_names) && can_be_named;
    }
    if (with_series && log.get_series(device, entry.series) != 0) {
      return "can't count the rows of device '" + device.path + "': " + log.error();
    }
  }
  return "";
}
