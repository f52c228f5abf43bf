#include "tests/support/answers.h"

#include <stdexcept>

#include "libtrend/log.h"
#include "libtrend/statistics.h"
#include "tests/support/print_rows.h"

using namespace toolkit::trend;

namespace {

std::string print(const CDeviceProperties& device) {
  return device.path + ' ' + device.aux_text + ' ' + std::to_string(device.aux_1) + '\n';
}

std::string print(const CParamProperties& param) {
  return param.path + ' ' + std::to_string(get_statistics(param)) + ' ' +
         std::to_string(param.aux_1) + '\n';
}

std::string print(const CTimeRange& range) {
  return std::to_string(range.first) + '-' + std::to_string(range.last) + ' ';
}

std::string print(const CPeriodProperties& period) { return std::to_string(period.interval) + ' '; }

std::string print(const CSeriesSummary& series) {
  return std::to_string(series.minutes) + ' ' + std::to_string(series.rows) + ' ' +
         std::to_string(series.first_time) + ' ' + std::to_string(series.last_time) + ' ' +
         std::to_string(series.bytes) + '\n';
}

/// Keeps what a call with `status` has found, unless it failed.
template <typename Records>
void keep(int status, const Records& records, const std::string& question, Answers& answers) {
  if (status != 0) return;
  std::string& text = answers[question];
  for (const auto& record : records) text += print(record);
}

/// A question for rows of a device.
struct RowQuestion {
  const char* name;
  std::pair<long, long> range;
  unsigned count;
  unsigned offset;
  bool ascending;
};

constexpr RowQuestion ROW_QUESTIONS[] = {
    {"newest-first", {-1, -1}, 0, 0, false},         {"oldest-first", {-1, -1}, 0, 0, true},
    {"newest-ten", {-1, -1}, 10, 0, false},          {"middle", {61'000, 80'000}, 5, 2, true},
    {"back-from-a-time", {-1, 6000}, 5, 0, false},   {"on-from-a-time", {4500, -1}, 6, 0, true},
    {"between-two-times", {5401, 5700}, 0, 0, true}, {"after-an-offset", {-1, -1}, 4, 20, false},
};

}  // namespace

Questions::Questions(const std::string& path) {
  CLog log;
  std::vector<CDeviceProperties> devices;
  const auto check = [&](int status) {
    if (status != 0) throw std::runtime_error(path + ": " + log.error());
  };
  check(log.open(path, {}));
  check(log.get_periods(periods_));
  check(log.get_devices(devices));
  for (const CDeviceProperties& device : devices) {
    devices_.push_back({device, {}});
    check(log.get_params(device, devices_.back().params));
  }
}

Answers Questions::ask(const std::string& path) const {
  Answers answers;
  CLog log;
  if (log.open(path, {.busy_timeout = 0}) != 0) return answers;
  std::vector<CDeviceProperties> devices;
  keep(log.get_devices(devices), devices, "devices", answers);
  std::vector<CPeriodProperties> periods;
  keep(log.get_periods(periods), periods, "intervals", answers);
  std::string uuid;
  if (log.get_uuid(uuid) == 0) answers["uuid"] = uuid;
  for (const CDeviceParams& device : devices_) {
    const std::string& name = device.device.path;
    std::vector<CParamProperties> params;
    keep(log.get_params(device.device, params), params, name + ":params", answers);
    std::vector<CSeriesSummary> series;
    keep(log.get_series(device.device, series), series, name + ":series", answers);
    for (const CPeriodProperties& period : periods_) {
      for (const unsigned since : {0U, 1U}) {
        CSeriesChanges changes;
        keep(log.get_changes(device.device, period.interval, since, changes), changes.ranges,
             name + ":changes-" + std::to_string(period.interval) + '-' + std::to_string(since),
             answers);
      }
    }
    for (const RowQuestion& question : ROW_QUESTIONS) {
      CDeviceData data;
      if (log.get_trend_data(data, device, periods_, question.range, question.count,
                             question.offset, question.ascending, true) == 0) {
        answers[name + ':' + question.name] = print_rows(data);
      } else if (log.error().empty()) {
        throw std::logic_error("a query failed without a reason");
      }
    }
  }
  return answers;
}
