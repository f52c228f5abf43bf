// The time zones of the system.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

/// A time zone that has a file.
struct SystemZone {
  std::string name;  ///< as in the environment variable TZ, like "right/Asia/Tokyo"
  std::vector<std::int64_t> changes;  ///< seconds since the epoch of changes and leap seconds
};

/// Returns all zones, but only one of those with equal files. Empty if there is no time zone
/// database.
[[nodiscard]] std::vector<SystemZone> system_zones();
