#include "libtrend/sqlite/block_table.h"

#include <algorithm>
#include <limits>

#include "libtrend/sqlite/damage_text.h"
#include "libtrend/sqlite/schema.h"

namespace toolkit::trend {

namespace {

/// A block has at most 65,535 columns, each of at most 65,535 bytes.
constexpr std::int64_t MAX_BYTES = std::numeric_limits<std::uint32_t>::max();

/// Whether a block can have such a head.
bool is_possible(const BlockHead& head) {
  return head.number >= 0 && head.number <= MAX_BLOCK_NUMBER && head.rows >= 1 &&
         head.rows <= static_cast<std::int64_t>(MAX_BLOCK_ROWS) && head.previous >= 0 &&
         head.previous < head.first_time && head.first_time <= head.last_time && head.bytes >= 0 &&
         head.bytes <= MAX_BYTES && head.segment_size >= 1 && head.segment_size <= MAX_BYTES;
}

std::int64_t get_segment_id(const BlockHead& head, std::int64_t place) {
  return (head.number << SEGMENT_BITS) + place;
}

std::int64_t count_segments(const BlockHead& head) {
  return (head.bytes + head.segment_size - 1) / head.segment_size;
}

}  // namespace

const char* const READ_BLOCK_HEADS =
    "SELECT rowid, number, first_time, previous, rows, bytes, segment_size, change, content, "
    "checksum FROM block WHERE rowid BETWEEN ?1 AND ?2 ORDER BY rowid";

BlockTable::Result read_block_head(Statement& row, BlockHead& head, std::string& error) {
  const Statement::Step step = row.step();
  if (step == Statement::Step::DONE) return BlockTable::Result::MISSING;
  if (step == Statement::Step::ERROR) {
    error = row.error();
    return BlockTable::Result::FAILED;
  }
  const std::int64_t id = row.read_whole(0);
  head.series_id = id >> TIMESTAMP_BITS;
  head.last_time = id & MAX_TIMESTAMP;
  std::span<const unsigned char> content;
  std::int64_t checksum = 0;
  const bool is_read = row.read(1, head.number) && row.read(2, head.first_time) &&
                       row.read(3, head.previous) && row.read(4, head.rows) &&
                       row.read(5, head.bytes) && row.read(6, head.segment_size) &&
                       row.read(7, head.change) && row.read(8, content) && row.read(9, checksum);
  if (is_read) head.content.assign(content.begin(), content.end());
  if (is_read && checksum == std::int64_t{get_checksum(head)} && is_possible(head)) {
    return BlockTable::Result::FOUND;
  }
  error = HEAD_DAMAGED;
  return BlockTable::Result::FAILED;
}

std::int64_t get_segment_size(std::int64_t page_size) {
  // A row of a B-tree takes its whole page where its record has 35 bytes less than the page, as the
  // SQLite file format says; the record starts with 5 bytes for the types of its columns.
  return page_size - 35 - 5;
}

BlockTable::BlockTable(sqlite3* db)
    : find_(db,
            "SELECT rowid, number, first_time, previous, rows, bytes, segment_size, change, "
            "content, checksum FROM block WHERE rowid = ?1"),
      find_from_(db, READ_BLOCK_HEADS),
      read_segments_(
          db, "SELECT rowid, data FROM segment WHERE rowid BETWEEN ?1 AND ?2 ORDER BY rowid"),
      write_head_(db,
                  "INSERT OR REPLACE INTO block VALUES (?1, ?2, ?3, ?4, ?5, ?6, ?7, ?8, ?9, ?10)"),
      write_segment_(db, "INSERT INTO segment VALUES (?1, ?2)"),
      remove_head_(db, "DELETE FROM block WHERE rowid = ?1"),
      remove_segments_(db, "DELETE FROM segment WHERE rowid BETWEEN ?1 AND ?2") {}

BlockTable::operator bool() const {
  return find_ && find_from_ && read_segments_ && write_head_ && write_segment_ && remove_head_ &&
         remove_segments_;
}

BlockTable::Result BlockTable::find(std::int64_t series_id, std::int64_t last_time, BlockHead& head,
                                    std::string& error) {
  const RunningStatement row(&find_);
  row->bind(1, get_row_id(series_id, last_time));
  return read_block_head(*row, head, error);
}

BlockTable::Result BlockTable::find_from(std::int64_t series_id, std::int64_t time, BlockHead& head,
                                         std::string& error) {
  const RunningStatement row(&find_from_);
  row->bind(1, get_row_id(series_id, time));
  row->bind(2, get_row_id(series_id, MAX_TIMESTAMP));
  return read_block_head(*row, head, error);
}

bool BlockTable::read_columns(const BlockHead& head, std::size_t start, std::size_t end,
                              std::vector<unsigned char>& bytes, std::string& error) {
  bytes.clear();
  if (start >= end) return true;
  const auto size = static_cast<std::size_t>(head.segment_size);
  const auto total = static_cast<std::size_t>(head.bytes);
  const RunningStatement row(&read_segments_);
  row->bind(1, get_segment_id(head, static_cast<std::int64_t>(start / size)));
  row->bind(2, get_segment_id(head, static_cast<std::int64_t>((end - 1) / size)));
  for (std::size_t place = start / size; place * size < end; ++place) {
    const Statement::Step step = row->step();
    if (step == Statement::Step::ERROR) {
      error = row->error();
      return false;
    }
    std::span<const unsigned char> data;
    const std::size_t first = place * size;
    if (step == Statement::Step::DONE ||
        row->read_whole(0) != get_segment_id(head, static_cast<std::int64_t>(place)) ||
        !row->read(1, data) || data.size() != std::min(size, total - first)) {
      error = COLUMNS_DAMAGED;
      return false;
    }
    const std::size_t from = std::max(start, first) - first;
    const std::size_t to = std::min(end, first + data.size()) - first;
    bytes.insert(bytes.end(), data.begin() + static_cast<std::ptrdiff_t>(from),
                 data.begin() + static_cast<std::ptrdiff_t>(to));
  }
  return true;
}

bool BlockTable::write_head(const BlockHead& head, std::string& error) {
  write_head_.bind(1, get_row_id(head.series_id, head.last_time));
  int index = 1;
  for (const std::int64_t number : {head.number, head.first_time, head.previous, head.rows,
                                    head.bytes, head.segment_size, head.change}) {
    write_head_.bind(++index, number);
  }
  write_head_.bind(9, head.content.data(), head.content.size());
  write_head_.bind(10, std::int64_t{get_checksum(head)});
  if (write_head_.run()) return true;
  error = write_head_.error();
  return false;
}

bool BlockTable::insert(const BlockHead& head, const std::vector<unsigned char>& columns,
                        std::string& error) {
  const auto size = static_cast<std::size_t>(head.segment_size);
  for (std::size_t start = 0; start < columns.size(); start += size) {
    write_segment_.bind(1, get_segment_id(head, static_cast<std::int64_t>(start / size)));
    write_segment_.bind(2, columns.data() + start, std::min(size, columns.size() - start));
    if (!write_segment_.run()) {
      error = write_segment_.error();
      return false;
    }
  }
  return write_head(head, error);
}

bool BlockTable::replace_head(const BlockHead& head, std::string& error) {
  return write_head(head, error);
}

bool BlockTable::remove(const BlockHead& head, std::string& error) {
  remove_segments_.bind(1, get_segment_id(head, 0));
  remove_segments_.bind(2, get_segment_id(head, count_segments(head)));
  remove_head_.bind(1, get_row_id(head.series_id, head.last_time));
  if (remove_segments_.run() && remove_head_.run()) return true;
  error = remove_head_.error();
  return false;
}

}  // namespace toolkit::trend
