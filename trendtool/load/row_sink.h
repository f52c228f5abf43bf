// Where rows go that were read from a file.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "libtrend/recorder.h"
#include "trendtool/load/existing_rows.h"

/// Records rows in an open transaction of a recorder, and passes over those that are recorded
/// already, if that is wanted.
class RowSink {
 public:
  /// The recorder must outlive the sink.
  explicit RowSink(toolkit::trend::CRecorder& recorder) : recorder_(recorder) {}

  /// Lets `add` pass over rows that the database at `path` has with the same values. Returns what
  /// is wrong with the database, or an empty text.
  [[nodiscard]] std::string skip_existing(const std::string& path);

  /// Records a row. Returns what is wrong with it, or an empty text.
  [[nodiscard]] std::string add(const RowToLoad& row);

  [[nodiscard]] std::uint64_t recorded() const { return recorded_; }
  [[nodiscard]] std::uint64_t skipped() const { return skipped_; }

 private:
  toolkit::trend::CRecorder& recorder_;
  std::optional<ExistingRows> existing_;
  std::uint64_t recorded_ = 0;
  std::uint64_t skipped_ = 0;
};
