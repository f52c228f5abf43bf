// Copying the rows of one series.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>

#include "libtrend/log.h"
#include "libtrend/recorder.h"
#include "trendtool/copy/catalogue.h"
#include "trendtool/copy/conflicts.h"
#include "trendtool/copy/row_batch.h"
#include "trendtool/copy/row_pages.h"

/// The two databases of a copy, and what holds for all of its series.
struct CopySession {
  toolkit::trend::CLog from;
  toolkit::trend::CRecorder recorder;
  /// Reads the database of `recorder`, and is closed first, so that SQLite removes its -wal file.
  toolkit::trend::CLog to;
  std::string uuid;        ///< of the database `from`
  std::int64_t start = 1;  ///< rows before this time are not copied
  bool compares_all = false;
  bool use_utc = false;
};

/// How many rows were copied, were there already, or are there with other values.
struct CopyCounts {
  std::uint64_t copied = 0;
  std::uint64_t present = 0;
  std::uint64_t conflicts = 0;
};

/// The copy of one series.
class SeriesCopy {
 public:
  enum class Result { DONE, FROM_FAILED, TO_FAILED, INTERRUPTED };

  /// All must outlive the copy. `last_time` is the time of the last row of the series in the other
  /// database. `counts` grows with each transaction, and `on_row` is called with each row that was
  /// read.
  SeriesCopy(CopySession& session, const DeviceToCopy& device, const SeriesToCopy& series,
             std::int64_t last_time, CopyCounts& counts);

  /// Copies the rows, in one transaction or several. A conflict is not a failure. After FROM_FAILED
  /// and TO_FAILED, `error` says why.
  [[nodiscard]] Result run(const std::function<void()>& on_row);

  [[nodiscard]] const std::string& error() const { return error_; }

 private:
  /// A place in the ranges of times that are copied: a range, and the time of the next row in it.
  struct Position {
    std::size_t range = 0;
    std::int64_t time = 0;
  };

  Result fill(Position& position, const std::function<void()>& on_row);
  Result fill_from(toolkit::trend::CTimeRange times, std::int64_t& next,
                   const std::function<void()>& on_row);
  void take(const toolkit::trend::CSnapshot& row);
  Result write(bool is_last, bool& is_overtaken);
  Result fail(Result result, const std::string& what, const std::string& reason);
  [[nodiscard]] bool can_be_noted() const;

  CopySession& session_;
  const DeviceToCopy& device_;
  const SeriesToCopy& series_;
  std::int64_t last_time_;
  CopyCounts& counts_;
  std::string name_;  ///< of the series, for messages
  toolkit::trend::CSeriesChanges changes_;
  ValueMap map_;
  RowBatch batch_;
  std::uint64_t present_ = 0;  ///< rows that were there, since the last transaction
  Conflicts conflicts_;
  RowPages rows_;
  RowPages recorded_;
  std::string error_;
};
