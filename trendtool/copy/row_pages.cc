#include "trendtool/copy/row_pages.h"

#include <algorithm>
#include <ctime>
#include <limits>
#include <utility>

using toolkit::trend::CTimeRange;

namespace {

constexpr unsigned PAGE_ROWS = 512;
constexpr CTimeRange AT_END = {1, 0};

}  // namespace

std::int64_t latest_time() {
  return std::min<std::int64_t>(std::numeric_limits<std::time_t>::max(),
                                std::numeric_limits<long>::max());
}

bool RowPages::place(CTimeRange times) {
  times_ = times;
  return load();
}

bool RowPages::advance() { return ++index_ < page_.snapshots.size() || load(); }

void RowPages::clear() {
  page_.snapshots.clear();
  times_ = AT_END;
}

bool RowPages::load() {
  page_.snapshots.clear();
  index_ = 0;
  if (times_.first > times_.last) return true;
  const std::pair<long, long> range = {static_cast<long>(times_.first),
                                       static_cast<long>(times_.last)};
  if (log_.get_trend_data(page_, selection_, {period_}, range, PAGE_ROWS, 0, true, true) != 0) {
    page_.snapshots.clear();
    return false;
  }
  const bool is_last = page_.snapshots.size() < PAGE_ROWS;
  times_ = is_last ? AT_END : CTimeRange{page_.snapshots.back().timestamp + 1, times_.last};
  return true;
}
