#include "trendtool/common/rows.h"

#include <algorithm>
#include <ctime>
#include <limits>

using toolkit::trend::CDeviceData;
using toolkit::trend::CLog;
using toolkit::trend::CSeriesSummary;

namespace {

constexpr std::uint64_t CHUNK_ROWS = 512;

/// Cuts `range` so that the row at `time` and those before it are not read again. Returns false if
/// nothing is left.
bool continue_after(std::time_t time, bool ascending, std::pair<long, long>& range) {
  if (!ascending) {
    // A row's time is above 0, and a bound of 0 leaves no rows.
    range.second = static_cast<long>(time) - 1;
    return range.second > 0;
  }
  if (time == std::numeric_limits<long>::max()) return false;
  range.first = static_cast<long>(time) + 1;
  return true;
}

/// The last time at which a row can be.
constexpr long LATEST = static_cast<long>(
    std::min<std::int64_t>((std::int64_t{1} << 40) - 1, std::numeric_limits<long>::max() - 1));

/// Reads on around damage. `range_` has the times that are still to be read.
class DamageReader {
 public:
  DamageReader(CLog& log, const RowRequest& request) : log_(log), request_(request) {
    const auto [first, last] = request.range;
    range_ = {std::max(first, 1L), last < 0 ? LATEST : std::min(last, LATEST)};
    cut_range();
  }

  void read(const TakeRows& take, const TakeGap& take_gap) {
    std::uint64_t left =
        request_.limit == 0 ? std::numeric_limits<std::uint64_t>::max() : request_.limit;
    std::uint64_t count = CHUNK_ROWS;
    while (left > 0 && range_.first <= range_.second) {
      CDeviceData chunk;
      const std::uint64_t wanted = std::min(left, count);
      if (!query(range_, wanted, chunk)) {
        // Fewer rows may end before the damage.
        if (count > 1) {
          count /= 2;
        } else {
          pass_damage(take_gap);
        }
        continue;
      }
      if (chunk.snapshots.empty() || !take(chunk.snapshots)) return;
      left -= chunk.snapshots.size();
      if (chunk.snapshots.size() < wanted) return;
      if (!continue_after(chunk.snapshots.back().timestamp, request_.ascending, range_)) return;
      count = CHUNK_ROWS;
    }
  }

 private:
  /// Cuts the range to the times that have rows, if the database can tell, so that a gap does not
  /// start or end long before or after them.
  void cut_range() {
    std::vector<CSeriesSummary> series;
    if (log_.get_series(request_.selection.device, series) != 0) return;
    std::int64_t first = LATEST;
    std::int64_t last = 0;
    for (const CSeriesSummary& one : series) {
      if (one.rows > 0) first = std::min(first, one.first_time);
      last = std::max(last, one.last_time);
    }
    range_.first = std::max(range_.first, static_cast<long>(first));
    range_.second = static_cast<long>(std::min<std::int64_t>(range_.second, last));
  }

  bool query(const std::pair<long, long>& range, std::uint64_t count, CDeviceData& chunk) {
    return log_.get_trend_data(chunk, request_.selection, request_.periods, range,
                               static_cast<unsigned>(count), 0, request_.ascending, true) == 0;
  }

  /// The times that are left after `length` seconds in the order of reading.
  [[nodiscard]] std::pair<long, long> skip(long length) const {
    return request_.ascending ? std::pair(range_.first + length, range_.second)
                              : std::pair(range_.first, range_.second - length);
  }

  /// Goes to the next time from which on a row can be read, or to the end.
  void pass_damage(const TakeGap& take_gap) {
    const std::string reason = log_.error();
    constexpr int SMALL_STEPS = 2048;
    const long smallest = 60 * get_shortest_interval();
    const long whole = range_.second - range_.first + 1;
    long step = smallest;
    long before = 0;
    long length = 0;
    for (int steps = 0; length < whole && !can_read_after(length); ++steps) {
      // Damage that is longer than a block is passed with growing steps.
      if (steps >= SMALL_STEPS && step < whole) step *= 2;
      before = length;
      length = step < whole - length ? length + step : whole;
    }
    // The last step may have passed rows that can be read.
    while (length - before > smallest) {
      const long middle = before + (length - before) / 2;
      (can_read_after(middle) ? length : before) = middle;
    }
    const std::pair<long, long> rest = skip(length);
    if (request_.ascending) {
      take_gap(range_.first, rest.first - 1, reason);
    } else {
      take_gap(rest.second + 1, range_.second, reason);
    }
    range_ = rest;
  }

  /// Whether a row can be read `length` seconds on.
  bool can_read_after(long length) {
    CDeviceData row;
    return length > 0 && query(skip(length), 1, row);
  }

  [[nodiscard]] long get_shortest_interval() const {
    long minutes = std::numeric_limits<std::int32_t>::max() / 120;
    for (const auto& period : request_.periods) {
      minutes =
          std::min(minutes, static_cast<long>(std::min<std::uint32_t>(period.interval, 1440)));
    }
    return minutes;
  }

  CLog& log_;
  const RowRequest& request_;
  std::pair<long, long> range_;
};

}  // namespace

void read_rows_around_damage(CLog& log, const RowRequest& request, const TakeRows& take,
                             const TakeGap& take_gap) {
  DamageReader(log, request).read(take, take_gap);
}

std::string read_rows(CLog& log, const RowRequest& request, const TakeRows& take) {
  std::pair<long, long> range = request.range;
  std::uint64_t left =
      request.limit == 0 ? std::numeric_limits<std::uint64_t>::max() : request.limit;
  while (left > 0) {
    const std::uint64_t count = std::min(left, CHUNK_ROWS);
    CDeviceData chunk;
    if (log.get_trend_data(chunk, request.selection, request.periods, range,
                           static_cast<unsigned>(count), 0, request.ascending, true) != 0) {
      return "can't read the rows of device '" + request.selection.device.path +
             "': " + log.error();
    }
    if (chunk.snapshots.empty() || !take(chunk.snapshots)) break;
    left -= chunk.snapshots.size();
    if (chunk.snapshots.size() < count) break;
    if (!continue_after(chunk.snapshots.back().timestamp, request.ascending, range)) break;
  }
  return "";
}
