// What a reader finds in a whole trend database.
#pragma once

#include <cstdint>
#include <map>
#include <string>

/// One database as a plain structure, so that two can be compared whatever their ids and slots are.
struct LogContent {
  struct Series {
    /// The rows by time. A text has the share of valid data and all values, bit by bit, where a NaN
    /// is like any other.
    std::map<std::int64_t, std::string> rows;
    [[nodiscard]] bool operator==(const Series&) const = default;
  };
  struct Device {
    std::string description;
    std::map<std::string, std::uint32_t> params;  ///< the statistics by path
    std::map<std::uint32_t, Series> series;       ///< by the interval in minutes
    [[nodiscard]] bool operator==(const Device&) const = default;
  };
  std::map<std::string, Device> devices;  ///< by path

  [[nodiscard]] bool operator==(const LogContent&) const = default;
};

/// Reads the database at `path`. Throws if that fails.
[[nodiscard]] LogContent read_content(const std::string& path);

/// Whether all that `part` has is in `whole`.
[[nodiscard]] bool is_part(const LogContent& part, const LogContent& whole);
