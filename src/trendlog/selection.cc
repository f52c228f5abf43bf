#include "trendlog/selection.h"

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <string>
#include <vector>

using toolkit::trend::CDeviceProperties;
using toolkit::trend::CParamProperties;
using toolkit::trend::CPeriodProperties;

namespace {

int select_device(DumpContext& context, const DumpOptions& options) {
  std::vector<CDeviceProperties> devices;
  if (context.log.get_devices(devices) != 0) {
    std::fputs("Error: can't fetch device list\n", stderr);
    return 1;
  }
  const auto device = std::find_if(devices.begin(), devices.end(), [&](const auto& candidate) {
    return candidate.path == options.device;
  });
  if (device == devices.end()) {
    std::fprintf(stderr, "Error: device '%s' is not trended\n", options.device.c_str());
    return 1;
  }
  context.device_params.device = *device;
  return 0;
}

int select_params(DumpContext& context, const DumpOptions& options) {
  std::vector<CParamProperties> params;
  if (context.log.get_params(context.device_params.device, params) != 0) {
    std::fputs("Error: can't fetch parameter list\n", stderr);
    return 1;
  }
  if (params.empty()) {
    std::fprintf(stderr, "Device '%s' exists in the log, but contains no trendable parameters.\n",
                 options.device.c_str());
    return 1;
  }
  for (const std::string& name : options.params) {
    const auto param = std::find_if(params.begin(), params.end(),
                                    [&](const auto& candidate) { return candidate.path == name; });
    if (param == params.end()) {
      // Deliberate: there are two blanks before "is".
      std::fprintf(stderr, "Error: parameter '%s' on device '%s'  is not trended\n", name.c_str(),
                   options.device.c_str());
      return 1;
    }
    context.device_params.params.push_back(*param);
  }
  // Deliberate: parameters that the user named are not put in this order. They stay sorted by the
  // bytes of their names.
  if (options.params.empty()) {
    std::sort(params.begin(), params.end(), param_path_less);
    context.device_params.params = std::move(params);
  }
  return 0;
}

int select_periods(DumpContext& context, const DumpOptions& options) {
  std::vector<CPeriodProperties> periods;
  if (context.log.get_periods(periods) != 0) {
    std::fputs("Error: can't fetch period list\n", stderr);
    return 1;
  }
  for (const unsigned long interval : options.intervals) {
    const auto period = interval == 0
                            ? periods.begin()
                            : std::find_if(periods.begin(), periods.end(),
                                           [&](const auto& p) { return p.interval == interval; });
    if (period == periods.end()) {
      std::fprintf(stderr, "Error: interval %lu is not trended\n", interval);
      return 1;
    }
    context.periods.push_back(*period);
  }
  if (options.intervals.empty()) context.periods = std::move(periods);
  return 0;
}

}  // namespace

int select_catalogue(DumpContext& context, const DumpOptions& options) {
  if (select_device(context, options) != 0) return 1;
  if (select_params(context, options) != 0) return 1;
  if (select_periods(context, options) != 0) return 1;
  context.range_start = options.start_time;
  context.range_end = options.end_time;
  context.skip = static_cast<unsigned long>(options.offset);
  return 0;
}

bool param_path_less(const CParamProperties& a, const CParamProperties& b) {
  const auto depth_a = std::count(a.path.begin(), a.path.end(), '/');
  const auto depth_b = std::count(b.path.begin(), b.path.end(), '/');
  // Where the folder of the path with fewer levels ends; 0 if both have the same number.
  // Deliberate: it is also 0 if that folder is just the '/' at the start of the path, which then
  // does not count as a folder.
  std::size_t split = 0;
  if (depth_a < depth_b) {
    if (depth_a == 0) return true;
    split = a.path.rfind('/');
  } else if (depth_b < depth_a) {
    if (depth_b == 0) return false;
    split = b.path.rfind('/');
  }
  if (split != 0 && a.path.compare(0, split + 1, b.path, 0, split + 1) == 0) {
    return depth_a < depth_b;
  }
  return a.path < b.path;
}
