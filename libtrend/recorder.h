// The trend recorder: writing trend data into a trend database.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>

#include "libtrend/log.h"

namespace toolkit::trend {

/// One series of a trend database: the rows of one device at one interval.
struct CSeries {
  std::int64_t id = 0;  ///< the series' row in the database
};

/// The writer of a trend database, for one thread.
///
/// Everything is written in transactions. The first call that fails inside one undoes the whole
/// transaction, and no call succeeds from then on until the next `begin`. Functions return 0, or -1
/// on failure with the reason in `error()`.
class CRecorder {
 public:
  CRecorder();
  ~CRecorder();
  CRecorder(CRecorder&&) noexcept;
  CRecorder& operator=(CRecorder&&) noexcept;

  /// Opens the trend database at `path` for writing. Where there is no file or an empty one, the
  /// first transaction creates the database; until it is committed others see an empty file. A new
  /// database is in WAL mode, another keeps its journal mode. A database that was open before is
  /// closed.
  [[nodiscard]] int open(const std::string& path);

  /// Closes the database; an open transaction is undone. Where nothing was committed to a new
  /// database, its file is removed if `open` created it, and left empty if not.
  void close();

  /// Starts a transaction, after waiting up to 40 seconds for another writer to end its own.
  [[nodiscard]] int begin();
  /// Makes everything since `begin` lasting, and visible to readers, at once.
  [[nodiscard]] int commit();
  /// Undoes everything since `begin`, if there was one.
  void rollback();

  /// Adds the device with the path and the description (`aux_text`) of `device`, unless there is
  /// one with that path. Sets `device` to what is recorded.
  [[nodiscard]] int add_device(CDeviceProperties& device);

  /// Adds the parameter with the path and the statistics of `param` to `device`, unless there is
  /// one with that path, which keeps its statistics. Sets `param` to what is recorded: `aux_1` is
  /// the slot of its first statistic, its others follow in the order of the flags. Rows that were
  /// recorded before lack the values of a new parameter.
  [[nodiscard]] int add_param(const CDeviceProperties& device, CParamProperties& param);

  /// Gives the series of `device` at the interval of `minutes`, above 0, and adds it if need be.
  [[nodiscard]] int add_series(const CDeviceProperties& device, std::uint32_t minutes,
                               CSeries& series);

  /// Adds the row of the interval that ends at `timestamp`, in seconds since the epoch, above 0
  /// and below 2^40. `valid_ratio` is from 0 to 1. `slots` are the values by slot; a NaN, or a slot
  /// behind the last, is a value that the row lacks. Fails where the series has a row at that time.
  [[nodiscard]] int append(const CSeries& series, std::int64_t timestamp, double valid_ratio,
                           std::span<const double> slots);

  /// Why the last call that failed did, in words, without a line feed.
  [[nodiscard]] const std::string& error() const { return error_; }

 private:
  struct Connection;

  int fail(const std::string& reason);
  int fail_with_database_error();
  [[nodiscard]] bool is_recording();

  std::unique_ptr<Connection> connection_;
  std::string path_;
  std::string error_;
};

}  // namespace toolkit::trend
