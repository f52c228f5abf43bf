// The records of the trend log: its catalogue and its rows.
#pragma once

#include <cstdint>
#include <ctime>
#include <string>
#include <vector>

namespace toolkit::trend {

/// One trended device.
struct CDeviceProperties {
  std::string path;         ///< the device's path in the log
  std::string aux_text;     ///< the device's description
  std::int64_t aux_1 = -1;  ///< the device's id in the database; -1 for no device
};

/// One trended parameter of a device, and which statistics are recorded for it.
struct CParamProperties {
  std::string path;         ///< relative to the device, parts joined by '/'
  std::uint32_t aux_1 = 0;  ///< the parameter's first slot, see statistics.h
  bool has_min = false;
  bool has_max = false;
  bool has_avg = false;
  bool has_actual = false;
  bool has_sum = false;
  std::uint32_t aux_2 = 0;  ///< unused
  std::uint32_t aux_3 = 0;  ///< unused
};

/// One trend interval of the log.
struct CPeriodProperties {
  std::uint32_t interval = 0;  ///< length in minutes
  std::uint32_t aux_1 = 0;     ///< unused
};

/// A device and some of its parameters, in the order in which a query returns their samples.
struct CDeviceParams {
  CDeviceProperties device;
  std::vector<CParamProperties> params;
};

/// The statistics of one parameter over one interval. A NaN stands for a missing value.
struct CSample {
  double min;
  double max;
  double avg;
  double actual;
  double sum;
};

/// One row of trend data.
struct CSnapshot {
  std::uint32_t interval_minutes = 0;
  std::time_t timestamp = 0;     ///< end of the interval, seconds since the epoch
  double valid_ratio = 0;        ///< share of valid data, 0 to 1
  std::vector<CSample> samples;  ///< one per requested parameter, in that order
};

/// The result of one query.
struct CDeviceData {
  CDeviceParams selection;  ///< the query does not change it
  std::vector<CSnapshot> snapshots;
};

/// One series of a trend database: the rows of one device at one interval.
struct CSeries {
  std::int64_t id = 0;        ///< the series' id in the database
  std::uint32_t minutes = 0;  ///< the length of its intervals
};

/// A part of a trend database that is damaged.
struct CDamage {
  std::string device;         ///< the path of the device; empty if the database as a whole is meant
  std::uint32_t minutes = 0;  ///< the interval of the series; 0 if no single series is meant
  std::string param;          ///< whose values are damaged; empty if no single parameter is meant
  std::int64_t first = 0;     ///< rows from this time, in seconds since the epoch,
  std::int64_t last = 0;      ///< to this time may be lost; both are 0 if no rows are meant
  std::string text;           ///< what is wrong, in words, without a line feed
};

/// What one series of a device holds.
struct CSeriesSummary {
  std::uint32_t minutes = 0;    ///< the length of its intervals
  std::uint64_t rows = 0;       ///< also those that a query over several intervals leaves out
  std::int64_t first_time = 0;  ///< the timestamp of its first row; 0 if there are no rows
  std::int64_t last_time = 0;   ///< the timestamp of its last row, likewise
  std::uint64_t bytes = 0;      ///< that the rows take, without what SQLite adds to find them
};

/// All times from `first` to `last`, in seconds since the epoch.
struct CTimeRange {
  std::int64_t first = 0;
  std::int64_t last = 0;

  [[nodiscard]] bool contains(std::int64_t time) const { return time >= first && time <= last; }
};

/// What has changed in a series since one of its changes. Each transaction that changes its rows is
/// one change, and they have ascending numbers.
struct CSeriesChanges {
  std::uint64_t number = 0;        ///< of the last change; 0 if the database does not count them
  std::vector<CTimeRange> ranges;  ///< in order of time, without overlap
};

}  // namespace toolkit::trend
