#include "tests/support/scripted_trend_log.h"

#include <algorithm>
#include <cstddef>
#include <memory>

namespace toolkit::trend {

bool operator==(const CDeviceProperties& a, const CDeviceProperties& b) {
  return a.path == b.path && a.aux_text == b.aux_text && a.aux_1 == b.aux_1;
}

bool operator==(const CParamProperties& a, const CParamProperties& b) {
  return a.path == b.path && a.aux_1 == b.aux_1 && a.has_min == b.has_min &&
         a.has_max == b.has_max && a.has_avg == b.has_avg && a.has_actual == b.has_actual &&
         a.has_sum == b.has_sum && a.aux_2 == b.aux_2 && a.aux_3 == b.aux_3;
}

bool operator==(const CPeriodProperties& a, const CPeriodProperties& b) {
  return a.interval == b.interval && a.aux_1 == b.aux_1;
}

bool operator==(const CDeviceParams& a, const CDeviceParams& b) {
  return a.device == b.device && a.params == b.params;
}

struct CLog::Connection {
  Connection() = default;
  ~Connection() {
    trend_log_script().calls.emplace_back("release");
    if (trend_log_script().on_release) trend_log_script().on_release();
  }
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;
};

namespace {

/// Records a call of the member `name` and returns its result from the script.
int note_call(const std::string& name, const Statuses& statuses) {
  std::vector<std::string>& calls = trend_log_script().calls;
  calls.push_back(name);
  const auto status = statuses.find(static_cast<int>(std::count(calls.begin(), calls.end(), name)));
  return status == statuses.end() ? 0 : status->second;
}

}  // namespace

int CLog::open(const std::string& path, bool read_only, bool create, unsigned busy_timeout,
               bool exclusive, unsigned page_size, unsigned cache_size, unsigned heap_limit,
               bool traditional_journal) {
  TrendLogScript& script = trend_log_script();
  script.opens.push_back({path, read_only, create, busy_timeout, exclusive, page_size, cache_size,
                          heap_limit, traditional_journal});
  const int status = note_call("open", script.open_statuses);
  if (status == 0) connection_ = std::make_shared<Connection>();
  return status;
}

void CLog::close() {
  note_call("close", {});
  if (trend_log_script().on_close) trend_log_script().on_close();
}

int CLog::get_devices(std::vector<CDeviceProperties>& devices) {
  const TrendLogScript& script = trend_log_script();
  devices = script.devices;
  return note_call("get_devices", script.devices_statuses);
}

int CLog::get_params(const CDeviceProperties& device, std::vector<CParamProperties>& params) {
  TrendLogScript& script = trend_log_script();
  script.params_devices.push_back(device);
  params = script.params;
  return note_call("get_params", script.params_statuses);
}

int CLog::get_periods(std::vector<CPeriodProperties>& periods) {
  const TrendLogScript& script = trend_log_script();
  periods = script.periods;
  return note_call("get_periods", script.periods_statuses);
}

int CLog::get_trend_data(CDeviceData& result, const CDeviceParams& device,
                         const std::vector<CPeriodProperties>& periods,
                         const std::pair<long, long>& range, unsigned count, unsigned offset,
                         bool ascending, bool reserved) {
  TrendLogScript& script = trend_log_script();
  script.queries.push_back({range, count, offset, ascending, reserved});
  script.selections.push_back({device, periods, result.snapshots.empty()});
  for (const CSnapshot& snapshot : script.snapshots) {
    const bool is_early = range.first != -1 && snapshot.timestamp < range.first;
    const bool is_late = range.second != -1 && snapshot.timestamp > range.second;
    if (!is_early && !is_late) result.snapshots.push_back(snapshot);
  }
  if (!ascending) std::reverse(result.snapshots.begin(), result.snapshots.end());
  const std::size_t passed = std::min<std::size_t>(offset, result.snapshots.size());
  result.snapshots.erase(result.snapshots.begin(),
                         result.snapshots.begin() + static_cast<std::ptrdiff_t>(passed));
  if (count != 0 && result.snapshots.size() > count) result.snapshots.resize(count);
  return note_call("get_trend_data", script.query_statuses);
}

}  // namespace toolkit::trend

std::ostream& operator<<(std::ostream& stream, const Query& query) {
  return stream << "{range " << query.range.first << ".." << query.range.second << ", count "
                << query.count << ", offset " << query.offset
                << (query.ascending ? ", ascending" : ", descending")
                << (query.reserved ? "}" : ", last argument false}");
}

TrendLogScript& trend_log_script() {
  static TrendLogScript script;
  return script;
}

toolkit::trend::CDeviceProperties make_device(const std::string& path) {
  toolkit::trend::CDeviceProperties device;
  device.path = path;
  return device;
}

toolkit::trend::CParamProperties make_param(const std::string& path, const std::string& flags) {
  const auto carries = [&](char letter) { return flags.find(letter) != std::string::npos; };
  toolkit::trend::CParamProperties param;
  param.path = path;
  param.has_min = carries('n');
  param.has_max = carries('x');
  param.has_avg = carries('v');
  param.has_actual = carries('a');
  param.has_sum = carries('s');
  return param;
}

toolkit::trend::CPeriodProperties make_period(std::uint32_t minutes) {
  toolkit::trend::CPeriodProperties period;
  period.interval = minutes;
  return period;
}

toolkit::trend::CSnapshot make_snapshot(std::time_t timestamp,
                                        const std::vector<toolkit::trend::CSample>& samples) {
  toolkit::trend::CSnapshot snapshot;
  snapshot.timestamp = timestamp;
  snapshot.samples = samples;
  return snapshot;
}
