#include "libtrend/sqlite/stored_series.h"

#include <sqlite3.h>

#include <algorithm>
#include <utility>

#include "libtrend/query/engine.h"
#include "libtrend/sqlite/connection.h"
#include "libtrend/sqlite/damage_text.h"

namespace toolkit::trend {

namespace {

constexpr const char* NO_SERIES = "the database has no such series";

}  // namespace

bool RecordTables::prepare(sqlite3* connection) {
  std::int64_t page_size = 0;
  if (!read_number(connection, "PRAGMA page_size", page_size)) return false;
  db = connection;
  segment_size = get_segment_size(page_size);
  loose = LooseRows(connection);
  blocks = BlockTable(connection);
  states = SeriesStates(connection);
  return loose && blocks && states;
}

bool RecordTables::is_in_transaction() const { return sqlite3_get_autocommit(db) == 0; }

bool StoredSeries::fail(const char* reason) {
  tables_.error = reason;
  return false;
}

/// Notes that the series changes in this transaction.
void StoredSeries::touch() {
  if (!is_changed_) ++state_.changes;
  is_changed_ = true;
}

bool StoredSeries::load() {
  const SeriesStates::Result result = tables_.states.get(id(), state_, tables_.error);
  if (result == SeriesStates::Result::MISSING) return fail(NO_SERIES);
  return result == SeriesStates::Result::FOUND;
}

bool StoredSeries::store() {
  if (!is_changed_) return true;
  is_changed_ = false;
  tables_.last_stored = state_;
  return tables_.states.set(state_, tables_.error);
}

bool StoredSeries::find_block(std::int64_t last_time, BlockHead& head) {
  const BlockTable::Result result = tables_.blocks.find(id(), last_time, head, tables_.error);
  if (result == BlockTable::Result::MISSING) return fail(BLOCK_MISSING);
  return result == BlockTable::Result::FOUND;
}

bool StoredSeries::find_ends(CTimeRange& times) {
  const CTimeRange all = {1, MAX_TIMESTAMP};
  if (!find_loose(all, LooseRows::Order::OLDEST_FIRST, times.first) ||
      !find_loose(all, LooseRows::Order::NEWEST_FIRST, times.last)) {
    return false;
  }
  if (times.first == NO_ROW) times = {MAX_TIMESTAMP + 1, 0};
  if (state_.first_block == 0) return true;
  BlockHead first;
  if (!find_block(state_.first_block, first)) return false;
  times = {std::min(times.first, first.first_time), std::max(times.last, state_.last_block)};
  return true;
}

const Region* StoredSeries::find_region(std::int64_t time) {
  if (region_ && region_->times.contains(time)) return &*region_;
  region_.reset();
  times_.clear();
  if (time > state_.last_block) {
    region_ = {{state_.last_block + 1, MAX_TIMESTAMP}, false, {}};
    return &*region_;
  }
  BlockHead head;
  const BlockTable::Result result = tables_.blocks.find_from(id(), time, head, tables_.error);
  if (result == BlockTable::Result::MISSING) tables_.error = BLOCK_MISSING;
  if (result != BlockTable::Result::FOUND) return nullptr;
  const bool is_span = head.first_time <= time;
  const CTimeRange gap = {head.previous + 1, head.first_time - 1};
  if (!is_span && !gap.contains(time)) {
    tables_.error = BLOCK_MISSING;
    return nullptr;
  }
  region_ = {is_span ? CTimeRange{head.first_time, head.last_time} : gap, is_span, std::move(head)};
  return &*region_;
}

bool StoredSeries::find(std::int64_t time, bool& is_there) {
  std::int64_t found = NO_ROW;
  if (!find_loose({time, time}, LooseRows::Order::OLDEST_FIRST, found)) return false;
  is_there = found != NO_ROW;
  if (is_there) return true;
  const Region* region = find_region(time);
  if (region == nullptr) return false;
  if (!region->is_span) return true;
  if (times_.empty()) {
    BlockLayout layout;
    if (!decode_layout(*region->block, layout)) return fail(HEAD_DAMAGED);
    times_ = std::move(layout.times);
  }
  is_there = std::binary_search(times_.begin(), times_.end(), time);
  return true;
}

bool StoredSeries::find_loose(CTimeRange range, LooseRows::Order order, std::int64_t& time) {
  return tables_.loose.find(id(), range, order, time, tables_.error);
}

bool StoredSeries::count_loose(CTimeRange range, std::size_t limit, LooseRows::Count& count) {
  return tables_.loose.count(id(), range, limit, count, tables_.error);
}

bool StoredSeries::read_loose(CTimeRange range, LooseRows::Order order, std::size_t limit,
                              RowBuffer& rows) {
  const auto take = [&](std::int64_t time, double valid_ratio, std::span<const double> slots) {
    const std::size_t width = std::max(rows.slots(), trim(slots).size());
    if (rows.size() >= std::max(limit, get_block_rows(width))) return false;
    rows.add(time, valid_ratio, slots);
    return true;
  };
  return tables_.loose.read(id(), range, order, state_.unchecked_until, take, tables_.error);
}

bool StoredSeries::insert_loose(std::int64_t time, double valid_ratio,
                                std::span<const double> slots) {
  touch();
  if (time > state_.unchecked_until) ++state_.loose_rows;
  return tables_.loose.insert(id(), time, valid_ratio, slots, tables_.error);
}

bool StoredSeries::remove_loose(CTimeRange range) {
  touch();
  std::int64_t rows = 0;
  const std::int64_t unchecked = state_.unchecked_until;
  if (range.first <= unchecked) {
    std::int64_t left = NO_ROW;
    if (!tables_.loose.remove(id(), {range.first, std::min(range.last, unchecked)}, rows,
                              tables_.error) ||
        !find_loose({1, unchecked}, LooseRows::Order::OLDEST_FIRST, left)) {
      return false;
    }
    if (left == NO_ROW) state_.unchecked_until = 0;
    range.first = unchecked + 1;
  }
  if (!tables_.loose.remove(id(), range, rows, tables_.error)) return false;
  state_.loose_rows -= rows;
  return true;
}

bool StoredSeries::read_block(const BlockHead& head, RowBuffer& rows) {
  BlockLayout layout;
  if (!decode_layout(head, layout)) return fail(HEAD_DAMAGED);
  std::vector<unsigned char> bytes;
  if (!tables_.blocks.read_columns(head, 0, static_cast<std::size_t>(head.bytes), bytes,
                                   tables_.error)) {
    return false;
  }
  const std::size_t slots = layout.slots();
  std::vector<double> column(layout.times.size());
  std::vector<double> values(column.size() * slots);
  for (std::size_t slot = 0; slot < slots; ++slot) {
    const auto encoded = std::span<const unsigned char>(bytes).subspan(
        layout.offsets[slot], layout.offsets[slot + 1] - layout.offsets[slot]);
    if (!decode_block_column(head, slot, encoded, column)) return fail(COLUMNS_DAMAGED);
    for (std::size_t row = 0; row < column.size(); ++row) values[row * slots + slot] = column[row];
  }
  for (std::size_t row = 0; row < layout.times.size(); ++row) {
    rows.add(layout.times[row], layout.valid_ratios[row],
             std::span(values).subspan(row * slots, slots));
  }
  return true;
}

/// Inserts a block after the one whose last time is `previous`; sets `last_time` to its own.
bool StoredSeries::insert_block(const BlockRows& rows, std::int64_t previous,
                                std::int64_t& last_time) {
  touch();
  region_.reset();
  BlockHead head;
  head.series_id = id();
  head.number = tables_.database.take_block_number();
  head.previous = previous;
  head.segment_size = tables_.segment_size;
  head.change = state_.changes;
  std::vector<unsigned char> columns;
  encode_block(rows, head, columns);
  ++state_.blocks;
  state_.sealed_rows += head.rows;
  last_time = head.last_time;
  return tables_.blocks.insert(head, columns, tables_.error);
}

bool StoredSeries::remove_block(const BlockHead& head) {
  touch();
  region_.reset();
  --state_.blocks;
  state_.sealed_rows -= head.rows;
  return tables_.blocks.remove(head, tables_.error);
}

bool StoredSeries::set_previous(BlockHead& head, std::int64_t previous) {
  touch();
  region_.reset();
  head.previous = previous;
  head.change = state_.changes;
  return tables_.blocks.replace_head(head, tables_.error);
}

bool StoredSeries::seal(const BlockRows& rows, const Region& gap) {
  const std::int64_t previous = gap.times.first - 1;
  std::optional<BlockHead> next = gap.block;  // `gap` may be the region that is forgotten now
  std::int64_t last_time = 0;
  if (!insert_block(rows, previous, last_time)) return false;
  if (previous == 0) state_.first_block = last_time;
  if (next) return set_previous(*next, last_time);
  state_.last_block = last_time;
  return true;
}

bool StoredSeries::replace_block(const BlockHead& head, const RowBuffer& rows) {
  const BlockHead old = head;  // `head` may be that of the region that is forgotten now
  if (!remove_block(old)) return false;
  const std::size_t most = get_block_rows(rows.slots());
  const std::size_t parts = (rows.size() + most - 1) / most;
  std::int64_t previous = old.previous;
  for (std::size_t part = 0; part < parts; ++part) {
    const std::size_t start = rows.size() * part / parts;
    const std::size_t end = rows.size() * (part + 1) / parts;
    const bool is_first = previous == 0;
    if (!insert_block(rows.copy(start, end - start), previous, previous)) return false;
    if (is_first) state_.first_block = previous;
  }
  return previous == old.last_time || link(old.last_time, previous);
}

/// Lets the block after the one that ended at `old_end` come after the one that ends at `new_end`,
/// which is 0 where there is none.
bool StoredSeries::link(std::int64_t old_end, std::int64_t new_end) {
  if (state_.last_block == old_end) {
    state_.last_block = new_end;
    if (new_end == 0) state_.first_block = 0;
    return true;
  }
  BlockHead next;
  const BlockTable::Result result =
      tables_.blocks.find_from(id(), old_end + 1, next, tables_.error);
  if (result == BlockTable::Result::FAILED) return false;
  if (result == BlockTable::Result::MISSING || next.previous != old_end) {
    return fail(BLOCK_MISSING);
  }
  if (new_end == 0) state_.first_block = next.last_time;
  return set_previous(next, new_end);
}

}  // namespace toolkit::trend
