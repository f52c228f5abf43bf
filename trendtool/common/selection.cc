#include "trendtool/common/selection.h"

#include <algorithm>

#include "columns/display_names.h"
#include "text/csv.h"
#include "trendlog/selection.h"
#include "trendtool/common/messages.h"

using toolkit::trend::CDeviceParams;
using toolkit::trend::CDeviceProperties;
using toolkit::trend::CLog;
using toolkit::trend::CParamProperties;
using toolkit::trend::CPeriodProperties;

namespace {

/// Replaces `found` by its entries with the paths `names`. Returns the first path that is missing,
/// or null.
template <typename Entry>
const std::string* keep_named(const std::vector<std::string>& names, std::vector<Entry>& found) {
  if (names.empty()) return nullptr;
  std::vector<Entry> named;
  for (const std::string& name : names) {
    const auto entry = std::find_if(found.begin(), found.end(),
                                    [&](const Entry& other) { return other.path == name; });
    if (entry == found.end()) return &name;
    const bool is_known = std::any_of(named.begin(), named.end(),
                                      [&](const Entry& other) { return other.path == name; });
    if (!is_known) named.push_back(*entry);
  }
  found = std::move(named);
  return nullptr;
}

}  // namespace

std::string open_log(CLog& log, const std::string& path) {
  if (log.open(path, {.busy_timeout = 40}) == 0) return "";
  return "can't open the database " + quote(path) + ": " + log.error();
}

std::string open_damaged_log(CLog& log, const std::string& path) {
  if (log.open_damaged(path, {.busy_timeout = 40}) == 0) return "";
  return "can't open the database " + quote(path) + ": " + log.error();
}

std::string select_devices(CLog& log, const std::vector<std::string>& names,
                           std::vector<CDeviceProperties>& devices) {
  devices.clear();
  if (log.get_devices(devices) != 0) return "can't read the devices: " + log.error();
  if (const std::string* missing = keep_named(names, devices)) {
    return "the database has no device " + quote(*missing) + "; 'trendtool list' shows its devices";
  }
  return "";
}

std::string select_params(CLog& log, const CDeviceProperties& device,
                          const std::vector<std::string>& names,
                          std::vector<CParamProperties>& params) {
  params.clear();
  if (log.get_params(device, params) != 0) return "can't read the parameters: " + log.error();
  if (const std::string* missing = keep_named(names, params)) {
    return "device " + quote(device.path) + " has no parameter " + quote(*missing) +
           "; 'trendtool list -d' shows its parameters";
  }
  if (names.empty()) std::sort(params.begin(), params.end(), param_path_less);
  return "";
}

std::string select_periods(CLog& log, const std::vector<std::uint32_t>& minutes,
                           std::vector<CPeriodProperties>& periods) {
  periods.clear();
  if (log.get_periods(periods) != 0) return "can't read the intervals: " + log.error();
  if (minutes.empty()) return "";
  std::vector<CPeriodProperties> named;
  for (const std::uint32_t interval : minutes) {
    const auto period = std::find_if(periods.begin(), periods.end(), [&](const auto& other) {
      return interval == 0 || other.interval == interval;
    });
    if (period == periods.end()) {
      return "the database has no interval of " + std::to_string(interval) +
             " minutes; 'trendtool list -d' shows the intervals of a device";
    }
    named.push_back(*period);
  }
  std::sort(named.begin(), named.end(),
            [](const auto& a, const auto& b) { return a.interval < b.interval; });
  const auto is_same = [](const auto& a, const auto& b) { return a.interval == b.interval; };
  named.erase(std::unique(named.begin(), named.end(), is_same), named.end());
  periods = std::move(named);
  return "";
}

bool name_params(const CDeviceParams& selection, bool use_display_names,
                 std::vector<std::string>& names) {
  names.clear();
  const DisplayNames result =
      use_display_names ? read_display_names(selection, names) : DisplayNames::FOUND;
  if (use_display_names && result == DisplayNames::FOUND) return true;
  for (const CParamProperties& param : selection.params) names.push_back(param.path);
  if (result == DisplayNames::FOUND) return true;
  print_message(result == DisplayNames::NO_CONNECTION
                    ? "can't connect to the CDS for display names; paths are shown instead"
                    : "can't read the display names; paths are shown instead");
  return false;
}
