#include "libtrend/sqlite/series_writer.h"

#include <algorithm>
#include <string>

#include "libtrend/sqlite/schema.h"

namespace toolkit::trend {

namespace {

/// How many rows have to be there before a block of them is sealed. Some more than a block has, so
/// that the latest rows stay loose and others that are a little late come in time.
std::size_t get_enough_rows(std::size_t slots) {
  const std::size_t rows = get_block_rows(slots);
  return rows + rows / 8;
}

constexpr std::size_t MOST_ENOUGH_ROWS = MAX_BLOCK_ROWS + MAX_BLOCK_ROWS / 8;

/// How many late rows have to be there before the block around them is sealed again.
std::size_t get_enough_late_rows(const BlockHead& head) {
  return std::max<std::size_t>(1, static_cast<std::size_t>(head.rows) / 4);
}

}  // namespace

bool SeriesWriter::load() {
  has_counted_ = false;
  return stored_.load() && stored_.find_ends(ends_);
}

bool SeriesWriter::append(std::int64_t time, double valid_ratio, std::span<const double> slots) {
  if (ends_.contains(time)) {
    bool is_there = rows_.contains(time);
    if (!is_there && !stored_.find(time, is_there)) return false;
    if (is_there) {
      tables_.error =
          "the series has a row with the timestamp " + std::to_string(time) + " already";
      return false;
    }
  }
  ends_ = {std::min(ends_.first, time), std::max(ends_.last, time)};
  // All rows in memory are as wide as the widest.
  const std::size_t width = std::max(rows_.slots(), slots.size());
  if (rows_.size() >= get_enough_rows(width) && !spill()) return false;
  rows_.add(time, valid_ratio, slots);
  return rows_.size() < get_enough_rows(width) || flush();
}

/// Seals rows in memory, where there is a block of them in one gap; otherwise they become loose.
bool SeriesWriter::flush() {
  // Rows in disorder may get neighbours yet; sealed now, their block would span them all.
  if (rows_.is_shuffled()) return spill();
  const Region* region = stored_.find_region(rows_.first_time());
  if (region == nullptr) return false;
  if (region->is_span || !region->times.contains(rows_.last_time())) return spill();
  const Region gap = *region;
  bool is_alone = false;
  if (!take_loose_rows_in(gap, is_alone)) return false;
  return is_alone ? seal_rows_into(gap) : spill();
}

/// Moves the loose rows of `gap` to those in memory, unless they are very many. Sets `is_alone` to
/// whether the rows in memory are then the only ones of their span of time.
bool SeriesWriter::take_loose_rows_in(const Region& gap, bool& is_alone) {
  const auto get_most = [&](std::size_t slots) {
    return 2 * get_block_rows(std::max(slots, rows_.slots()));
  };
  LooseRows::Count count;
  if (!stored_.count_loose(gap.times, get_most(0) + 1, count)) return false;
  is_alone = true;
  if (count.rows == 0) return true;
  if (count.rows > get_most(count.slots)) {
    std::int64_t between = NO_ROW;
    const CTimeRange span = {rows_.first_time(), rows_.last_time()};
    if (!stored_.find_loose(span, LooseRows::Order::OLDEST_FIRST, between)) return false;
    is_alone = between == NO_ROW;
    return true;
  }
  // Read in the order in which the rows in memory came, which tells where more will come.
  RowBuffer all;
  const bool is_descending = rows_.is_descending();
  const auto order =
      is_descending ? LooseRows::Order::NEWEST_FIRST : LooseRows::Order::OLDEST_FIRST;
  if (!stored_.read_loose(gap.times, order, count.rows, all)) {
    is_alone = false;
    return tables_.is_in_transaction();
  }
  for (std::size_t i = 0; i < rows_.size(); ++i) {
    const std::size_t place = is_descending ? rows_.size() - 1 - i : i;
    all.add(rows_.time(place), rows_.valid_ratio(place), rows_.values(place));
  }
  rows_ = std::move(all);
  has_counted_ = false;
  return stored_.remove_loose(gap.times);
}

/// Seals as many blocks of the rows in memory as they fill. The rest is where more rows will come.
bool SeriesWriter::seal_rows_into(Region gap) {
  for (;;) {
    const std::size_t most = get_block_rows(rows_.slots());
    if (rows_.size() < most) return true;
    const std::size_t place = rows_.is_descending() ? rows_.size() - most : 0;
    const BlockRows block = rows_.copy(place, most);
    has_counted_ = false;
    if (!stored_.seal(block, gap)) return false;
    rows_.remove(place, most);
    if (rows_.empty()) return true;
    const Region* rest = stored_.find_region(rows_.first_time());
    if (rest == nullptr) return false;
    gap = *rest;
  }
}

bool SeriesWriter::spill() {
  if (rows_.empty()) return true;
  if (!has_counted_ && !count_rows_after_blocks()) return false;
  for (std::size_t i = 0; i < rows_.size(); ++i) {
    const std::int64_t time = rows_.time(i);
    const std::span<const double> slots = trim(rows_.values(i));
    if (!stored_.insert_loose(time, rows_.valid_ratio(i), slots)) return false;
    if (time > stored_.last_block()) {
      ++after_blocks_.rows;
      after_blocks_.slots = std::max(after_blocks_.slots, slots.size());
    } else {
      const Region* region = stored_.find_region(time);
      if (region == nullptr) return false;
      note_crowded(region->times.first);
    }
  }
  rows_.clear();
  if (after_blocks_.rows >= get_enough_rows(after_blocks_.slots)) {
    note_crowded(stored_.last_block() + 1);
  }
  return true;
}

bool SeriesWriter::count_rows_after_blocks() {
  const CTimeRange range = {stored_.last_block() + 1, MAX_TIMESTAMP};
  has_counted_ = stored_.count_loose(range, MOST_ENOUGH_ROWS, after_blocks_);
  return has_counted_;
}

void SeriesWriter::note_crowded(std::int64_t time) {
  crowded_.insert(get_row_id(stored_.id(), time));
}

bool SeriesWriter::purge(std::int64_t time) {
  if (!spill()) return false;
  has_counted_ = false;
  return stored_.purge(time) && stored_.find_ends(ends_);
}

bool SeriesWriter::remove_row(std::int64_t time) {
  bool is_found = false;
  if (!spill() || !stored_.remove_row(time, is_found)) return false;
  if (!is_found) {
    tables_.error = "the series has no row with the timestamp " + std::to_string(time);
    return false;
  }
  has_counted_ = false;
  return stored_.find_ends(ends_);
}

bool SeriesWriter::remove_all() {
  rows_.clear();
  return stored_.purge(MAX_TIMESTAMP + 1) && stored_.remove_state();
}

bool SeriesWriter::seal_at(std::int64_t time, bool& is_sealed, std::int64_t& end) {
  is_sealed = false;
  const Region* region = stored_.find_region(time);
  end = region == nullptr ? MAX_TIMESTAMP : region->times.last;
  if (region == nullptr) return tables_.is_in_transaction();
  const Region copy = *region;
  if (!(copy.is_span ? seal_span(copy, is_sealed) : seal_gap(copy, is_sealed))) return false;
  if (!is_sealed) return true;
  has_counted_ = false;
  // There may be more of them, on either side of a new block.
  note_crowded(copy.times.first);
  note_crowded(copy.times.last);
  return true;
}

bool SeriesWriter::seal_gap(const Region& gap, bool& is_sealed) {
  LooseRows::Count count;
  if (!stored_.count_loose(gap.times, MOST_ENOUGH_ROWS, count)) {
    return tables_.is_in_transaction();
  }
  if (count.rows < get_enough_rows(count.slots)) return true;
  // Rows before the first block are recorded newest first, others most often oldest first. More
  // come where the rest is.
  const bool is_before_all = gap.block && gap.block->previous == 0;
  const auto order =
      is_before_all ? LooseRows::Order::NEWEST_FIRST : LooseRows::Order::OLDEST_FIRST;
  RowBuffer rows;
  if (!stored_.read_loose(gap.times, order, 0, rows)) return tables_.is_in_transaction();
  is_sealed = true;
  return stored_.remove_loose({rows.first_time(), rows.last_time()}) &&
         stored_.seal(rows.copy(0, rows.size()), gap);
}

bool SeriesWriter::seal_span(const Region& span, bool& is_sealed) {
  LooseRows::Count count;
  if (!stored_.count_loose(span.times, MAX_BLOCK_ROWS, count)) {
    return tables_.is_in_transaction();
  }
  if (count.rows < get_enough_late_rows(*span.block)) return true;
  RowBuffer late;
  RowBuffer rows;
  if (!stored_.read_loose(span.times, LooseRows::Order::OLDEST_FIRST, 0, late) ||
      !stored_.read_block(*span.block, rows)) {
    return tables_.is_in_transaction();
  }
  // Where the late rows are far wider, the block would become very many of them.
  if (rows.size() > 4 * get_block_rows(late.slots())) return true;
  for (std::size_t i = 0; i < late.size(); ++i) {
    rows.add(late.time(i), late.valid_ratio(i), late.values(i));
  }
  is_sealed = true;
  return stored_.remove_loose({late.first_time(), late.last_time()}) &&
         stored_.replace_block(*span.block, rows);
}

}  // namespace toolkit::trend
