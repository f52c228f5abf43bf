// Databases of version 1 of the format, which no program makes any more.
#pragma once

#include <cstdint>
#include <map>
#include <string>

#include "tests/support/stored_rows.h"

/// Makes a database of version 1 at `path`. It has the device '/plant' with the parameters 'a', 'b'
/// and 'c' (actual values), and the series of these ids at intervals of as many minutes.
void make_version_1(const std::string& path, const std::map<std::int64_t, StoredSeriesRows>& rows);
