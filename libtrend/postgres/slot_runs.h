// Which slots of the rows a query wants, and how they become samples.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "libtrend/postgres/values.h"
#include "libtrend/records.h"

namespace toolkit::trend {

/// The slots of some parameters as runs without gaps. Each run is one column of a query.
class SlotRuns {
 public:
  explicit SlotRuns(const std::vector<CParamProperties>& params);

  /// The number of slots in all runs.
  [[nodiscard]] std::size_t slots() const { return slots_; }
  /// The list of columns for SQL, each after a comma.
  [[nodiscard]] const std::string& columns() const { return columns_; }

  /// Sets `samples` to those of the parameters, from the row of `result` whose first run is in the
  /// column `column`. Returns false where a column is not an array of numbers.
  [[nodiscard]] bool unpack(const Result& result, std::size_t row, std::size_t column,
                            std::vector<CSample>& samples);

 private:
  struct Run {
    std::size_t first = 0;  ///< slots
    std::size_t end = 0;
  };
  /// Where a value goes.
  struct Place {
    std::size_t value = 0;   ///< which of the values of all runs
    std::size_t sample = 0;  ///< of which parameter
    double CSample::*member = nullptr;
  };

  std::size_t params_;
  std::vector<Run> runs_;
  std::vector<Place> places_;
  std::size_t slots_ = 0;
  std::string columns_;
  std::vector<double> values_;  ///< of one row, those of all runs one after another
};

}  // namespace toolkit::trend
