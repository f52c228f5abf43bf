#include "libtrend/sqlite/id_walk.h"

#include <algorithm>

namespace toolkit::trend {

namespace {

constexpr const char* TABLE_DAMAGED = "a table is damaged";

}  // namespace

IdWalk::IdWalk(sqlite3* db, const std::string& table) {
  const std::string sql = "SELECT rowid FROM " + table + " WHERE rowid BETWEEN ?1 AND ?2 ORDER BY ";
  walk_ = Statement(db, (sql + "rowid").c_str());
  first_ = Statement(db, (sql + "rowid LIMIT 1").c_str());
  last_ = Statement(db, (sql + "rowid DESC LIMIT 1").c_str());
}

Statement::Step IdWalk::look(Statement& statement, std::int64_t first, std::int64_t last,
                             std::int64_t& id) {
  const RunningStatement row(&statement);
  row->bind(1, first);
  row->bind(2, last);
  const Statement::Step step = row->step();
  if (step == Statement::Step::ROW) id = row->read_whole(0);
  return step;
}

bool IdWalk::run(std::int64_t first, std::int64_t last, std::int64_t stride, const See& see,
                 const Break& on_break) {
  for (;;) {
    const std::int64_t start = first;
    std::string reason;
    if (!walk(first, last, see, reason)) return false;
    if (reason.empty()) return true;
    on_break(reason);
    // Where nothing was seen, the damage begins with the first id.
    if (!find_after_damage(first == start ? first : first - 1, last, stride, first)) return true;
  }
}

/// Walks on from `first`, which becomes the id after the last one seen. Where the walk breaks,
/// `reason` is why. Returns false where `see` ended the walk.
bool IdWalk::walk(std::int64_t& first, std::int64_t last, const See& see, std::string& reason) {
  const RunningStatement row(&walk_);
  row->bind(1, first);
  row->bind(2, last);
  Statement::Step step = row->step();
  for (; step == Statement::Step::ROW; step = row->step()) {
    const std::int64_t id = row->read_whole(0);
    if (!see(id)) return false;
    if (id == last) return true;
    first = std::max(first, id + 1);
  }
  if (step == Statement::Step::ERROR) {
    reason = row->error();
  } else {
    // A damaged page may look like the end. Seen from the other side, rows are then left.
    std::int64_t left = 0;
    if (look(last_, first, last, left) != Statement::Step::DONE) reason = TABLE_DAMAGED;
  }
  return true;
}

/// Sets `id` to the first one after the damage that comes next after the id `from`. Returns false
/// where no row up to `last` can be reached.
bool IdWalk::find_after_damage(std::int64_t from, std::int64_t last, std::int64_t stride,
                               std::int64_t& id) {
  constexpr int PROBES_PER_STRIDE = 64;
  std::int64_t to = from;
  for (int probes = 1;; ++probes) {
    if (from >= last) return false;
    to = last - from <= stride ? last : from + stride;
    if (look(first_, to, last, id) != Statement::Step::ERROR) break;
    from = to;
    // What is damaged may be a whole branch of the tree, or rows may be rare there.
    if (probes % PROBES_PER_STRIDE == 0) stride *= 2;
  }
  // Rows before that place may be readable too.
  while (to - from > 1) {
    const std::int64_t middle = from + (to - from) / 2;
    (look(first_, middle, last, id) == Statement::Step::ERROR ? from : to) = middle;
  }
  return look(first_, to, last, id) == Statement::Step::ROW;
}

}  // namespace toolkit::trend
