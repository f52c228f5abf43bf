#include "libtrend/sqlite/series_changes.h"

#include <algorithm>

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

/// Walks through the loose rows of a series in order of time.
class LooseWalk {
 public:
  LooseWalk(LooseRows& rows, std::int64_t series_id, std::string& error)
      : rows_(rows), series_id_(series_id), error_(error) {}

  /// Goes to the first row at `time` or later.
  [[nodiscard]] bool start(std::int64_t time) {
    return rows_.find(series_id_, {time, MAX_TIMESTAMP}, LooseRows::Order::OLDEST_FIRST, next_,
                      error_);
  }
  /// Adds the range of the rows up to `last`, and passes them.
  [[nodiscard]] bool add_until(std::int64_t last, Ranges& ranges) {
    if (next_ == NO_ROW || next_ > last) return true;
    CTimeRange found = {next_, next_};
    if (!rows_.find(series_id_, {next_, last}, LooseRows::Order::NEWEST_FIRST, found.last,
                    error_)) {
      return false;
    }
    ranges.add(found);
    next_ = NO_ROW;
    return last == MAX_TIMESTAMP || start(last + 1);
  }

 private:
  LooseRows& rows_;
  std::int64_t series_id_;
  std::string& error_;
  std::int64_t next_ = NO_ROW;
};

}  // namespace

bool find_changes(LooseRows& loose, BlockChain& chain, const SeriesState& state,
                  std::uint64_t since, CSeriesChanges& changes, std::string& error) {
  changes.number = static_cast<std::uint64_t>(state.changes);
  if (since != 0 && changes.number == since) return true;
  Ranges ranges(changes.ranges);
  LooseWalk walk(loose, state.series_id, error);
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
