// Converts a log made by make_log to the formats of other programs.
//   make_peers DB WIDE_DB [RRD RRD_COMMANDS]
// WIDE_DB becomes an SQLite database with one column per value. RRD_COMMANDS becomes the commands
// for "rrdtool -" that make the round-robin database RRD, with the averages as its points.
#include <sqlite3.h>

#include <algorithm>
#include <cstdio>
#include <string>
#include <vector>

#include "libtrend/log.h"

namespace tt = toolkit::trend;

namespace {

bool execute(sqlite3* db, const std::string& sql) {
  return sqlite3_exec(db, sql.c_str(), nullptr, nullptr, nullptr) == SQLITE_OK;
}

bool make_wide(const char* path, const tt::CDeviceData& data) {
  sqlite3* db = nullptr;
  if (sqlite3_open(path, &db) != SQLITE_OK) return false;
  const std::size_t params = data.snapshots.front().samples.size();
  std::string columns;
  std::string places = "?";
  for (std::size_t i = 0; i < 3 * params; ++i) {
    columns += ", v" + std::to_string(i) + " REAL";
    places += ",?";
  }
  if (!execute(db, "PRAGMA journal_mode = WAL; CREATE TABLE trend (time INTEGER PRIMARY KEY" +
                       columns + "); BEGIN")) {
    return false;
  }
  sqlite3_stmt* insert = nullptr;
  const std::string sql = "INSERT INTO trend VALUES (" + places + ")";
  sqlite3_prepare_v2(db, sql.c_str(), -1, &insert, nullptr);
  for (const tt::CSnapshot& row : data.snapshots) {
    int index = 1;
    sqlite3_bind_int64(insert, index++, row.timestamp);
    for (const tt::CSample& sample : row.samples) {
      for (const double value : {sample.min, sample.max, sample.avg}) {
        sqlite3_bind_double(insert, index++, value);
      }
    }
    if (sqlite3_step(insert) != SQLITE_DONE) return false;
    sqlite3_reset(insert);
  }
  sqlite3_finalize(insert);
  const bool is_done = execute(db, "COMMIT");
  sqlite3_close(db);
  return is_done;
}

bool make_rrd_commands(const char* rrd, const char* path, const tt::CDeviceData& data) {
  std::FILE* file = std::fopen(path, "w");
  if (file == nullptr) return false;
  const std::size_t params = data.snapshots.front().samples.size();
  std::fprintf(file, "create %s --step 300 --start %lld", rrd,
               static_cast<long long>(data.snapshots.front().timestamp) - 300);
  for (std::size_t i = 0; i < params; ++i) std::fprintf(file, " DS:p%zu:GAUGE:600:U:U", i);
  for (const char* kind : {"MIN", "MAX", "AVERAGE"}) {
    std::fprintf(file, " RRA:%s:0.5:1:%zu", kind, data.snapshots.size());
  }
  for (std::size_t i = 0; i < data.snapshots.size(); ++i) {
    const tt::CSnapshot& row = data.snapshots[i];
    if (i % 100 == 0) std::fprintf(file, "\nupdate %s", rrd);
    std::fprintf(file, " %lld", static_cast<long long>(row.timestamp));
    for (const tt::CSample& sample : row.samples) std::fprintf(file, ":%.17g", sample.avg);
  }
  std::fputc('\n', file);
  return std::fclose(file) == 0;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3 && argc != 5) return 2;
  tt::CLog log;
  std::vector<tt::CDeviceProperties> devices;
  std::vector<tt::CPeriodProperties> periods;
  tt::CDeviceParams device;
  tt::CDeviceData data;
  if (log.open(argv[1], true, false, 40, false, 0, 0, 0, false) != 0 ||
      log.get_devices(devices) != 0 || devices.empty() || log.get_periods(periods) != 0) {
    return 1;
  }
  device.device = devices.front();
  if (log.get_params(device.device, device.params) != 0 ||
      log.get_trend_data(data, device, periods, {-1, -1}, 0, 0, true, true) != 0) {
    return 1;
  }
  if (!make_wide(argv[2], data)) return 1;
  return argc == 3 || make_rrd_commands(argv[3], argv[4], data) ? 0 : 1;
}
