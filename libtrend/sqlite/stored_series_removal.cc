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
         (!region->is_span || remove_from_block(*region->block, time, is_found));
}

bool StoredSeries::remove_from_block(const BlockHead& head, std::int64_t time, bool& is_found) {
  RowBuffer rows;
  if (!read_block(head, rows)) return false;
  std::size_t place = 0;
  while (rows.time(place) < time) ++place;
  is_found = rows.time(place) == time;
  if (!is_found) return true;
  rows.remove(place, 1);
  return replace_block(head, rows);
}

bool StoredSeries::remove_state() {
  is_changed_ = false;
  return tables_.states.remove(id(), tables_.error);
}

/// Removes the rows before `time` from the block `head`, which has others after them.
bool StoredSeries::purge_block(const BlockHead& head, std::int64_t time) {
  RowBuffer rows;
  if (!read_block(head, rows)) return false;
  std::size_t place = 0;
  while (rows.time(place) < time) ++place;
  std::int64_t last_time = 0;
  return remove_block(head) && insert_block(rows.copy(place, rows.size() - place), 0, last_time);
}

bool StoredSeries::purge(std::int64_t time) {
  if (time <= 1) return true;
  if (!remove_loose({1, std::min(time - 1, MAX_TIMESTAMP)})) return false;
  while (state_.first_block != 0) {
    BlockHead head;
    if (!find_block(state_.first_block, head)) return false;
    if (head.first_time >= time) {
      return head.previous == 0 || set_previous(head, 0);
    }
    if (head.last_time >= time) return purge_block(head, time);
    if (!remove_block(head)) return false;
    if (state_.last_block == head.last_time) {
      state_.first_block = 0;
      state_.last_block = 0;
      return true;
    }
    BlockHead next;
    const BlockTable::Result result =
        tables_.blocks.find_from(id(), head.last_time + 1, next, tables_.error);
    if (result != BlockTable::Result::FOUND || next.previous != head.last_time) {
      return result == BlockTable::Result::FAILED ? false : fail(BLOCK_MISSING);
    }
    state_.first_block = next.last_time;
  }
  return true;
}

}  // namespace toolkit::trend
