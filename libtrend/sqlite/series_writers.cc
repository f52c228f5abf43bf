#include "libtrend/sqlite/series_writers.h"

#include <utility>

#include "libtrend/query/engine.h"
#include "libtrend/sqlite/schema.h"

namespace toolkit::trend {

namespace {

/// The most bytes that the rows in memory may take.
constexpr std::size_t MAX_BYTES = 16 * MAX_BLOCK_BYTES;

/// How many regions are looked at, at most, for each block that may be sealed.
constexpr std::size_t LOOKS = 8;

constexpr std::int64_t MAX_ROW_ID = std::numeric_limits<std::int64_t>::max();

}  // namespace

void SeriesWriters::forget() {
  is_loaded_ = false;
  used_.clear();
  series_.clear();
  crowded_.clear();
  unseen_ = std::numeric_limits<std::int64_t>::min();
  has_seen_all_ = false;
  bytes_ = 0;
}

bool SeriesWriters::begin() {
  tables_.last_stored = {};
  appended_rows_ = 0;
  appended_slots_ = 0;
  if (!is_loaded_) is_loaded_ = tables_.database.load(tables_.db, tables_.error);
  return is_loaded_;
}

/// Returns the writer of a series; null on failure.
SeriesWriter* SeriesWriters::use(std::int64_t id) {
  auto found = series_.find(id);
  if (found == series_.end()) {
    found = series_.emplace(id, Entry{SeriesWriter(tables_, crowded_, id)}).first;
    if (!found->second.writer.load()) {
      series_.erase(found);
      return nullptr;
    }
  }
  Entry& entry = found->second;
  if (!std::exchange(entry.is_used, true)) used_.push_back(&entry);
  return &entry.writer;
}

bool SeriesWriters::create(std::int64_t id) {
  const auto found = series_.emplace(id, Entry{SeriesWriter(tables_, crowded_, id)}).first;
  return found->second.writer.create();
}

bool SeriesWriters::append(std::int64_t id, std::int64_t time, double valid_ratio,
                           std::span<const double> slots) {
  SeriesWriter* series = use(id);
  if (series == nullptr) return false;
  ++appended_rows_;
  appended_slots_ += slots.size();
  bytes_ -= series->bytes();
  if (!series->append(time, valid_ratio, slots)) return false;
  bytes_ += series->bytes();
  return bytes_ <= MAX_BYTES || spill();
}

bool SeriesWriters::purge(std::int64_t id, std::int64_t before) {
  SeriesWriter* series = use(id);
  if (series == nullptr) return false;
  bytes_ -= series->bytes();
  return series->purge(before);
}

bool SeriesWriters::remove_row(std::int64_t id, std::int64_t time) {
  SeriesWriter* series = use(id);
  if (series == nullptr) return false;
  bytes_ -= series->bytes();
  return series->remove_row(time);
}

bool SeriesWriters::remove(std::int64_t id) {
  SeriesWriter* series = use(id);
  if (series == nullptr) return false;
  bytes_ -= series->bytes();
  if (!series->remove_all()) return false;
  std::erase(used_, &series_.at(id));
  series_.erase(id);
  return true;
}

/// Inserts all rows in memory into the table of loose rows.
bool SeriesWriters::spill() {
  for (Entry* entry : used_) {
    if (!entry->writer.spill()) return false;
  }
  bytes_ = 0;
  return true;
}

bool SeriesWriters::finish() {
  if (!spill() || !seal()) return false;
  for (Entry* entry : used_) {
    if (!entry->writer.store()) return false;
    entry->is_used = false;
  }
  used_.clear();
  return tables_.database.store(tables_.db, tables_.error);
}

/// Seals loose rows where there are enough of them.
bool SeriesWriters::seal() {
  std::size_t blocks =
      1 + appended_rows_ / MAX_BLOCK_ROWS + appended_slots_ * sizeof(double) / MAX_BLOCK_BYTES;
  for (std::size_t looks = LOOKS * blocks; looks > 0 && blocks > 0; --looks) {
    std::int64_t row_id = unseen_;
    const bool is_noted = take_noted(row_id);
    if (!is_noted && !has_seen_all_) {
      bool is_there = false;
      if (!tables_.loose.find_next(row_id, is_there, tables_.error)) {
        return tables_.is_in_transaction();
      }
      has_seen_all_ = !is_there;
    }
    if (!is_noted && has_seen_all_) return true;
    std::int64_t end = row_id;
    bool is_sealed = false;
    if (!seal_region(row_id, end, is_sealed)) return false;
    if (is_sealed) --blocks;
    if (!is_noted && end == MAX_ROW_ID) has_seen_all_ = true;
    if (!is_noted && end < MAX_ROW_ID) unseen_ = end + 1;
  }
  return true;
}

/// Takes one of the noted regions, in turn, so that none waits for ever. Returns false where there
/// is none.
bool SeriesWriters::take_noted(std::int64_t& row_id) {
  if (crowded_.empty()) return false;
  auto next = crowded_.upper_bound(last_region_);
  if (next == crowded_.end()) next = crowded_.begin();
  row_id = *next;
  last_region_ = row_id;
  crowded_.erase(next);
  return true;
}

/// Looks at the region that has the place of a row of `row_id`; sets `end` to its last one.
bool SeriesWriters::seal_region(std::int64_t row_id, std::int64_t& end, bool& is_sealed) {
  const std::int64_t id = row_id >> TIMESTAMP_BITS;
  end = get_row_id(id, MAX_TIMESTAMP);
  // A series that can't be read does not keep others from being recorded.
  SeriesWriter* series = use(id);
  if (series == nullptr) return tables_.is_in_transaction();
  std::int64_t last = MAX_TIMESTAMP;
  if (!series->seal_at(row_id & MAX_TIMESTAMP, is_sealed, last)) return false;
  end = get_row_id(id, last);
  return true;
}

}  // namespace toolkit::trend
