#include "libtrend/sqlite/series_state.h"

#include <bit>
#include <limits>
#include <vector>

#include "libtrend/query/bytes.h"
#include "libtrend/sqlite/checksum.h"
#include "libtrend/sqlite/schema.h"

namespace toolkit::trend {

namespace {

constexpr const char* STATE_DAMAGED = "the state of a series is damaged";

void append_number(std::int64_t number, std::vector<unsigned char>& bytes) {
  append(static_cast<std::uint64_t>(number), bytes);
}

void append_text(const std::string& text, std::vector<unsigned char>& bytes) {
  append(static_cast<std::uint32_t>(text.size()), bytes);
  bytes.insert(bytes.end(), text.begin(), text.end());
}

/// Continues `checksum` with the rows that `sql` yields, each of `columns` columns, numbers and
/// texts. Each row starts with `table`, so that rows of other tables can't be taken for its own.
bool add_rows(sqlite3* db, char table, const char* sql, int columns, std::uint32_t& checksum) {
  Statement rows(db, sql);
  if (!rows) return false;
  Statement::Step step = rows.step();
  for (; step == Statement::Step::ROW; step = rows.step()) {
    std::vector<unsigned char> bytes = {static_cast<unsigned char>(table)};
    for (int column = 0; column < columns; ++column) {
      std::int64_t number = 0;
      std::string text;
      if (rows.read(column, number)) {
        append_number(number, bytes);
      } else if (rows.read(column, text)) {
        append_text(text, bytes);
      } else {
        return false;
      }
    }
    checksum = get_checksum(bytes, checksum);
  }
  return step == Statement::Step::DONE;
}

/// Whether a series can have such a state. A series has at most one row at each time.
bool is_possible(const SeriesState& state) {
  for (const std::int64_t number : {state.loose_rows, state.unchecked_until, state.first_block,
                                    state.last_block, state.blocks, state.sealed_rows}) {
    if (number < 0 || number > MAX_TIMESTAMP) return false;
  }
  if (state.changes < 0 || state.changes == std::numeric_limits<std::int64_t>::max()) return false;
  if (state.blocks == 0) return state.first_block == 0 && state.last_block == 0;
  return state.first_block > 0 && state.first_block <= state.last_block;
}

}  // namespace

std::uint32_t get_checksum(const SeriesState& state) {
  std::vector<unsigned char> bytes;
  for (const std::int64_t number :
       {state.series_id, state.loose_rows, state.unchecked_until, state.first_block,
        state.last_block, state.blocks, state.sealed_rows, state.changes}) {
    append_number(number, bytes);
  }
  return get_checksum(bytes);
}

SeriesStates::SeriesStates(sqlite3* db)
    : get_(db,
           "SELECT series_id, loose_rows, unchecked_until, first_block, last_block, blocks, "
           "sealed_rows, changes, checksum FROM series_state WHERE series_id = ?1"),
      add_(db, "INSERT INTO series_state VALUES (?1, ?2, ?3, ?4, ?5, ?6, ?7, ?8, ?9)"),
      set_(db,
           "UPDATE series_state SET loose_rows = ?2, unchecked_until = ?3, first_block = ?4, "
           "last_block = ?5, blocks = ?6, sealed_rows = ?7, changes = ?8, checksum = ?9 "
           "WHERE series_id = ?1"),
      remove_(db, "DELETE FROM series_state WHERE series_id = ?1") {}

SeriesStates::Result SeriesStates::get(std::int64_t series_id, SeriesState& state,
                                       std::string& error) {
  const RunningStatement row(&get_);
  row->bind(1, series_id);
  const Statement::Step step = row->step();
  if (step == Statement::Step::DONE) return Result::MISSING;
  state.series_id = series_id;
  std::int64_t checksum = 0;
  const bool is_read = step == Statement::Step::ROW && row->read(1, state.loose_rows) &&
                       row->read(2, state.unchecked_until) && row->read(3, state.first_block) &&
                       row->read(4, state.last_block) && row->read(5, state.blocks) &&
                       row->read(6, state.sealed_rows) && row->read(7, state.changes) &&
                       row->read(8, checksum);
  if (is_read && checksum == std::int64_t{get_checksum(state)} && is_possible(state)) {
    return Result::FOUND;
  }
  error = step == Statement::Step::ROW ? STATE_DAMAGED : row->error();
  return Result::FAILED;
}

bool SeriesStates::add(const SeriesState& state, std::string& error) {
  return write(add_, state, error);
}

bool SeriesStates::set(const SeriesState& state, std::string& error) {
  return write(set_, state, error);
}

bool SeriesStates::remove(std::int64_t series_id, std::string& error) {
  remove_.bind(1, series_id);
  if (remove_.run()) return true;
  error = remove_.error();
  return false;
}

bool SeriesStates::write(Statement& statement, const SeriesState& state, std::string& error) {
  int index = 0;
  for (const std::int64_t number :
       {state.series_id, state.loose_rows, state.unchecked_until, state.first_block,
        state.last_block, state.blocks, state.sealed_rows, state.changes,
        std::int64_t{get_checksum(state)}}) {
    statement.bind(++index, number);
  }
  if (statement.run()) return true;
  error = statement.error();
  return false;
}

std::uint32_t get_row_checksum(std::int64_t id, double valid_ratio,
                               std::span<const unsigned char> samples) {
  unsigned char head[16];
  store(static_cast<std::uint64_t>(id), head);
  store(std::bit_cast<std::uint64_t>(valid_ratio), head + 8);
  return get_checksum(samples, get_checksum(head));
}

bool get_catalogue_checksum(sqlite3* db, std::uint32_t& checksum) {
  checksum = 0;
  return add_rows(db, 'd', "SELECT id, path, description FROM device ORDER BY id", 3, checksum) &&
         add_rows(db, 'p',
                  "SELECT id, device_id, path, statistics, first_slot FROM parameter ORDER BY id",
                  5, checksum) &&
         add_rows(db, 's', "SELECT id, device_id, minutes FROM series ORDER BY id", 3, checksum);
}

std::uint32_t get_database_checksum(const std::string& uuid, std::int64_t next_block,
                                    std::int64_t catalogue) {
  std::vector<unsigned char> bytes;
  append_text(uuid, bytes);
  append_number(next_block, bytes);
  append_number(catalogue, bytes);
  return get_checksum(bytes);
}

}  // namespace toolkit::trend
