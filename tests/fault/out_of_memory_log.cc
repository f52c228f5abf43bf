// A trend library that runs out of memory in one call. The path of the database says which: "open",
// "catalogue", "first query", or "second query" after a full chunk of rows.
#include <new>

#include "libtrend/log.h"

namespace toolkit::trend {

struct CLog::Connection {
  std::string failing_call;
  int queries = 0;

  void reach(const std::string& call) const {
    if (call == failing_call) throw std::bad_alloc();
  }
};

int CLog::open(const std::string& path, bool /*read_only*/, bool /*create*/,
               unsigned /*busy_timeout*/, bool /*exclusive*/, unsigned /*page_size*/,
               unsigned /*cache_size*/, unsigned /*heap_limit*/, bool /*traditional_journal*/) {
  connection_ = std::make_shared<Connection>();
  connection_->failing_call = path;
  connection_->reach("open");
  return 0;
}

void CLog::close() {}

int CLog::get_devices(std::vector<CDeviceProperties>& devices) {
  devices.emplace_back().path = "dev";
  return 0;
}

int CLog::get_params(const CDeviceProperties& /*device*/, std::vector<CParamProperties>& params) {
  connection_->reach("catalogue");
  params.emplace_back().path = "p";
  params.back().has_avg = true;
  return 0;
}

int CLog::get_periods(std::vector<CPeriodProperties>& /*periods*/) { return 0; }

int CLog::get_trend_data(CDeviceData& result, const CDeviceParams& /*device*/,
                         const std::vector<CPeriodProperties>& /*periods*/,
                         const std::pair<long, long>& /*range*/, unsigned count,
                         unsigned /*offset*/, bool /*ascending*/, bool /*reserved*/) {
  connection_->reach(++connection_->queries == 1 ? "first query" : "second query");
  for (std::time_t row = count; row > 0; --row) {
    CSnapshot& snapshot = result.snapshots.emplace_back();
    snapshot.timestamp = 60 * row;
    snapshot.samples.push_back({0, 0, static_cast<double>(row) / 2, 0, 0});
  }
  return 0;
}

}  // namespace toolkit::trend
