#include "tests/support/log_content.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdio>
#include <stdexcept>
#include <vector>

#include "libtrend/log.h"
#include "libtrend/statistics.h"

using toolkit::trend::CDeviceData;
using toolkit::trend::CDeviceParams;
using toolkit::trend::CDeviceProperties;
using toolkit::trend::CLog;
using toolkit::trend::CParamProperties;
using toolkit::trend::CSeriesSummary;
using toolkit::trend::CSnapshot;

namespace {

void append_bits(double value, std::string& text) {
  if (std::isnan(value)) {
    text += " -";
    return;
  }
  char digits[20];
  std::snprintf(digits, sizeof digits, " %016llx",
                static_cast<unsigned long long>(std::bit_cast<std::uint64_t>(value)));
  text += digits;
}

std::string describe(const CSnapshot& row, const std::vector<CParamProperties>& params) {
  std::string text;
  append_bits(row.valid_ratio, text);
  for (std::size_t i = 0; i < params.size(); ++i) {
    for (const auto& statistic : toolkit::trend::STATISTICS) {
      if (params[i].*statistic.flag) append_bits(row.samples[i].*statistic.member, text);
    }
  }
  return text;
}

}  // namespace

LogContent read_content(const std::string& path) {
  CLog log;
  const auto check = [&](int status) {
    if (status != 0) throw std::runtime_error(path + ": " + log.error());
  };
  check(log.open(path, {}));
  std::vector<CDeviceProperties> devices;
  check(log.get_devices(devices));
  LogContent content;
  for (const CDeviceProperties& device : devices) {
    LogContent::Device& entry = content.devices[device.path];
    entry.description = device.aux_text;
    CDeviceParams selection = {device, {}};
    check(log.get_params(device, selection.params));
    std::sort(selection.params.begin(), selection.params.end(),
              [](const auto& a, const auto& b) { return a.path < b.path; });
    for (const CParamProperties& param : selection.params) {
      entry.params[param.path] = toolkit::trend::get_statistics(param);
    }
    std::vector<CSeriesSummary> series;
    check(log.get_series(device, series));
    for (const CSeriesSummary& one : series) {
      auto& rows = entry.series[one.minutes].rows;
      CDeviceData data;
      check(log.get_trend_data(data, selection, {{.interval = one.minutes}}, {-1, -1}, 0, 0, true,
                               true));
      for (const CSnapshot& row : data.snapshots) {
        rows[row.timestamp] = describe(row, selection.params);
      }
    }
  }
  return content;
}

bool is_part(const LogContent& part, const LogContent& whole) {
  for (const auto& [path, device] : part.devices) {
    if (!whole.devices.contains(path)) return false;
    for (const auto& [minutes, series] : device.series) {
      const auto& rows = whole.devices.at(path).series.at(minutes).rows;
      if (!std::includes(rows.begin(), rows.end(), series.rows.begin(), series.rows.end())) {
        return false;
      }
    }
  }
  return true;
}
