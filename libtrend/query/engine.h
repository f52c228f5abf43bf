// What a storage engine has to provide: reading and writing one trend database.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "libtrend/records.h"

namespace toolkit::trend {

/// The first and the last timestamp of rows, in seconds since the epoch. Every row has one above
/// `NO_ROW`.
inline constexpr std::int64_t NO_ROW = 0;
inline constexpr std::int64_t MAX_TIMESTAMP = (std::int64_t{1} << 40) - 1;

/// Walks through the rows of one series in order of time, one way.
///
/// A function that returns bool returns false on failure, damaged data included; the reader that
/// made the cursor then has the reason.
class SeriesCursor {
 public:
  SeriesCursor() = default;
  virtual ~SeriesCursor() = default;
  SeriesCursor(const SeriesCursor&) = delete;
  SeriesCursor& operator=(const SeriesCursor&) = delete;

  /// Goes to the first row, in the direction of the walk, of those from `earliest` to `latest`,
  /// which are the only ones that the walk visits from then on.
  [[nodiscard]] virtual bool place(std::int64_t earliest, std::int64_t latest) = 0;
  /// Goes from a row to the next by its time alone; no value is decoded.
  [[nodiscard]] virtual bool advance() = 0;
  /// Skips `count` rows. At the last row of the range the walk is over.
  [[nodiscard]] virtual bool pass(std::uint64_t count) {
    for (; count > 0 && timestamp_ != NO_ROW; --count) {
      if (!advance()) return false;
    }
    return true;
  }

  /// The timestamp of the current row, NO_ROW after the last one.
  [[nodiscard]] std::int64_t timestamp() const { return timestamp_; }

  /// Fills `row`, a fresh one, with the current row: its time, share of valid data, and the samples
  /// of the parameters that the cursor was made for.
  [[nodiscard]] virtual bool decode(CSnapshot& row) = 0;

  /// Finds the series' last row before `time`, wherever the cursor is. Sets `timestamp` to its time
  /// or to NO_ROW.
  [[nodiscard]] virtual bool find_before(std::int64_t time, std::int64_t& timestamp) = 0;

 protected:
  std::int64_t timestamp_ = NO_ROW;
};

/// Reads one open trend database.
class LogReader {
 public:
  LogReader() = default;
  virtual ~LogReader() = default;
  LogReader(const LogReader&) = delete;
  LogReader& operator=(const LogReader&) = delete;

  /// Runs `query`, which calls the functions below, on one unchanging state of the database.
  /// Returns false where it does, or where there is no such state. `query` may be run again from
  /// its start if the first answer cannot be trusted.
  [[nodiscard]] virtual bool run(const std::function<bool()>& query) = 0;

  /// Append the catalogue's entries; see the functions of the same names of `CLog`. They return
  /// false on failure.
  [[nodiscard]] virtual bool get_devices(std::vector<CDeviceProperties>& devices) = 0;
  [[nodiscard]] virtual bool get_params(const CDeviceProperties& device,
                                        std::vector<CParamProperties>& params) = 0;
  [[nodiscard]] virtual bool get_periods(std::vector<CPeriodProperties>& periods) = 0;
  /// Appends the series of `device`, by ascending length of their intervals.
  [[nodiscard]] virtual bool get_series(const CDeviceProperties& device,
                                        std::vector<CSeries>& series) = 0;

  /// Makes a cursor over `series` that decodes the values of `params`, which must outlive it, as
  /// the query must. Returns null on failure.
  [[nodiscard]] virtual std::unique_ptr<SeriesCursor> make_cursor(
      const CSeries& series, const std::vector<CParamProperties>& params, bool ascending) = 0;

  /// Why the last call that failed did.
  [[nodiscard]] const std::string& error() const { return error_; }

 protected:
  std::string error_;
};

/// Writes one open trend database, in transactions. `CRecorder` tells what its functions do; these
/// return false on failure and leave it to the caller to roll back.
class LogWriter {
 public:
  LogWriter() = default;
  virtual ~LogWriter() = default;
  LogWriter(const LogWriter&) = delete;
  LogWriter& operator=(const LogWriter&) = delete;

  [[nodiscard]] virtual bool begin() = 0;
  [[nodiscard]] virtual bool commit() = 0;
  virtual void rollback() = 0;

  [[nodiscard]] virtual bool add_device(CDeviceProperties& device) = 0;
  [[nodiscard]] virtual bool add_param(const CDeviceProperties& device,
                                       CParamProperties& param) = 0;
  [[nodiscard]] virtual bool add_series(const CDeviceProperties& device, std::uint32_t minutes,
                                        CSeries& series) = 0;
  /// The timestamp and the share of valid data are within their bounds.
  [[nodiscard]] virtual bool append(const CSeries& series, std::int64_t timestamp,
                                    double valid_ratio, std::span<const double> slots) = 0;
  [[nodiscard]] virtual bool purge(const CSeries& series, std::int64_t before) = 0;

  /// Why the last call that failed did.
  [[nodiscard]] const std::string& error() const { return error_; }

 protected:
  std::string error_;
};

}  // namespace toolkit::trend
