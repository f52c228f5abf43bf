// The numbers and tables of the database format, see docs/trend-database.md.
#pragma once

#include <cstdint>

#include "libtrend/query/engine.h"

namespace toolkit::trend {

inline constexpr std::int64_t APPLICATION_ID = 0x54524E44;
/// The version that recorders write. Readers know it and those before.
inline constexpr std::int64_t FORMAT_VERSION = 2;
inline constexpr std::int64_t ROWS_ONLY_VERSION = 1;

/// Returns the most series that a device can have. Recorders of version 1 knew no limit; the limit
/// for readers is there as a query needs memory for each series.
inline constexpr std::size_t max_device_series(std::int64_t version) {
  return version == ROWS_ONLY_VERSION ? 65535 : MAX_DEVICE_SERIES;
}

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

/// The id of a segment is the number of its block, shifted by this many bits, plus its place.
inline constexpr int SEGMENT_BITS = 16;
inline constexpr std::int64_t MAX_BLOCK_NUMBER = (std::int64_t{1} << (63 - SEGMENT_BITS)) - 1;

/// The catalogue, which both versions have.
inline constexpr const char* CREATE_CATALOGUE = R"(
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
)";

/// The table of rows that are not sealed yet. In version 1 it is `snapshot`, without a checksum.
inline constexpr const char* CREATE_LOOSE = R"(
CREATE TABLE loose (
  id          INTEGER PRIMARY KEY CHECK (id & 0xFFFFFFFFFF > 0),
  valid_ratio REAL NOT NULL,
  samples     BLOB NOT NULL,
  checksum    INTEGER
) STRICT;
)";

/// What version 1 has besides the catalogue.
inline constexpr const char* CREATE_ROWS_ONLY = R"(
CREATE TABLE snapshot (
  id          INTEGER PRIMARY KEY CHECK (id & 0xFFFFFFFFFF > 0),
  valid_ratio REAL NOT NULL,
  samples     BLOB NOT NULL
) STRICT;
PRAGMA application_id = 0x54524E44;
PRAGMA user_version = 1;
)";

inline constexpr const char* UPGRADE_ROWS = R"(
ALTER TABLE snapshot RENAME TO loose;
ALTER TABLE loose ADD COLUMN checksum INTEGER;
)";

/// What version 2 has besides.
inline constexpr const char* CREATE_BLOCKS = R"(
CREATE TABLE series_state (
  series_id       INTEGER PRIMARY KEY REFERENCES series (id),
  loose_rows      INTEGER NOT NULL,
  unchecked_until INTEGER NOT NULL,
  first_block     INTEGER NOT NULL,
  last_block      INTEGER NOT NULL,
  blocks          INTEGER NOT NULL,
  sealed_rows     INTEGER NOT NULL,
  changes         INTEGER NOT NULL,
  checksum        INTEGER NOT NULL
) STRICT;
CREATE TABLE block (
  id           INTEGER PRIMARY KEY CHECK (id & 0xFFFFFFFFFF > 0),
  number       INTEGER NOT NULL,
  first_time   INTEGER NOT NULL,
  previous     INTEGER NOT NULL,
  rows         INTEGER NOT NULL,
  bytes        INTEGER NOT NULL,
  segment_size INTEGER NOT NULL,
  change       INTEGER NOT NULL,
  content      BLOB NOT NULL,
  checksum     INTEGER NOT NULL
) STRICT;
CREATE TABLE segment (
  id   INTEGER PRIMARY KEY,
  data BLOB NOT NULL
) STRICT;
CREATE TABLE database (
  id         INTEGER PRIMARY KEY CHECK (id = 1),
  uuid       TEXT NOT NULL,
  next_block INTEGER NOT NULL,
  catalogue  INTEGER NOT NULL,
  checksum   INTEGER NOT NULL
) STRICT;
PRAGMA application_id = 0x54524E44;
PRAGMA user_version = 2;
)";

}  // namespace toolkit::trend
