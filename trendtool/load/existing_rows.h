// Rows that a database has already.
#pragma once

#include <cstdint>
#include <ctime>
#include <map>
#include <span>
#include <string>
#include <vector>

#include "libtrend/log.h"

/// A value of a row to load: which statistic of which parameter it is, and its slot.
struct ValuePlace {
  std::size_t param = 0;      ///< index into `RowToLoad::params`
  std::size_t statistic = 0;  ///< index into `STATISTICS`
  std::size_t slot = 0;
};

/// A row that is to be recorded. What it refers to must outlive it.
struct RowToLoad {
  const toolkit::trend::CDeviceProperties& device;
  const toolkit::trend::CSeries& series;
  const std::vector<toolkit::trend::CParamProperties>& params;  ///< as they are in the database
  const std::vector<ValuePlace>& places;                        ///< of the values in the file
  std::span<const double> slots;
  std::time_t time = 0;
  double ratio = 1;
  bool has_ratio = false;  ///< whether the file says it
};

/// Compares rows with those that were in the database before the load.
class ExistingRows {
 public:
  enum class Result { MISSING, SAME, OTHER, FAILED };

  /// Rows with more than about `most_samples` samples are not kept in memory.
  explicit ExistingRows(std::size_t most_samples = 1'000'000) : most_samples_(most_samples) {}

  /// Opens the database at `path`. Returns what is wrong, or an empty text.
  [[nodiscard]] std::string open(const std::string& path);

  /// Looks for a row at the time of `row`. It is the same if each value of `row` is that of the
  /// database, or what that becomes with six digits. After FAILED, `error` says why.
  [[nodiscard]] Result compare(const RowToLoad& row);

  [[nodiscard]] std::string error() const { return log_.error(); }

 private:
  /// The rows of a series in a range of times.
  struct Window {
    long first = 0;
    long last = -1;
    std::size_t params = 0;  ///< how many parameters were read
    std::map<std::time_t, toolkit::trend::CSnapshot> rows;
  };

  bool read_window(const RowToLoad& row, Window& window);

  std::size_t most_samples_;
  toolkit::trend::CLog log_;
  std::map<std::int64_t, Window> windows_;  ///< by the id of the series
  std::size_t samples_ = 0;                 ///< that were read since there were no windows
};
