// The ids of the rows of a table, found around the places that are damaged.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "libtrend/sqlite/statement.h"

namespace toolkit::trend {

/// Walks over the ids of a table on one connection, which must outlive it. A walk goes on after a
/// page that can't be read. It does not read the other columns of the rows.
class IdWalk {
 public:
  /// Is called with the id of each row. Ids that a damaged page shows may be in no order, and may
  /// be wrong. Returns whether the walk shall go on.
  using See = std::function<bool(std::int64_t)>;
  /// Is called where rows may be missing, after the ids before that place, with the reason.
  using Break = std::function<void(const std::string&)>;

  IdWalk() = default;
  IdWalk(sqlite3* db, const std::string& table);
  /// Whether the table is there.
  explicit operator bool() const { return walk_ && first_ && last_; }

  /// Walks over the ids from `first` to `last`, which are less than 2^61 apart. `stride` is about
  /// the distance of two ids. Returns false if `see` ended the walk.
  [[nodiscard]] bool run(std::int64_t first, std::int64_t last, std::int64_t stride, const See& see,
                         const Break& on_break);

  /// Looks for the ids from `first` to `last`, and sets `id` to the first one.
  [[nodiscard]] Statement::Step find(std::int64_t first, std::int64_t last, std::int64_t& id) {
    return look(first_, first, last, id);
  }

 private:
  static Statement::Step look(Statement& statement, std::int64_t first, std::int64_t last,
                              std::int64_t& id);
  bool walk(std::int64_t& first, std::int64_t last, const See& see, std::string& reason);
  bool find_after_damage(std::int64_t from, std::int64_t last, std::int64_t stride,
                         std::int64_t& id);

  Statement walk_;
  Statement first_;
  Statement last_;
};

}  // namespace toolkit::trend
