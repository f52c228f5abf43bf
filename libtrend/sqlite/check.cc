#include "libtrend/sqlite/check.h"

#include <algorithm>
#include <limits>
#include <map>
#include <memory>
#include <utility>

#include "libtrend/sqlite/block_reader.h"
#include "libtrend/sqlite/check_catalogue.h"
#include "libtrend/sqlite/check_rules.h"
#include "libtrend/sqlite/connection.h"
#include "libtrend/sqlite/damage_list.h"
#include "libtrend/sqlite/damage_text.h"
#include "libtrend/sqlite/damaged_reader.h"
#include "libtrend/sqlite/remains.h"
#include "libtrend/sqlite/schema.h"

namespace toolkit::trend {

namespace {

/// Ids from `first` to `last`, both inclusive.
struct IdRange {
  std::int64_t first;
  std::int64_t last;
};

class DatabaseCheck {
 public:
  DatabaseCheck(sqlite3* db, std::int64_t version, const ReportProgress& progress)
      : db_(db),
        version_(version),
        has_blocks_(version != ROWS_ONLY_VERSION),
        progress_(progress),
        finder_(db, version),
        blocks_(has_blocks_ ? BlockTable(db) : BlockTable()) {}

  /// Returns false where the progress function ended it.
  [[nodiscard]] bool run() {
    check_structure(db_, found_);
    check_rules(db_, found_);
    check_catalogue(db_, version_, found_, series_);
    if (has_blocks_) check_database_row();
    if (!finder_) note(TABLE_MISSING);
    if (!finder_ || !check_series()) return !is_stopped_;
    check_owners(has_blocks_ ? "loose" : "snapshot", "rows of no series");
    if (has_blocks_) {
      check_owners("block", "blocks of no series");
      check_segments();
    }
    // What a query would stumble over although nothing was found.
    if (found_.empty()) read_all();
    return !is_stopped_;
  }

  [[nodiscard]] const DamageList& found() const { return found_; }

 private:
  void note(const std::string& text) { found_.insert({.device = "", .param = "", .text = text}); }

  [[nodiscard]] bool go_on(std::uint64_t rows) {
    // Not at every row.
    constexpr std::uint64_t ENOUGH_ROWS = 4096;
    rows_ += rows;
    if (!progress_ || rows_ - told_rows_ < ENOUGH_ROWS) return true;
    told_rows_ = rows_;
    is_stopped_ = !progress_(rows_, total_rows_);
    return !is_stopped_;
  }

  void check_database_row();
  bool check_series();
  void check_block(const CSeries& series, const std::string& device, const BlockHead& head,
                   const BlockLayout& layout);
  void check_owners(const char* table, const char* text);
  void expect_none(IdWalk& ids, IdRange range, const char* text);
  void check_segments();
  void read_all();
  bool read_all(const CSeries& series, bool ascending, RowTable& rows, BlockReader* blocks,
                std::string& reason);

  sqlite3* db_;
  std::int64_t version_;
  bool has_blocks_;
  const ReportProgress& progress_;
  RemainsFinder finder_;
  BlockTable blocks_;
  DamageList found_;
  std::vector<CSeries> series_;  ///< by id
  std::int64_t next_block_ = std::numeric_limits<std::int64_t>::max();
  std::map<std::int64_t, std::int64_t> segments_;  ///< how many, by the number of the block
  std::uint64_t rows_ = 0;
  std::uint64_t told_rows_ = 0;
  std::uint64_t total_rows_ = 0;
  bool is_stopped_ = false;
};

void DatabaseCheck::check_database_row() {
  std::string reason = TABLE_MISSING;
  BlockReader reader(db_, reason);
  if (!reader || !reader.start_query(true)) note(reason);
  std::int64_t number = 0;
  if (read_number(db_, "SELECT next_block FROM database WHERE id = 1", number)) {
    next_block_ = number;
    if (number > MAX_BLOCK_NUMBER) note("no other block can get a number");
  }
  if (read_number(db_, "SELECT sum(loose_rows + sealed_rows) FROM series_state", number)) {
    total_rows_ = static_cast<std::uint64_t>(std::max<std::int64_t>(number, 0));
  }
}

bool DatabaseCheck::check_series() {
  for (const CSeries& series : series_) {
    const std::string device = find_device_path(db_, series.id);
    const auto lose = [&](CTimeRange range, const std::string& reason) {
      found_.insert({.device = device,
                     .minutes = series.minutes,
                     .param = "",
                     .first = range.first,
                     .last = range.last,
                     .text = reason});
    };
    const auto take_block = [&](const BlockHead& head, const BlockLayout& layout) {
      check_block(series, device, head, layout);
    };
    const auto tick = [&](std::uint64_t rows) { return go_on(rows); };
    if (!finder_.find(series, lose, take_block, tick)) return false;
  }
  return true;
}

/// Checks the columns of a block.
void DatabaseCheck::check_block(const CSeries& series, const std::string& device,
                                const BlockHead& head, const BlockLayout& layout) {
  const auto lose = [&](const std::string& text) {
    found_.insert({.device = device,
                   .minutes = series.minutes,
                   .param = "",
                   .first = head.first_time,
                   .last = head.last_time,
                   .text = text});
  };
  // A head that somebody made up may have any numbers.
  constexpr std::int64_t MOST_SEGMENTS = (std::int64_t{1} << SEGMENT_BITS) - 1;
  const std::int64_t segments =
      std::min(head.bytes / head.segment_size + (head.bytes % head.segment_size == 0 ? 0 : 1),
               MOST_SEGMENTS);
  const bool is_new = segments_.emplace(head.number, segments).second;
  if (!is_new || head.number >= next_block_) lose("a block has a number that is not its own");
  std::vector<unsigned char> bytes;
  std::vector<double> values(layout.times.size());
  std::string reason;
  for (std::size_t slot = 0; slot < layout.slots(); ++slot) {
    if (blocks_.read_columns(head, layout.offsets[slot], layout.offsets[slot + 1], bytes, reason) &&
        decode_block_column(head, slot, bytes, values)) {
      continue;
    }
    lose("the values of slot " + std::to_string(slot) + " are damaged in a block");
  }
}

/// Looks for rows of `table` whose ids are not those of rows of a series.
void DatabaseCheck::check_owners(const char* table, const char* text) {
  IdWalk ids(db_, table);
  constexpr std::int64_t FIRST = std::numeric_limits<std::int64_t>::min();
  constexpr std::int64_t LAST = std::numeric_limits<std::int64_t>::max();
  std::vector<IdRange> unowned;
  std::int64_t next = FIRST;
  for (const CSeries& series : series_) {
    // No row has the timestamp 0.
    unowned.push_back({next, get_row_id(series.id, 0)});
    next = get_row_id(series.id, MAX_TIMESTAMP);
    if (next == LAST) break;
    ++next;
  }
  if (next != LAST) unowned.push_back({next, LAST});
  for (const IdRange& range : unowned) expect_none(ids, range, text);
}

/// Notes `text` if a table has ids in `range`.
void DatabaseCheck::expect_none(IdWalk& ids, IdRange range, const char* text) {
  std::int64_t id = 0;
  const Statement::Step step = ids.find(range.first, range.last, id);
  if (step == Statement::Step::ROW) {
    note(std::string(text) + ": there is one with the id " + std::to_string(id));
  } else if (step == Statement::Step::ERROR && found_.empty()) {
    // All tables could be read a moment ago.
    note("a table can't be read any more");
  }
}

/// Looks for segments of no block.
void DatabaseCheck::check_segments() {
  constexpr const char* TEXT = "segments of no block";
  IdWalk ids(db_, "segment");
  std::int64_t next = std::numeric_limits<std::int64_t>::min();
  for (const auto& [number, count] : segments_) {
    const std::int64_t first = number << SEGMENT_BITS;
    expect_none(ids, {next, first - 1}, TEXT);
    next = first + count;
  }
  expect_none(ids, {next, std::numeric_limits<std::int64_t>::max()}, TEXT);
}

/// Reads the rows of all series in both directions as a query does.
void DatabaseCheck::read_all() {
  std::string reason;
  RowTable rows(db_, has_blocks_ ? "loose" : "snapshot", has_blocks_ ? "checksum" : "NULL");
  std::unique_ptr<BlockReader> blocks;
  if (has_blocks_) blocks = std::make_unique<BlockReader>(db_, reason);
  if (blocks && !blocks->start_query(true)) return note(reason);
  for (const CSeries& series : series_) {
    for (const bool ascending : {true, false}) {
      if (read_all(series, ascending, rows, blocks.get(), reason)) continue;
      found_.insert({.device = find_device_path(db_, series.id),
                     .minutes = series.minutes,
                     .param = "",
                     .first = 1,
                     .last = MAX_TIMESTAMP,
                     .text = reason});
    }
    if (!go_on(0)) return;
  }
}

bool DatabaseCheck::read_all(const CSeries& series, bool ascending, RowTable& rows,
                             BlockReader* blocks, std::string& reason) {
  const std::vector<CParamProperties> no_params;
  std::unique_ptr<SeriesCursor> cursor;
  if (blocks != nullptr) {
    cursor = blocks->make_cursor(series, no_params, ascending);
  } else if (BorrowedStatement walk = rows.borrow_walk(ascending)) {
    cursor = std::make_unique<RowCursor>(rows, std::move(walk), series, no_params, ascending,
                                         MAX_TIMESTAMP, reason);
  }
  return cursor && cursor->place(1, MAX_TIMESTAMP) &&
         cursor->pass(std::numeric_limits<std::uint64_t>::max());
}

}  // namespace

bool check_database(sqlite3* db, std::int64_t version, const ReportProgress& progress,
                    std::vector<CDamage>& damage, std::string& error) {
  constexpr std::size_t MOST = 1000;
  DatabaseCheck check(db, version, progress);
  if (!check.run()) {
    error = "it was stopped";
    return false;
  }
  for (const CDamage& part : check.found()) {
    if (damage.size() == MOST) break;
    damage.push_back(part);
  }
  return true;
}

}  // namespace toolkit::trend
