// Trend databases that are laid out row by row and block by block, as a test asks, without a
// recorder.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "libtrend/records.h"

struct StoredRow {
  std::int64_t time = 0;
  double valid_ratio = 1;
  std::vector<double> slots;
};

/// The rows of a series, and how they are stored.
struct StoredSeries {
  std::uint32_t minutes = 0;
  std::vector<std::vector<StoredRow>> blocks;  ///< in order of time
  std::vector<StoredRow> loose;                ///< in any order
  /// Loose rows up to this time have no checksum, as in a database that was upgraded.
  std::int64_t unchecked_until = 0;
};

struct StoredDevice {
  std::string path;
  std::vector<toolkit::trend::CParamProperties> params;
  std::vector<StoredSeries> series;
};

/// How a database is laid out.
struct StoredLayout {
  int page_size = 4096;
  std::int64_t segment_size = 4056;
};

/// Writes a new database of version 2 at `path`. Throws where it can't.
void write_blocks(const std::filesystem::path& path, const std::vector<StoredDevice>& devices,
                  const StoredLayout& layout = {});

/// Writes the same rows as a database of version 1.
void write_rows_only(const std::filesystem::path& path, const std::vector<StoredDevice>& devices);

/// Replaces the content of the database `to`, which others may have open, by that of `from`.
void copy_database(const std::filesystem::path& from, const std::filesystem::path& to);
