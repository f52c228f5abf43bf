// Rows on their way from one database to another.
#pragma once

#include <cstddef>
#include <cstdint>
#include <ctime>
#include <string>
#include <vector>

#include "libtrend/recorder.h"
#include "trendtool/copy/catalogue.h"

/// How the values of a device get from samples of one database to slots of another.
class ValueMap {
 public:
  /// The device must outlive the map.
  explicit ValueMap(const DeviceToCopy& device);

  /// How many slots a row has in the other database.
  [[nodiscard]] std::size_t width() const { return width_; }

  /// Puts the values of `row` into `slots`, which has `width` missing values.
  void put(const toolkit::trend::CSnapshot& row, double* slots) const;

  /// Returns where `row` differs from `recorded`, as a text, or an empty text. All bits count, but
  /// a NaN is like any other.
  [[nodiscard]] std::string find_difference(const toolkit::trend::CSnapshot& row,
                                            const toolkit::trend::CSnapshot& recorded) const;

 private:
  /// A value of a row.
  struct Place {
    std::size_t param = 0;      ///< also the place of its sample
    std::size_t statistic = 0;  ///< index into `STATISTICS`
    double toolkit::trend::CSample::*member = nullptr;
    std::size_t slot = 0;  ///< in the other database
  };

  const DeviceToCopy& device_;
  std::vector<Place> places_;
  std::size_t width_ = 0;
};

/// Rows that are recorded in one transaction.
class RowBatch {
 public:
  explicit RowBatch(const ValueMap& map) : map_(map) {}

  void clear();
  void add(const toolkit::trend::CSnapshot& row);
  [[nodiscard]] bool is_full() const;
  [[nodiscard]] std::size_t size() const { return times_.size(); }
  [[nodiscard]] std::time_t time(std::size_t index) const { return times_[index]; }

  /// Appends the row `index` to `series`. Returns false if the recorder failed.
  [[nodiscard]] bool append(std::size_t index, const toolkit::trend::CSeries& series,
                            toolkit::trend::CRecorder& recorder) const;

 private:
  const ValueMap& map_;
  std::vector<std::time_t> times_;
  std::vector<double> valid_ratios_;
  std::vector<double> values_;  ///< row by row
};
