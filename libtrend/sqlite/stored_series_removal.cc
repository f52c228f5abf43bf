// What takes rows out of a series.
#include <algorithm>

#include "libtrend/sqlite/schema.h"
#include "libtrend/sqlite/stored_series.h"

namespace toolkit::trend {

bool StoredSeries::remove_row(std::int64_t time, bool& is_found) {
  std::int64_t loose = NO_ROW;
  if (!find_loose({time, time}, LooseRows::Order::OLDEST_FIRST, loose)) return false;
  is_found = loose != NO_ROW;
  if (is_found) return remove_loose({time, time});
  const Region* region = find_region(time);
  return region != nullptr &&
         (!region->is_span || remove_from_block(*region->block, {time, time}, is_found));
}

bool StoredSeries::remove_from_block(const BlockHead& head, CTimeRange times, bool& is_found) {
  RowBuffer rows;
  if (!read_block(head, rows)) return false;
  std::size_t first = 0;
  while (first < rows.size() && rows.time(first) < times.first) ++first;
  std::size_t end = first;
  while (end < rows.size() && rows.time(end) <= times.last) ++end;
  is_found = end > first;
  if (!is_found) return true;
  rows.remove(first, end - first);
  return replace_block(head, rows);
}

bool StoredSeries::remove_state() {
  is_changed_ = false;
  return tables_.states.remove(id(), tables_.error);
}

bool StoredSeries::purge(std::int64_t time) {
  if (time <= 1) return true;
  if (!remove_loose({1, std::min(time - 1, MAX_TIMESTAMP)})) return false;
  while (state_.first_block != 0) {
    BlockHead head;
    if (!find_block(state_.first_block, head)) return false;
    if (head.first_time >= time) return true;
    if (head.last_time >= time) {
      bool is_found = false;
      return remove_from_block(head, {1, time - 1}, is_found);
    }
    if (!remove_block(head) || !link(head.last_time, 0)) return false;
  }
  return true;
}

}  // namespace toolkit::trend
