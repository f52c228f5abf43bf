// The catalogue of a copy: which devices, parameters and series are copied to where.
//
// Functions that return a string return what is wrong, for a message, or an empty text.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "libtrend/log.h"
#include "libtrend/recorder.h"

/// A series that is copied.
struct SeriesToCopy {
  toolkit::trend::CSeriesSummary source;
  toolkit::trend::CSeries target;
  std::uint64_t copied = 0;  ///< the change of the source up to which the target has all rows
};

/// A device that is copied. Its parameters have the same places in both lists; those that can't be
/// copied are in none.
struct DeviceToCopy {
  toolkit::trend::CDeviceParams source;
  toolkit::trend::CDeviceParams target;
  std::vector<SeriesToCopy> series;
  /// One line for each parameter that the other database has with other statistics.
  std::vector<std::string> conflicts;
  std::string note;  ///< that its description differs; empty if it does not
};

/// Reads the parameters and the series of `device.source.device`. Only intervals of `minutes` are
/// wanted, or all if `minutes` is empty.
[[nodiscard]] std::string read_device(toolkit::trend::CLog& from,
                                      const std::vector<std::uint32_t>& minutes,
                                      DeviceToCopy& device);

/// Adds all that was read to the other database, in one transaction, and finds out how far earlier
/// copies from the database `uuid` came. The paths of devices get `prefix`.
[[nodiscard]] std::string copy_catalogue(toolkit::trend::CRecorder& to, const std::string& uuid,
                                         const std::string& prefix,
                                         std::vector<DeviceToCopy>& devices);
