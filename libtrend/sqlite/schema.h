// The numbers and tables of the database format, see docs/trend-database.md.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "libtrend/log.h"

namespace toolkit::trend {

inline constexpr std::int64_t APPLICATION_ID = 0x54524E44;
inline constexpr std::int64_t FORMAT_VERSION = 1;

/// A snapshot's id is its series' id, shifted by this many bits, plus its timestamp.
inline constexpr int TIMESTAMP_BITS = 40;
inline constexpr std::int64_t MAX_TIMESTAMP = (std::int64_t{1} << TIMESTAMP_BITS) - 1;
inline constexpr std::int64_t MAX_SERIES_ID = (std::int64_t{1} << (63 - TIMESTAMP_BITS)) - 1;

/// No row has this many slots: SQLite's rows are of at most 10^9 bytes.
inline constexpr std::int64_t MAX_SLOTS = 1'000'000'000 / 8;

/// The flags of a parameter in the order of its bits in `parameter.statistics` and of its slots.
inline constexpr std::array STATISTIC_FLAGS = {
    &CParamProperties::has_min, &CParamProperties::has_max, &CParamProperties::has_avg,
    &CParamProperties::has_actual, &CParamProperties::has_sum};
inline constexpr std::int64_t ALL_STATISTICS = (1 << STATISTIC_FLAGS.size()) - 1;

/// The value of `parameter.statistics` for the flags of `param`.
inline std::int64_t get_statistics(const CParamProperties& param) {
  std::int64_t statistics = 0;
  for (std::size_t bit = 0; bit < STATISTIC_FLAGS.size(); ++bit) {
    statistics |= std::int64_t{param.*STATISTIC_FLAGS[bit]} << bit;
  }
  return statistics;
}

/// Sets the flags of `param` from a value of `parameter.statistics`.
inline void set_statistics(CParamProperties& param, std::int64_t statistics) {
  for (std::size_t bit = 0; bit < STATISTIC_FLAGS.size(); ++bit) {
    param.*STATISTIC_FLAGS[bit] = (statistics >> bit & 1) != 0;
  }
}

inline constexpr const char* CREATE_SCHEMA = R"(
CREATE TABLE device (
  id          INTEGER PRIMARY KEY,
  path        TEXT NOT NULL UNIQUE,
  description TEXT NOT NULL DEFAULT ''
) STRICT;
CREATE TABLE parameter (
  id         INTEGER PRIMARY KEY,
  device_id  INTEGER NOT NULL REFERENCES device (id),
  path       TEXT NOT NULL,
  statistics INTEGER NOT NULL CHECK (statistics BETWEEN 0 AND 31),
  first_slot INTEGER NOT NULL CHECK (first_slot >= 0),
  UNIQUE (device_id, path)
) STRICT;
CREATE TABLE series (
  id        INTEGER PRIMARY KEY,
  device_id INTEGER NOT NULL REFERENCES device (id),
  minutes   INTEGER NOT NULL CHECK (minutes > 0),
  UNIQUE (device_id, minutes)
) STRICT;
CREATE TABLE snapshot (
  id          INTEGER PRIMARY KEY CHECK (id & 0xFFFFFFFFFF > 0),
  valid_ratio REAL NOT NULL,
  samples     BLOB NOT NULL
) STRICT;
PRAGMA application_id = 0x54524E44;
PRAGMA user_version = 1;
)";

}  // namespace toolkit::trend
