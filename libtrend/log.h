// The trend log: reads the trend data of devices from a trend database.
//
// docs/trend-database.md describes the database format.
#pragma once

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "libtrend/progress.h"
#include "libtrend/records.h"

namespace toolkit::trend {

/// How `CLog::open` opens a database.
struct OpenOptions {
  /// Open for reading. The options that would change the file then have no effect.
  bool read_only = true;
  /// Create an empty trend database if there is no file.
  bool create = false;
  /// How many seconds a call waits for a lock that another program holds.
  unsigned busy_timeout = 40;
  /// Lock all other programs out while the database is open. `open` fails if that is not possible:
  /// a reader cannot lock a database in WAL mode.
  bool exclusive = false;
  /// The page size of a new database, in bytes; 0 for SQLite's default.
  unsigned page_size = 0;
  /// The size of the page cache, in bytes; 0 for SQLite's default.
  unsigned cache_size = 0;
  /// The soft limit of all memory that SQLite uses in this process, in bytes; 0 for none.
  unsigned heap_limit = 0;
  /// Keep a rollback journal instead of a write-ahead log.
  bool traditional_journal = false;
};

/// The handle of a trend database.
///
/// Copies of a handle share one connection. The connection ends with `close` on any of them, or
/// when the last one is destroyed. Every call on a handle without an open connection fails and
/// changes nothing. A handle and its copies must not be used by several threads at once.
///
/// Functions that return an int return 0 on success and -1 on failure; `error` then says why.
class __attribute__((visibility("default"))) CLog {
 public:
  /// Opens the trend database at `path`. A connection that the handle held before is released.
  ///
  /// Fails if `path` is not a regular file, or is not a readable trend database of a known version.
  /// The handle then has no connection, and the file is unchanged.
  [[nodiscard]] int open(const std::string& path, const OpenOptions& options);

  /// The same, with one argument for each field of `OpenOptions`.
  [[nodiscard]] int open(const std::string& path, bool read_only, bool create,
                         unsigned busy_timeout, bool exclusive, unsigned page_size,
                         unsigned cache_size, unsigned heap_limit, bool traditional_journal);

  /// Opens the trend database at `path` for reading, even if it is damaged, for example cut off.
  /// Queries then leave out what they can't read, and `get_damage` tells what that was. A row that
  /// has a checksum is never returned with wrong values, unless the catalogue is damaged, which
  /// says whose values they are. `get_series` still fails at damage. Fails like `open` if not even
  /// the tables can be found.
  [[nodiscard]] int open_damaged(const std::string& path, const OpenOptions& options);

  /// Ends the connection for this handle and all its copies.
  void close();

  /// Appends every device of the log to `devices`, in the order in which they were added.
  [[nodiscard]] int get_devices(std::vector<CDeviceProperties>& devices);

  /// Appends the parameters of `device`, a record that `get_devices` returned, to `params`, in no
  /// particular order.
  [[nodiscard]] int get_params(const CDeviceProperties& device,
                               std::vector<CParamProperties>& params);

  /// Appends the distinct intervals of the log to `periods`, the smallest first.
  [[nodiscard]] int get_periods(std::vector<CPeriodProperties>& periods);

  /// Appends a summary of each series of `device`, a record that `get_devices` returned, to
  /// `series`, the shortest interval first. It does not read the rows that are in blocks, so it is
  /// fast, and does not notice all damage to them.
  [[nodiscard]] int get_series(const CDeviceProperties& device,
                               std::vector<CSeriesSummary>& series);

  /// Sets `uuid` to the id of the database, which no other has but copies of its file. It is empty
  /// in a database of version 1, and after `open_damaged`.
  [[nodiscard]] int get_uuid(std::string& uuid);

  /// Finds out where a series has changed, in order to copy what is new. `device` is a record that
  /// `get_devices` returned, `minutes` the interval of the series. Sets `changes.number` to the
  /// number of its last change. Sets `changes.ranges` so that each row that was added after the
  /// change `since` is in one of them; other rows may be, too. With `since` 0 all rows are, and
  /// likewise with a number that the series has not reached, as after a backup was put in its
  /// place. Fails if there is no such series.
  [[nodiscard]] int get_changes(const CDeviceProperties& device, std::uint32_t minutes,
                                std::uint64_t since, CSeriesChanges& changes);

  /// Reads rows of one device, each with one sample per entry of `device.params`, and appends them
  /// to `result.snapshots`.
  ///
  /// Only rows of the intervals in `periods` are considered. A row is left out if a row of a
  /// shorter interval ends within its interval, even if that other row is outside the range or is
  /// left out itself. `range` is the earliest and the latest timestamp in seconds since the epoch,
  /// both inclusive, -1 for no bound. A range that ends before it starts has no rows. The rows come
  /// in ascending order of time or, with `ascending` false, in descending order. In that order the
  /// first `offset` rows are skipped, and at most `count` of the others are returned, or all of
  /// them if `count` is 0. Rows with timestamps that a time_t cannot hold are left out. The last
  /// argument is reserved; pass true.
  ///
  /// Also fails if the query finds damaged data. After a failure `result` must not be used.
  [[nodiscard]] int get_trend_data(CDeviceData& result, const CDeviceParams& device,
                                   const std::vector<CPeriodProperties>& periods,
                                   const std::pair<long, long>& range, unsigned count,
                                   unsigned offset, bool ascending, bool reserved);

  /// Appends the damage that the queries since `open_damaged` have met to `damage`, each part once,
  /// in the order of device, interval and time. Appends nothing if the database was opened by
  /// `open`: there, a query that meets damage fails.
  ///
  /// Rows may be missing in the results of the queries only at the times that are named here. If a
  /// `param` is named, the rows are there, and only the values of that parameter are missing.
  [[nodiscard]] int get_damage(std::vector<CDamage>& damage);

  /// Reads the whole database, and appends all damage that is found to `damage`; nothing if the
  /// database can be trusted. Not more than the first 1,000 parts are told. Works best after
  /// `open_damaged`, as `open` refuses a database with some kinds of damage. `progress` counts
  /// rows; the total is not known in a database of version 1. Fails if `progress` ended it.
  [[nodiscard]] int check(std::vector<CDamage>& damage, const ReportProgress& progress = {});

  /// Copies the database into a new file `path`, while others may record. The copy is one state of
  /// the database: transactions that are committed later are not in it. It is checked as `check`
  /// does before it gets its name, so a file `path` is always complete. Fails if the database is
  /// damaged, if there is a file of that name, or if `progress` ended it; no new file is then left.
  /// `progress` counts pages, each of them twice: when it is copied and when it is checked.
  [[nodiscard]] int backup(const std::string& path, const ReportProgress& progress = {});

  /// Returns why the last failed call on this handle or a copy failed, as a text without a line
  /// feed.
  [[nodiscard]] std::string error() const;

 private:
  struct __attribute__((visibility("hidden"))) Connection;

  [[nodiscard]] __attribute__((visibility("hidden"))) bool is_open() const;

  std::shared_ptr<Connection> connection_;
};

}  // namespace toolkit::trend
