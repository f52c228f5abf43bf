// All rows of a trend database of version 2, read without the library's reader, and whether the
// database keeps every rule of the format.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

/// A row as it was appended, without the missing values at its end.
struct RecordedRow {
  double valid_ratio = 0;
  std::vector<double> values;

  /// Whether both have the same bits, where a NaN is like any other.
  [[nodiscard]] bool operator==(const RecordedRow& other) const;
};

/// The rows of a series by their times.
using RecordedSeries = std::map<std::int64_t, RecordedRow>;

/// What a database holds.
struct RecordedDatabase {
  std::map<std::int64_t, RecordedSeries> series;  ///< by id; every series of the catalogue
  std::int64_t blocks = 0;
  std::int64_t sealed_rows = 0;
  std::int64_t loose_rows = 0;
  std::int64_t rows_without_checksum = 0;
  std::int64_t next_block = 0;
};

/// Reads the database at `path`. Throws std::runtime_error where it breaks a rule of the format.
[[nodiscard]] RecordedDatabase read_recorded_rows(const std::string& path);
