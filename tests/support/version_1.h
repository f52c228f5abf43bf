// Databases of version 1 of the format, which no program makes any more.
#pragma once

#include <cstdint>
#include <map>
#include <string>

#include "tests/support/recorded_rows.h"

/// SQL that turns a database of version 2 without blocks into one of version 1.
inline constexpr const char* TURN_INTO_VERSION_1 =
    "ALTER TABLE loose RENAME TO snapshot; ALTER TABLE snapshot DROP COLUMN checksum;"
    "DROP TABLE series_state; DROP TABLE block; DROP TABLE segment; DROP TABLE database;"
    "PRAGMA user_version = 1;";

/// Makes a database of version 1 at `path`. It has the device '/plant' with the parameters 'a', 'b'
/// and 'c' (actual values), and the series of these ids at intervals of as many minutes.
void make_version_1(const std::string& path, const std::map<std::int64_t, RecordedSeries>& rows);
