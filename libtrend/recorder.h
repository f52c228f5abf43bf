// The trend recorder: writing trend data into a trend database.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>

#include "libtrend/records.h"

namespace toolkit::trend {

class LogWriter;

/// The writer of a trend database, for one thread.
///
/// Everything is written in transactions. The first call that fails inside one undoes the whole
/// transaction, and no call succeeds from then on until the next `begin`. Functions that return an
/// int return 0 on success and -1 on failure; `error` then says why.
class __attribute__((visibility("default"))) CRecorder {
 public:
  CRecorder();
  ~CRecorder();
  CRecorder(CRecorder&&) noexcept;
  CRecorder& operator=(CRecorder&&) noexcept;

  /// Opens the trend database at `path` for writing. Where there is no file, an empty trend
  /// database appears there in one step; if `path` is a symbolic link to a place without a file, it
  /// appears in that place. A file of no bytes is made an empty trend database. A new database is
  /// in WAL mode, another keeps its journal mode. It stays, even if nothing is committed to it. A
  /// database that was open before is closed.
  [[nodiscard]] int open(const std::string& path);

  /// Closes the database; an open transaction is undone.
  void close();

  /// Starts a transaction, after waiting up to 40 seconds for another writer to end its own. Fails
  /// if the file was moved or removed since `open`.
  [[nodiscard]] int begin();
  /// Makes everything since `begin` lasting, and visible to readers, at once. After a failure
  /// nothing of it is recorded, unless `error` says that this is in doubt because the disk failed.
  [[nodiscard]] int commit();
  /// Undoes everything since `begin`, if there was one.
  void rollback();

  /// Adds the device with the path and the description (`aux_text`) of `device`, unless there is
  /// one with that path. Sets `device` to what is recorded.
  [[nodiscard]] int add_device(CDeviceProperties& device);

  /// Adds the parameter with the path and the statistics of `param` to `device`, unless there is
  /// one with that path, which keeps its statistics. Sets `param` to what is recorded: `aux_1` is
  /// the slot of its first statistic, its others follow in the order of the flags. Rows that were
  /// recorded before lack the values of a new parameter. A device has at most 65,535 slots, and at
  /// most 65,535 parameters.
  [[nodiscard]] int add_param(const CDeviceProperties& device, CParamProperties& param);

  /// Adds the series of `device` at the interval of `minutes`, above 0, unless there is one. Sets
  /// `series` to what is recorded. A device has at most 100 series.
  [[nodiscard]] int add_series(const CDeviceProperties& device, std::uint32_t minutes,
                               CSeries& series);

  /// Adds the row of the interval that ends at `timestamp`, in seconds since the epoch, above 0
  /// and below 2^40. `valid_ratio` is from 0 to 1. `slots` are the values by slot, see
  /// statistics.h; a NaN, or a slot after the last, is a value that the row lacks. Fails where the
  /// series has a row at that time.
  [[nodiscard]] int append(const CSeries& series, std::int64_t timestamp, double valid_ratio,
                           std::span<const double> slots);

  /// Sets `change` to the number that `set_copied` last noted for `source` and `series`; 0 if there
  /// is none.
  [[nodiscard]] int get_copied(const std::string& source, const CSeries& series,
                               std::uint64_t& change);

  /// Notes that `series` has all rows of a series of another database up to its change `change`,
  /// see `CLog::get_changes`. `source` is the id of that database, see `CLog::get_uuid`.
  [[nodiscard]] int set_copied(const std::string& source, const CSeries& series,
                               std::uint64_t change);

  /// Removes all rows of `series` with timestamps before `before`, in seconds since the epoch, and
  /// no others. Rows may be added at these times again. The file keeps its size; what becomes free
  /// in it is used for later rows.
  [[nodiscard]] int purge(const CSeries& series, std::int64_t before);

  /// Removes the row of `series` at `timestamp`, in seconds since the epoch. Fails if there is
  /// none. A row may be added at that time again.
  [[nodiscard]] int remove_row(const CSeries& series, std::int64_t timestamp);

  /// Removes `series`, a record that `add_series` has set, with all its rows. Other recorders fail
  /// if they go on to append to it, and have to call `add_series` again: a series that is added
  /// later may get the same id.
  [[nodiscard]] int remove_series(const CSeries& series);

  /// Removes `device`, a record that `add_device` has set or `CLog::get_devices` has returned, with
  /// its parameters, its series and all their rows. Fails if there is no such device. For other
  /// recorders, see `remove_series`.
  [[nodiscard]] int remove_device(const CDeviceProperties& device);

  /// Returns why the last call that failed did, in words, without a line feed.
  [[nodiscard]] const std::string& error() const { return error_; }

 private:
  __attribute__((visibility("hidden"))) int fail(const std::string& reason);
  __attribute__((visibility("hidden"))) int finish(bool is_done);
  [[nodiscard]] __attribute__((visibility("hidden"))) bool is_recording();

  std::unique_ptr<LogWriter> writer_;
  bool in_transaction_ = false;
  std::string error_;
};

}  // namespace toolkit::trend
