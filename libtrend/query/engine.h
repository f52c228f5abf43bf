// The interface of a storage engine, which reads and writes one trend database.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "libtrend/progress.h"
#include "libtrend/records.h"

namespace toolkit::trend {

/// The limits of timestamps, in seconds since the epoch. A row's timestamp is above `NO_ROW` and at
/// most `MAX_TIMESTAMP`.
inline constexpr std::int64_t NO_ROW = 0;
inline constexpr std::int64_t MAX_TIMESTAMP = (std::int64_t{1} << 40) - 1;

/// The most slots of a device, and the most parameters.
inline constexpr std::size_t MAX_DEVICE_SLOTS = 65535;
/// The most series of a device, one for each interval. A query may need memory for all of them.
inline constexpr std::size_t MAX_DEVICE_SERIES = 100;

/// Reads the rows of one series in order of time, in one direction.
///
/// A function that returns bool returns false on failure, for example if the data is damaged. The
/// reader that made the cursor then has the reason in `error`.
class SeriesCursor {
 public:
  SeriesCursor() = default;
  virtual ~SeriesCursor() = default;
  SeriesCursor(const SeriesCursor&) = delete;
  SeriesCursor& operator=(const SeriesCursor&) = delete;

  /// Limits the cursor to the rows from `earliest` to `latest`, both inclusive, and goes to the
  /// first of them in the cursor's direction.
  [[nodiscard]] virtual bool place(std::int64_t earliest, std::int64_t latest) = 0;
  /// Goes to the next row. Reads its timestamp only and decodes no values.
  [[nodiscard]] virtual bool advance() = 0;
  /// Skips `count` rows, or all that are left if these are fewer.
  [[nodiscard]] virtual bool pass(std::uint64_t count) {
    for (; count > 0 && timestamp_ != NO_ROW; --count) {
      if (!advance()) return false;
    }
    return true;
  }

  /// Returns the timestamp of the current row, NO_ROW after the last one.
  [[nodiscard]] std::int64_t timestamp() const { return timestamp_; }

  /// Fills `row`, which is a new object, with the current row: its timestamp, share of valid data,
  /// and the samples of the parameters that the cursor was made for.
  [[nodiscard]] virtual bool decode(CSnapshot& row) = 0;

  /// Finds the last row of the series before `time`, independent of the cursor's position. Sets
  /// `timestamp` to its timestamp, or to NO_ROW if there is none.
  [[nodiscard]] virtual bool find_before(std::int64_t time, std::int64_t& timestamp) = 0;

 protected:
  std::int64_t timestamp_ = NO_ROW;
};

/// How many rows a query will read at most, over all its series: it skips some, and then returns
/// others. What an engine may read at once.
struct RowsWanted {
  std::uint64_t skipped = 0;
  std::uint64_t rows = 0;
};

/// Reads one open trend database.
class LogReader {
 public:
  LogReader() = default;
  virtual ~LogReader() = default;
  LogReader(const LogReader&) = delete;
  LogReader& operator=(const LogReader&) = delete;

  /// Runs `query`, which calls the functions below and sees one unchanging state of the database.
  /// Returns false if `query` does, or if no such state can be read. `query` may run a second time
  /// from its start, if the result of the first run may be wrong.
  [[nodiscard]] virtual bool run(const std::function<bool()>& query) = 0;

  /// Append the entries of the catalogue, as the functions of `CLog` with the same names do. Return
  /// false on failure.
  [[nodiscard]] virtual bool get_devices(std::vector<CDeviceProperties>& devices) = 0;
  [[nodiscard]] virtual bool get_params(const CDeviceProperties& device,
                                        std::vector<CParamProperties>& params) = 0;
  [[nodiscard]] virtual bool get_periods(std::vector<CPeriodProperties>& periods) = 0;
  /// Appends the series of `device`, the one with the shortest interval first.
  [[nodiscard]] virtual bool get_series(const CDeviceProperties& device,
                                        std::vector<CSeries>& series) = 0;

  /// Sets `summary` to that of `series`. Returns false on failure.
  [[nodiscard]] virtual bool summarize(const CSeries& series, CSeriesSummary& summary) = 0;

  /// Makes a cursor over `series` that decodes the values of `params`. It must be destroyed before
  /// `params` and before the query ends. `wanted` is what the query wants of all its cursors.
  /// Returns null on failure.
  [[nodiscard]] virtual std::unique_ptr<SeriesCursor> make_cursor(
      const CSeries& series, const std::vector<CParamProperties>& params, bool ascending,
      const RowsWanted& wanted) = 0;

  /// Sets `uuid` as `CLog::get_uuid` does. Returns false on failure.
  [[nodiscard]] virtual bool get_uuid(std::string& uuid) = 0;
  /// Fills `changes`, a new object, with the changes of `series` after the number `since`, see
  /// `CLog::get_changes`. If `since` is not reached yet, `ranges` may hold anything. Returns false
  /// on failure.
  [[nodiscard]] virtual bool get_changes(const CSeries& series, std::uint64_t since,
                                         CSeriesChanges& changes) = 0;

  /// Appends the damage that queries have left out so far; none if they fail at damage.
  virtual void get_damage(std::vector<CDamage>& damage) const = 0;
  /// See the functions of `CLog` with the same names. Return false on failure.
  [[nodiscard]] virtual bool check(std::vector<CDamage>& damage,
                                   const ReportProgress& progress) = 0;
  [[nodiscard]] virtual bool backup(const std::string& path, const ReportProgress& progress) = 0;

  /// Why the last call that failed did.
  [[nodiscard]] const std::string& error() const { return error_; }

 protected:
  std::string error_;
};

/// Writes one open trend database, in transactions. `CRecorder` describes what the functions do.
/// Here they return false on failure, and the caller has to roll back.
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
  /// The caller has checked that the timestamp and the share of valid data are in range.
  [[nodiscard]] virtual bool append(const CSeries& series, std::int64_t timestamp,
                                    double valid_ratio, std::span<const double> slots) = 0;
  [[nodiscard]] virtual bool get_copied(const std::string& source, const CSeries& series,
                                        std::uint64_t& change) = 0;
  [[nodiscard]] virtual bool set_copied(const std::string& source, const CSeries& series,
                                        std::uint64_t change) = 0;
  [[nodiscard]] virtual bool purge(const CSeries& series, std::int64_t before) = 0;
  [[nodiscard]] virtual bool remove_row(const CSeries& series, std::int64_t timestamp) = 0;
  [[nodiscard]] virtual bool remove_series(const CSeries& series) = 0;
  [[nodiscard]] virtual bool remove_device(const CDeviceProperties& device) = 0;

  /// Why the last call that failed did.
  [[nodiscard]] const std::string& error() const { return error_; }

 protected:
  std::string error_;
};

}  // namespace toolkit::trend
