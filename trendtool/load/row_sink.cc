#include "trendtool/load/row_sink.h"

std::string RowSink::skip_existing(const std::string& path) {
  return existing_.emplace().open(path);
}

std::string RowSink::add(const RowToLoad& row) {
  if (existing_) {
    switch (existing_->compare(row)) {
      case ExistingRows::Result::MISSING:
        break;
      case ExistingRows::Result::SAME:
        ++skipped_;
        return "";
      case ExistingRows::Result::OTHER:
        return "a row with other values is recorded at this time";
      case ExistingRows::Result::FAILED:
        return "can't read what is recorded: " + existing_->error();
    }
  }
  ++recorded_;
  return recorder_.append(row.series, row.time, row.ratio, row.slots) == 0 ? "" : recorder_.error();
}
