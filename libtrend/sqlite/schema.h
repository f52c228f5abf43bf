// The numbers and tables of the database format, see docs/trend-database.md.
#pragma once

#include <cstdint>

#include "libtrend/query/engine.h"

namespace toolkit::trend {

inline constexpr std::int64_t APPLICATION_ID = 0x54524E44;
inline constexpr std::int64_t FORMAT_VERSION = 1;

/// A snapshot's id is its series' id, shifted by this many bits, plus its timestamp.
inline constexpr int TIMESTAMP_BITS = 40;
static_assert(MAX_TIMESTAMP == (std::int64_t{1} << TIMESTAMP_BITS) - 1);
inline constexpr std::int64_t MAX_SERIES_ID = (std::int64_t{1} << (63 - TIMESTAMP_BITS)) - 1;

/// Returns whether a series may have this id: the ids of its rows have to fit into 64 bits.
inline bool is_series_id(std::int64_t id) {
  return id >= -MAX_SERIES_ID - 1 && id <= MAX_SERIES_ID;
}

/// Returns the id of the snapshot of a series at `timestamp`.
inline std::int64_t get_row_id(std::int64_t series_id, std::int64_t timestamp) {
  return series_id * (MAX_TIMESTAMP + 1) + timestamp;
}

/// No row has so many slots: SQLite's rows have at most 10^9 bytes.
inline constexpr std::int64_t MAX_SLOTS = 1'000'000'000 / 8;

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
