#include "libtrend/sqlite/read_ahead.h"

#include <algorithm>

namespace toolkit::trend {

FilePart ReadAhead::before_read(std::int64_t start, std::int64_t size) {
  const std::int64_t end = start + size;
  const bool is_near = low_ < high_ && start >= low_ - WINDOW && start <= high_;
  if (!is_near) {
    low_ = start;
    high_ = end;
    taken_ = size;
    ready_ = start;
    return {};
  }
  high_ = std::max(high_, end);
  taken_ += size;
  if (start >= low_) return {};
  const bool is_dense = 2 * taken_ >= high_ - start;
  low_ = start;
  if (high_ - low_ <= LEAST_WALK) {
    ready_ = start;
    return {};
  }
  if (!is_dense || start >= ready_) return {};
  const FilePart part = {std::max<std::int64_t>(ready_ - WINDOW, 0),
                         ready_ - std::max<std::int64_t>(ready_ - WINDOW, 0)};
  ready_ = part.start;
  // What lies far above no longer tells whether the walk is dense.
  if (high_ - low_ > 2 * WINDOW) {
    high_ = low_ + WINDOW;
    taken_ = std::min(taken_, WINDOW);
  }
  return part;
}

}  // namespace toolkit::trend
