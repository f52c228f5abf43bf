// The trend log: reading the trend data of devices out of a trend database.
//
// The database format is written down in docs/trend-database.md.
#pragma once

#include <cstdint>
#include <ctime>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "libtrend/recycling_allocator.h"

namespace toolkit::trend {

/// One trended device.
struct CDeviceProperties {
  std::string path;         ///< the device's path in the log
  std::string aux_text;     ///< the device's description
  std::int64_t aux_1 = -1;  ///< the device's row in the database; -1 for no device
};

/// One trended parameter of a device, and which statistics its rows carry.
struct CParamProperties {
  std::string path;         ///< relative to the device, parts joined by '/'
  std::uint32_t aux_1 = 0;  ///< the first of the parameter's slots in a row's packed values
  bool has_min = false;
  bool has_max = false;
  bool has_avg = false;
  bool has_actual = false;
  bool has_sum = false;
  std::uint32_t aux_2 = 0;  ///< unused
  std::uint32_t aux_3 = 0;  ///< unused
};

/// One trend interval that the log keeps.
struct CPeriodProperties {
  std::uint32_t interval = 0;  ///< length in minutes
  std::uint32_t aux_1 = 0;     ///< unused
};

/// A device and some of its parameters, in the order in which their values are wanted.
struct CDeviceParams {
  CDeviceProperties device;
  std::vector<CParamProperties> params;
};

/// The statistics of one parameter over one interval. A NaN is a value that the row lacks.
struct CSample {
  double min;
  double max;
  double avg;
  double actual;
  double sum;
};

/// The samples of a row.
using CSamples = std::vector<CSample, RecyclingAllocator<CSample>>;

/// One row of trend data.
struct CSnapshot {
  std::uint32_t interval_minutes = 0;
  std::time_t timestamp = 0;  ///< end of the interval, seconds since the epoch
  double valid_ratio = 0;     ///< share of valid data, 0 to 1
  CSamples samples;           ///< one per parameter asked for, in that order
};

/// The result of one query.
struct CDeviceData {
  CDeviceParams selection;  ///< left as it is by the query
  std::vector<CSnapshot> snapshots;
};

/// The handle of a trend database.
///
/// Copies of a handle share one connection. The connection ends with `close` on any of them, or
/// when the last one is destroyed. Every call on a handle without an open connection fails and
/// changes nothing. Not for concurrent use by several threads.
class CLog {
 public:
  /// Opens the trend database at `path`; a connection that the handle held before is released.
  ///
  /// `read_only`: open for reading; the remaining switches that would change the file are then
  /// without effect. `create`: make a new, empty trend database where there is none.
  /// `busy_timeout`: seconds that a call waits for a lock that another program holds.
  /// `exclusive`: lock every other program out while the connection is open; fails where that
  /// cannot be had, as with a read-only connection to a database in WAL mode.
  /// `page_size`, `cache_size`, `heap_limit`: bytes; page size of a database that is created, size
  /// of the page cache, and soft limit of the heap of all of SQLite in this process. 0 leaves
  /// SQLite's own default. `traditional_journal`: keep a rollback journal instead of a write-ahead
  /// log.
  ///
  /// Returns 0, or -1 where `path` is no regular file or holds no readable trend database of a
  /// known version; the handle is then empty and the file as it was.
  [[nodiscard]] int open(const std::string& path, bool read_only, bool create,
                         unsigned busy_timeout, bool exclusive, unsigned page_size,
                         unsigned cache_size, unsigned heap_limit, bool traditional_journal);

  /// Ends the connection for this handle and all its copies.
  void close();

  /// Appends every device of the log to `devices`, in the order in which they were recorded first.
  /// Returns 0, or -1 on failure.
  [[nodiscard]] int get_devices(std::vector<CDeviceProperties>& devices);

  /// Appends the parameters of `device`, a record that `get_devices` gave, to `params`, in no
  /// particular order. Returns 0, or -1 on failure.
  [[nodiscard]] int get_params(const CDeviceProperties& device,
                               std::vector<CParamProperties>& params);

  /// Appends the distinct intervals of the log to `periods`, the smallest first. Returns 0, or -1
  /// on failure.
  [[nodiscard]] int get_periods(std::vector<CPeriodProperties>& periods);

  /// Reads rows of one device, each with one sample per entry of `device.params`.
  ///
  /// Only rows of the intervals in `periods` are considered, and a row of a coarser one only where
  /// no row of a finer one ends within its stretch, be that row in the range or not. `range` is
  /// the earliest and the latest timestamp, both inclusive, -1 for no bound; a range that ends
  /// before it starts holds nothing. The rows come in ascending order of time or, with `ascending`
  /// false, in descending order; in that order `offset` rows are passed over and at most `count`
  /// returned, all of them where `count` is 0. Rows with timestamps that a time_t cannot hold are
  /// left out. The last argument is reserved; pass true.
  ///
  /// Appends the rows to `result.snapshots` and returns 0. Returns -1 on failure, also where the
  /// database turns out to be damaged part of the way; `result` is then not to be used.
  [[nodiscard]] int get_trend_data(CDeviceData& result, const CDeviceParams& device,
                                   const std::vector<CPeriodProperties>& periods,
                                   const std::pair<long, long>& range, unsigned count,
                                   unsigned offset, bool ascending, bool reserved);

 private:
  struct Connection;
  struct QueryEnd;
  std::shared_ptr<Connection> connection_;
};

}  // namespace toolkit::trend
