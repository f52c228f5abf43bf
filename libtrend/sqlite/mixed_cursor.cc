#include "libtrend/sqlite/mixed_cursor.h"

#include <algorithm>
#include <limits>
#include <utility>

namespace toolkit::trend {

MixedCursor::MixedCursor(std::unique_ptr<BlockCursor> blocks,
                         std::vector<std::unique_ptr<SeriesCursor>> loose, bool ascending,
                         std::string& error)
    : blocks_(*blocks), cursors_(std::move(loose)), ascending_(ascending), error_(error) {
  cursors_.push_back(std::move(blocks));
}

bool MixedCursor::place(std::int64_t earliest, std::int64_t latest) {
  for (const auto& cursor : cursors_) {
    if (!cursor->place(earliest, latest)) return false;
  }
  return choose();
}

bool MixedCursor::advance() {
  if (!next_->advance()) return false;
  const std::int64_t time = next_->timestamp();
  if (time == NO_ROW || (ascending_ ? time >= bound_ : time <= bound_)) return choose();
  timestamp_ = time;
  return true;
}

bool MixedCursor::pass(std::uint64_t count) {
  while (count > 0 && timestamp_ != NO_ROW) {
    if (next_ == &blocks_) {
      if (!blocks_.pass_before(bound_, count) || !choose()) return false;
    } else {
      --count;
      if (!advance()) return false;
    }
  }
  return true;
}

bool MixedCursor::decode(CSnapshot& row) { return next_->decode(row); }

bool MixedCursor::find_before(std::int64_t time, std::int64_t& timestamp) {
  timestamp = NO_ROW;
  for (const auto& cursor : cursors_) {
    std::int64_t found = NO_ROW;
    if (!cursor->find_before(time, found)) return false;
    timestamp = std::max(timestamp, found);
  }
  return true;
}

/// Chooses the cursor whose row comes first. Returns false where two rows have one time.
bool MixedCursor::choose() {
  timestamp_ = NO_ROW;
  bound_ = ascending_ ? std::numeric_limits<std::int64_t>::max() : NO_ROW;
  for (const auto& cursor : cursors_) {
    const std::int64_t time = cursor->timestamp();
    if (time == NO_ROW) continue;
    if (time == timestamp_) {
      error_ = "a series has two rows at one time";
      return false;
    }
    const bool is_first = timestamp_ == NO_ROW || (time < timestamp_) == ascending_;
    if (is_first) {
      if (timestamp_ != NO_ROW) bound_ = timestamp_;
      timestamp_ = time;
      next_ = cursor.get();
    } else {
      bound_ = ascending_ ? std::min(bound_, time) : std::max(bound_, time);
    }
  }
  return true;
}

}  // namespace toolkit::trend
