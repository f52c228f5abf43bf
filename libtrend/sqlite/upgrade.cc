#include "libtrend/sqlite/upgrade.h"

#include <sqlite3.h>

#include <vector>

#include "libtrend/sqlite/block.h"
#include "libtrend/sqlite/connection.h"
#include "libtrend/sqlite/damage_text.h"
#include "libtrend/sqlite/database_row.h"
#include "libtrend/sqlite/loose_rows.h"
#include "libtrend/sqlite/schema.h"
#include "libtrend/sqlite/series_state.h"
#include "libtrend/sqlite/statement.h"

namespace toolkit::trend {

namespace {

bool read_series_ids(sqlite3* db, std::vector<std::int64_t>& ids) {
  Statement row(db, "SELECT id FROM series");
  if (!row) return false;
  Statement::Step step = row.step();
  for (; step == Statement::Step::ROW; step = row.step()) ids.push_back(row.read_whole(0));
  return step == Statement::Step::DONE;
}

/// Makes the states of all series, whose rows are loose and without checksums.
bool create_states(sqlite3* db, std::string& error) {
  std::vector<std::int64_t> ids;
  LooseRows loose(db);
  SeriesStates states(db);
  if (!loose || !states || !read_series_ids(db, ids)) return fail_with_database_error(db, error);
  for (const std::int64_t id : ids) {
    SeriesState state;
    state.series_id = id;
    if (!is_series_id(id)) {
      error = CATALOGUE_DAMAGED;
      return false;
    }
    if (!loose.find(id, {1, MAX_TIMESTAMP}, LooseRows::Order::NEWEST_FIRST, state.unchecked_until,
                    error) ||
        !states.add(state, error)) {
      return false;
    }
  }
  return true;
}

/// Whether every device of the database has few enough slots.
bool has_few_slots(sqlite3* db, std::string& error) {
  std::int64_t slots = 0;
  if (!read_number(db,
                   "SELECT coalesce(max(first_slot + (statistics & 1) + (statistics >> 1 & 1) + "
                   "(statistics >> 2 & 1) + (statistics >> 3 & 1) + (statistics >> 4 & 1)), 0) "
                   "FROM parameter",
                   slots)) {
    return fail_with_database_error(db, error);
  }
  if (slots <= static_cast<std::int64_t>(MAX_DEVICE_SLOTS)) return true;
  error = "a device has more than " + std::to_string(MAX_DEVICE_SLOTS) + " slots";
  return false;
}

/// Whether every device of the database has few enough series.
bool has_few_series(sqlite3* db, std::string& error) {
  std::int64_t series = 0;
  if (!read_number(db,
                   "SELECT coalesce(max(n), 0) FROM (SELECT count(*) AS n FROM series NOT INDEXED "
                   "GROUP BY device_id)",
                   series)) {
    return fail_with_database_error(db, error);
  }
  if (series <= static_cast<std::int64_t>(MAX_DEVICE_SERIES)) return true;
  error = "a device has more than " + std::to_string(MAX_DEVICE_SERIES) + " intervals";
  return false;
}

}  // namespace

bool create_tables(sqlite3* db, std::string& error) {
  for (const char* sql : {CREATE_CATALOGUE, CREATE_LOOSE, CREATE_BLOCKS}) {
    if (!execute(db, sql, error)) return false;
  }
  return DatabaseRow::create(db, error);
}

bool upgrade(sqlite3* db, std::string& error) {
  if (!has_few_slots(db, error) || !has_few_series(db, error)) return false;
  for (const char* sql : {UPGRADE_ROWS, CREATE_BLOCKS}) {
    if (!execute(db, sql, error)) return false;
  }
  return create_states(db, error) && DatabaseRow::create(db, error);
}

}  // namespace toolkit::trend
