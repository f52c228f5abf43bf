// The rows of one series, read page by page.
#pragma once

#include <cstddef>
#include <cstdint>

#include "libtrend/log.h"

/// The last time of a row that this system can represent.
[[nodiscard]] std::int64_t latest_time();

/// A walk through the rows of one series in order of time. Functions that return a bool return
/// false on failure, and the log then says why.
class RowPages {
 public:
  /// Both must outlive the walk. Rows have one sample for each parameter of `selection`.
  RowPages(toolkit::trend::CLog& log, const toolkit::trend::CDeviceParams& selection,
           std::uint32_t minutes)
      : log_(log), selection_(selection), period_{.interval = minutes} {}

  /// Goes to the first row in `times`, which must be times that this system can represent, and not
  /// before 1970.
  [[nodiscard]] bool place(toolkit::trend::CTimeRange times);
  /// Goes to the next row.
  [[nodiscard]] bool advance();
  /// Lets the walk be at its end.
  void clear();

  /// Returns the current row, valid until the walk moves on; null at the end.
  [[nodiscard]] const toolkit::trend::CSnapshot* row() const {
    return index_ < page_.snapshots.size() ? &page_.snapshots[index_] : nullptr;
  }

 private:
  bool load();

  toolkit::trend::CLog& log_;
  const toolkit::trend::CDeviceParams& selection_;
  toolkit::trend::CPeriodProperties period_;
  toolkit::trend::CTimeRange times_{1, 0};  ///< of the rows after the page
  toolkit::trend::CDeviceData page_;
  std::size_t index_ = 0;
};
