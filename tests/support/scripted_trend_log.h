// A trend library that follows the script of a test and records its calls. It is linked instead of
// libtrend.
#pragma once

#include <functional>
#include <map>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "libtrend/log.h"

namespace toolkit::trend {

[[nodiscard]] bool operator==(const CDeviceProperties& a, const CDeviceProperties& b);
[[nodiscard]] bool operator==(const CParamProperties& a, const CParamProperties& b);
[[nodiscard]] bool operator==(const CPeriodProperties& a, const CPeriodProperties& b);
[[nodiscard]] bool operator==(const CDeviceParams& a, const CDeviceParams& b);

}  // namespace toolkit::trend

/// The arguments of one `CLog::open`.
struct OpenCall {
  std::string path;
  bool read_only;
  bool create;
  unsigned busy_timeout;
  bool exclusive;
  unsigned page_size;
  unsigned cache_size;
  unsigned heap_limit;
  bool traditional_journal;

  [[nodiscard]] bool operator==(const OpenCall&) const = default;
};

/// The arguments of one `CLog::get_trend_data` that select rows.
struct Query {
  std::pair<long, long> range;
  unsigned count;
  unsigned offset;
  bool ascending;
  bool reserved;

  [[nodiscard]] bool operator==(const Query&) const = default;
};

std::ostream& operator<<(std::ostream& stream, const Query& query);

/// The other arguments of one `CLog::get_trend_data`.
struct QueriedSelection {
  toolkit::trend::CDeviceParams device;
  std::vector<toolkit::trend::CPeriodProperties> periods;
  bool result_was_empty;
};

/// What the calls of one function return, by the number of the call, counted from 1. A call without
/// an entry returns 0.
using Statuses = std::map<int, int>;

/// What the library does, and the calls that were made. A call that fails fills its result too, so
/// that a test notices if it is used.
struct TrendLogScript {
  std::vector<toolkit::trend::CDeviceProperties> devices;
  std::vector<toolkit::trend::CParamProperties> params;  ///< of every device
  std::vector<toolkit::trend::CPeriodProperties> periods;
  std::vector<toolkit::trend::CSnapshot> snapshots;  ///< in ascending order of time

  Statuses open_statuses;
  Statuses devices_statuses;
  Statuses params_statuses;
  Statuses periods_statuses;
  Statuses query_statuses;
  std::function<void()> on_close;
  std::function<void()> on_release;

  std::vector<std::string> calls;  ///< the members' names; "release" is the end of a connection
  std::vector<OpenCall> opens;
  std::vector<toolkit::trend::CDeviceProperties> params_devices;  ///< the arguments of get_params
  std::vector<Query> queries;
  std::vector<QueriedSelection> selections;  ///< one per query
};

/// The script that all handles follow. A test first assigns an empty one.
TrendLogScript& trend_log_script();

/// Records to fill a script with. `flags` holds the letters of the statistics that are recorded for
/// the parameter: n minimum, x maximum, v average, a actual value, s sum.
[[nodiscard]] toolkit::trend::CDeviceProperties make_device(const std::string& path);
[[nodiscard]] toolkit::trend::CParamProperties make_param(const std::string& path,
                                                          const std::string& flags);
[[nodiscard]] toolkit::trend::CPeriodProperties make_period(std::uint32_t minutes);
[[nodiscard]] toolkit::trend::CSnapshot make_snapshot(
    std::time_t timestamp, const std::vector<toolkit::trend::CSample>& samples = {});
