#include "libtrend/sqlite/series_changes.h"

#include <algorithm>
#include <vector>

#include "libtrend/query/engine.h"

namespace toolkit::trend {

namespace {

/// Joins ranges, whose starts ascend, to larger ones.
class Ranges {
 public:
  explicit Ranges(std::vector<CTimeRange>& ranges) : ranges_(ranges) {}

  void add(CTimeRange range) {
    if (is_open_) {
      ranges_.back().last = std::max(ranges_.back().last, range.last);
    } else {
      ranges_.push_back(range);
    }
    is_open_ = true;
  }
  /// Lets what comes next start a new range.
  void close() { is_open_ = false; }

 private:
  std::vector<CTimeRange>& ranges_;
  bool is_open_ = false;
};

/// Walks through the times of the loose rows of a series, in order. Those that were checked are
/// known; the table is searched for those before alone.
class LooseWalk {
 public:
  LooseWalk(LooseRows& rows, const SeriesState& state, const std::vector<std::int64_t>& checked,
            std::string& error)
      : rows_(rows), state_(state), checked_(checked), error_(error) {}

  /// Goes to the first row at `time` or later.
  [[nodiscard]] bool start(std::int64_t time) {
    const auto place = std::lower_bound(checked_.begin(), checked_.end(), time);
    next_ = place == checked_.end() ? NO_ROW : *place;
    if (time > state_.unchecked_until) return true;
    std::int64_t before = NO_ROW;
    if (!rows_.find(state_.series_id, {time, state_.unchecked_until},
                    LooseRows::Order::OLDEST_FIRST, before, error_)) {
      return false;
    }
    if (before != NO_ROW) next_ = before;
    return true;
  }
  /// Adds the range of the rows up to `last`, and passes them.
  [[nodiscard]] bool add_until(std::int64_t last, Ranges& ranges) {
    if (next_ == NO_ROW || next_ > last) return true;
    CTimeRange found = {next_, next_};
    const auto end = std::upper_bound(checked_.begin(), checked_.end(), last);
    if (end != checked_.begin()) {
      found.last = *(end - 1);
    } else if (!rows_.find(state_.series_id, {next_, std::min(last, state_.unchecked_until)},
                           LooseRows::Order::NEWEST_FIRST, found.last, error_)) {
      return false;
    }
    ranges.add(found);
    next_ = NO_ROW;
    return last == MAX_TIMESTAMP || start(last + 1);
  }

 private:
  LooseRows& rows_;
  const SeriesState& state_;
  const std::vector<std::int64_t>& checked_;
  std::string& error_;
  std::int64_t next_ = NO_ROW;
};

}  // namespace

bool find_changes(LooseRows& loose, const std::vector<std::int64_t>& checked, BlockChain& chain,
                  const SeriesState& state, std::uint64_t since, CSeriesChanges& changes,
                  std::string& error) {
  changes.number = static_cast<std::uint64_t>(state.changes);
  if (since != 0 && changes.number == since) return true;
  Ranges ranges(changes.ranges);
  LooseWalk walk(loose, state, checked, error);
  bool is_found = false;
  if (!walk.start(1) || !chain.find(1, is_found)) return false;
  while (is_found) {
    const BlockHead& head = chain.head();
    if (!walk.add_until(head.first_time - 1, ranges)) return false;
    const bool is_changed = since == 0 || static_cast<std::uint64_t>(head.change) > since;
    if (is_changed) ranges.add({head.first_time, head.last_time});
    if (!is_changed) ranges.close();
    if (!walk.add_until(head.last_time, ranges)) return false;
    if (!is_changed) ranges.close();
    if (!chain.go_on(true, is_found)) return false;
  }
  return walk.add_until(MAX_TIMESTAMP, ranges);
}

}  // namespace toolkit::trend
