// What a database has of a device.
#pragma once

#include <cstdint>
#include <ctime>
#include <string>
#include <vector>

#include "libtrend/log.h"

/// A device, its parameters, and its series.
struct DeviceContents {
  toolkit::trend::CDeviceProperties device;
  std::vector<toolkit::trend::CParamProperties> params;  ///< in the order of trendcsv
  std::vector<std::string> display_names;  ///< of the parameters; empty if they are not wanted
  std::vector<toolkit::trend::CSeriesSummary> series;  ///< the shortest interval first

  [[nodiscard]] std::uint64_t rows() const;
  [[nodiscard]] std::uint64_t bytes() const;
  /// The time of the first row of any series, 0 if there are no rows.
  [[nodiscard]] std::int64_t first_time() const;
  /// The time of the last row, likewise.
  [[nodiscard]] std::int64_t last_time() const;
};

/// Reads the devices with the paths `names`, or all devices if `names` is empty; their series only
/// with `with_series`. Returns what is wrong, or an empty text.
[[nodiscard]] std::string read_contents(toolkit::trend::CLog& log,
                                        const std::vector<std::string>& names,
                                        bool use_display_names, bool with_series,
                                        std::vector<DeviceContents>& contents);
