#include "trendtool/load/row_sink.h"

std::string RowSink::skip_existing(const std::string& path) {
  return existing_.emplace().open(path);
}

std::string RowSink::add(const RowToLoad& row) {
  using Result = ExistingRows::Result;
  const Result found = existing_ ? existing_->compare(row) : Result::MISSING;
  if (found == Result::FAILED) return "can't read what is recorded: " + existing_->error();
  if (found == Result::OTHER) return "a row with other values is recorded at this time";
  if (found == Result::SAME) {
    ++skipped_;
    return "";
  }
  ++recorded_;
  return recorder_.append(row.series, row.time, row.ratio, row.slots) == 0 ? "" : recorder_.error();
}
