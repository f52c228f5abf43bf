#include "libtrend/sqlite/loose_rows.h"

#include <sqlite3.h>

#include <algorithm>
#include <bit>

#include "libtrend/query/bytes.h"
#include "libtrend/sqlite/block.h"
#include "libtrend/sqlite/damage_text.h"
#include "libtrend/sqlite/schema.h"
#include "libtrend/sqlite/series_state.h"

namespace toolkit::trend {

namespace {

bool fail(const Statement& statement, std::string& error) {
  error = statement.error();
  return false;
}

void bind(Statement& statement, std::int64_t series_id, CTimeRange range) {
  statement.bind(1, get_row_id(series_id, range.first));
  statement.bind(2, get_row_id(series_id, range.last));
}

/// Reads the row at which `statement` stands. Returns false where it is damaged.
bool read_row(const Statement& statement, std::int64_t unchecked_until, std::int64_t& time,
              double& valid_ratio, std::vector<double>& slots) {
  const std::int64_t id = statement.read_whole(0);
  time = id & MAX_TIMESTAMP;
  std::span<const unsigned char> samples;
  if (!statement.read(1, valid_ratio) || !statement.read(2, samples)) return false;
  std::int64_t checksum = 0;
  if (statement.read(3, checksum)) {
    if (checksum != std::int64_t{get_row_checksum(id, valid_ratio, samples)}) return false;
  } else if (!statement.is_null(3) || time > unchecked_until) {
    return false;
  }
  if (samples.size() % sizeof(double) != 0) return false;
  // No parameter has a slot after these.
  slots.resize(std::min(samples.size() / sizeof(double), MAX_DEVICE_SLOTS));
  for (std::size_t i = 0; i < slots.size(); ++i) {
    slots[i] = std::bit_cast<double>(load<std::uint64_t>(samples.data() + sizeof(double) * i));
  }
  return true;
}

}  // namespace

LooseRows::LooseRows(sqlite3* db)
    : db_(db),
      insert_(db, "INSERT INTO loose VALUES (?1, ?2, ?3, ?4)"),
      find_first_(db,
                  "SELECT rowid FROM loose WHERE rowid BETWEEN ?1 AND ?2 ORDER BY rowid LIMIT 1"),
      find_last_(
          db, "SELECT rowid FROM loose WHERE rowid BETWEEN ?1 AND ?2 ORDER BY rowid DESC LIMIT 1"),
      find_next_(db, "SELECT rowid FROM loose WHERE rowid >= ?1 ORDER BY rowid LIMIT 1"),
      count_(db,
             "SELECT count(*), coalesce(max(length(samples)), 0) FROM "
             "(SELECT samples FROM loose WHERE rowid BETWEEN ?1 AND ?2 LIMIT ?3)"),
      read_ascending_(db,
                      "SELECT rowid, valid_ratio, samples, checksum FROM loose "
                      "WHERE rowid BETWEEN ?1 AND ?2 ORDER BY rowid"),
      read_descending_(db,
                       "SELECT rowid, valid_ratio, samples, checksum FROM loose "
                       "WHERE rowid BETWEEN ?1 AND ?2 ORDER BY rowid DESC"),
      remove_(db, "DELETE FROM loose WHERE rowid BETWEEN ?1 AND ?2") {}

LooseRows::operator bool() const {
  return insert_ && find_first_ && find_last_ && find_next_ && count_ && read_ascending_ &&
         read_descending_ && remove_;
}

bool LooseRows::insert(std::int64_t series_id, std::int64_t time, double valid_ratio,
                       std::span<const double> slots, std::string& error) {
  samples_.resize(sizeof(double) * slots.size());
  for (std::size_t i = 0; i < slots.size(); ++i) {
    store(std::bit_cast<std::uint64_t>(slots[i]), samples_.data() + sizeof(double) * i);
  }
  const std::int64_t id = get_row_id(series_id, time);
  insert_.bind(1, id);
  insert_.bind(2, valid_ratio);
  insert_.bind(3, samples_.data(), samples_.size());
  insert_.bind(4, std::int64_t{get_row_checksum(id, valid_ratio, samples_)});
  if (insert_.run()) return true;
  return fail(insert_, error);
}

bool LooseRows::find(std::int64_t series_id, CTimeRange range, Order order, std::int64_t& time,
                     std::string& error) {
  const RunningStatement row(order == Order::OLDEST_FIRST ? &find_first_ : &find_last_);
  bind(*row, series_id, range);
  const Statement::Step step = row->step();
  if (step == Statement::Step::ERROR) return fail(*row, error);
  time = step == Statement::Step::ROW ? row->read_whole(0) & MAX_TIMESTAMP : NO_ROW;
  return true;
}

bool LooseRows::find_next(std::int64_t& id, bool& is_there, std::string& error) {
  const RunningStatement row(&find_next_);
  row->bind(1, id);
  const Statement::Step step = row->step();
  if (step == Statement::Step::ERROR) return fail(*row, error);
  is_there = step == Statement::Step::ROW;
  if (is_there) id = row->read_whole(0);
  return true;
}

bool LooseRows::count(std::int64_t series_id, CTimeRange range, std::size_t limit, Count& count,
                      std::string& error) {
  const RunningStatement row(&count_);
  bind(*row, series_id, range);
  row->bind(3, static_cast<std::int64_t>(limit));
  if (row->step() != Statement::Step::ROW) return fail(*row, error);
  count.rows = static_cast<std::size_t>(row->read_whole(0));
  count.slots = static_cast<std::size_t>(row->read_whole(1)) / sizeof(double);
  return true;
}

bool LooseRows::read(std::int64_t series_id, CTimeRange range, Order order,
                     std::int64_t unchecked_until, const Take& take, std::string& error) {
  const RunningStatement row(order == Order::OLDEST_FIRST ? &read_ascending_ : &read_descending_);
  bind(*row, series_id, range);
  std::vector<double> slots;
  for (;;) {
    const Statement::Step step = row->step();
    if (step == Statement::Step::ERROR) return fail(*row, error);
    if (step == Statement::Step::DONE) return true;
    std::int64_t time = 0;
    double valid_ratio = 0;
    if (!read_row(*row, unchecked_until, time, valid_ratio, slots)) {
      error = ROWS_DAMAGED;
      return false;
    }
    if (!take(time, valid_ratio, slots)) return true;
  }
}

bool LooseRows::remove(std::int64_t series_id, CTimeRange range, std::int64_t& rows,
                       std::string& error) {
  rows = 0;
  if (range.first > range.last) return true;
  bind(remove_, series_id, range);
  if (!remove_.run()) return fail(remove_, error);
  rows = sqlite3_changes64(db_);
  return true;
}

}  // namespace toolkit::trend
