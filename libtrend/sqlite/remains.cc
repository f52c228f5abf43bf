#include "libtrend/sqlite/remains.h"

#include <algorithm>
#include <span>

#include "libtrend/sqlite/damage_text.h"
#include "libtrend/sqlite/row_cursor.h"
#include "libtrend/sqlite/schema.h"

namespace toolkit::trend {

namespace {

constexpr CTimeRange ALL = {1, MAX_TIMESTAMP};

/// The parts of a series' time where rows may be lost: between rows that can be read, if there is a
/// sign of damage between them.
class Gaps {
 public:
  explicit Gaps(const RemainsFinder::Lose& lose) : lose_(lose) {}

  /// Notes a sign of damage at the current place.
  void note(const std::string& reason) {
    if (reason_.empty()) reason_ = reason;
  }
  /// Goes on to the place after rows that can be read.
  void pass(CTimeRange rows) {
    end(rows.first - 1);
    next_ = rows.last + 1;
  }
  /// Ends the current part at `last`.
  void end(std::int64_t last) {
    if (reason_.empty()) return;
    lose_({next_, std::max(next_, last)}, reason_);
    reason_.clear();
    is_none_ = false;
  }
  /// The first time after the rows that can be read.
  [[nodiscard]] std::int64_t next() const { return next_; }
  [[nodiscard]] bool is_none() const { return is_none_; }

 private:
  const RemainsFinder::Lose& lose_;
  std::int64_t next_ = 1;
  std::string reason_;
  bool is_none_ = true;
};

}  // namespace

/// One call of `find`.
struct RemainsFinder::Search {
  const CSeries& series;
  const Lose& lose;
  const TakeBlock& take_block;
  const Tick& tick;
  SeriesState state = {};
  bool has_state = false;
  Remains remains = {};

  [[nodiscard]] std::int64_t id(std::int64_t time) const { return get_row_id(series.id, time); }
  [[nodiscard]] std::int64_t stride() const {
    return std::max<std::int64_t>(1, std::int64_t{60} * series.minutes);
  }
};

RemainsFinder::RemainsFinder(sqlite3* db, std::int64_t version)
    : has_blocks_(version != ROWS_ONLY_VERSION) {
  const std::string table = has_blocks_ ? "loose" : "snapshot";
  row_ids_ = IdWalk(db, table);
  row_ = Statement(
      db, ("SELECT rowid, valid_ratio, samples, " + std::string(has_blocks_ ? "checksum" : "NULL") +
           " FROM " + table + " WHERE rowid = ?1")
              .c_str());
  if (!has_blocks_) return;
  block_ids_ = IdWalk(db, "block");
  blocks_ = BlockTable(db);
  states_ = SeriesStates(db);
}

RemainsFinder::operator bool() const {
  return row_ids_ && row_ && (!has_blocks_ || (block_ids_ && blocks_ && states_));
}

std::optional<Remains> RemainsFinder::find(const CSeries& series, const Lose& lose,
                                           const TakeBlock& take_block, const Tick& tick) {
  Search search{series, lose, take_block, tick};
  if (has_blocks_) find_state(search);
  if (!find_loose(search)) return {};
  if (has_blocks_ && !find_blocks(search)) return {};
  return std::move(search.remains);
}

void RemainsFinder::find_state(Search& search) {
  std::string reason = STATE_MISSING;
  search.has_state =
      states_.get(search.series.id, search.state, reason) == SeriesStates::Result::FOUND;
  if (!search.has_state) search.lose(ALL, reason);
}

/// Returns whether a loose row can be read. If not, sets `reason`.
bool RemainsFinder::read_loose_row(const Search& search, std::int64_t id, std::string& reason) {
  const RunningStatement row(&row_);
  row->bind(1, id);
  const Statement::Step step = row->step();
  const bool must_have_checksum =
      search.has_state && (id & MAX_TIMESTAMP) > search.state.unchecked_until;
  double valid_ratio = 0;
  std::span<const unsigned char> samples;
  if (step == Statement::Step::ROW &&
      read_row(*row, id, must_have_checksum, valid_ratio, samples) &&
      samples.size() % sizeof(double) == 0) {
    return true;
  }
  reason = step == Statement::Step::ERROR ? row->error() : "a row is damaged";
  return false;
}

bool RemainsFinder::find_loose(Search& search) {
  Gaps gaps(search.lose);
  std::int64_t counted = 0;
  std::vector<std::int64_t>& times = search.remains.loose;
  const auto see = [&](std::int64_t id) {
    const std::int64_t time = id & MAX_TIMESTAMP;
    std::string reason = "rows are out of order";
    if (time < gaps.next() || !read_loose_row(search, id, reason)) {
      gaps.note(reason);
      return search.tick(1);
    }
    gaps.pass({time, time});
    times.push_back(time);
    if (time > search.state.unchecked_until) ++counted;
    return search.tick(1);
  };
  const auto on_break = [&](const std::string& reason) { gaps.note(reason); };
  if (!row_ids_.run(search.id(1), search.id(MAX_TIMESTAMP), search.stride(), see, on_break)) {
    return false;
  }
  gaps.end(MAX_TIMESTAMP);
  if (search.has_state && gaps.is_none() && counted != search.state.loose_rows) {
    search.lose(ALL, "of " + std::to_string(search.state.loose_rows) +
                         " rows that are not in blocks, " + std::to_string(counted) + " are there");
  }
  return true;
}

/// Drops loose rows at times that a block has.
void RemainsFinder::drop_repeated(const BlockLayout& layout, Search& search) {
  std::vector<std::int64_t>& loose = search.remains.loose;
  const auto first = std::lower_bound(loose.begin(), loose.end(), layout.times.front());
  const auto end = std::upper_bound(first, loose.end(), layout.times.back());
  const auto is_repeated = [&](std::int64_t time) {
    if (!std::binary_search(layout.times.begin(), layout.times.end(), time)) return false;
    search.lose({time, time}, "a series has two rows at one time");
    return true;
  };
  loose.erase(std::remove_if(first, end, is_repeated), end);
}

bool RemainsFinder::find_blocks(Search& search) {
  Gaps gaps(search.lose);
  SeriesState found;
  BlockHead head;
  BlockLayout layout;
  const SeriesState& state = search.state;
  const auto see = [&](std::int64_t id) {
    std::string reason = BLOCK_MISSING;
    const BlockTable::Result result =
        blocks_.find(search.series.id, id & MAX_TIMESTAMP, head, reason);
    if (result == BlockTable::Result::FOUND) reason = HEAD_DAMAGED;
    const bool is_readable = result == BlockTable::Result::FOUND && decode_layout(head, layout);
    const bool fits =
        is_readable && head.first_time >= gaps.next() &&
        (!search.has_state || (head.last_time <= state.last_block && head.change <= state.changes));
    if (!fits) {
      gaps.note(is_readable ? "a block is not where it belongs" : reason);
      return search.tick(0);
    }
    if (head.previous + 1 != gaps.next()) gaps.note(BLOCK_MISSING);
    gaps.pass({head.first_time, head.last_time});
    search.remains.blocks.push_back(head.last_time);
    ++found.blocks;
    found.sealed_rows += head.rows;
    drop_repeated(layout, search);
    search.take_block(head, layout);
    return search.tick(static_cast<std::uint64_t>(head.rows));
  };
  const auto on_break = [&](const std::string& reason) { gaps.note(reason); };
  // Most blocks are full.
  const std::int64_t stride = search.stride() * static_cast<std::int64_t>(MAX_BLOCK_ROWS);
  if (!block_ids_.run(search.id(1), search.id(MAX_TIMESTAMP), stride, see, on_break)) return false;
  if (search.has_state && gaps.next() <= state.last_block) gaps.note(BLOCK_MISSING);
  gaps.end(search.has_state ? state.last_block : MAX_TIMESTAMP);
  const std::vector<std::int64_t>& blocks = search.remains.blocks;
  if (search.has_state && gaps.is_none() &&
      (found.blocks != state.blocks || found.sealed_rows != state.sealed_rows ||
       (blocks.empty() ? 0 : blocks.front()) != state.first_block)) {
    search.lose(ALL, "the rows in blocks are not as many as were counted");
  }
  return true;
}

}  // namespace toolkit::trend
