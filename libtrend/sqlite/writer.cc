#include "libtrend/sqlite/writer.h"

#include <sqlite3.h>

#include <algorithm>
#include <limits>
#include <utility>
#include <vector>

#include "libtrend/sqlite/connection.h"
#include "libtrend/sqlite/damage_text.h"
#include "libtrend/sqlite/schema.h"
#include "libtrend/sqlite/upgrade.h"
#include "libtrend/statistics.h"

namespace toolkit::trend {

namespace {

/// Reads the columns `statistics` and `first_slot` of `row`. Returns false where no row of a device
/// can have such slots.
bool read_slots(const Statement& row, CParamProperties& param) {
  std::int64_t statistics = 0;
  std::int64_t first_slot = 0;
  constexpr auto MOST = static_cast<std::int64_t>(MAX_DEVICE_SLOTS);
  if (!row.read(0, statistics) || !row.read(1, first_slot) || statistics < 0 ||
      statistics > ALL_STATISTICS || first_slot < 0 || first_slot > MOST) {
    return false;
  }
  set_statistics(param, static_cast<std::uint32_t>(statistics));
  param.aux_1 = static_cast<std::uint32_t>(first_slot);
  return get_slot(param, STATISTICS.size()) <= MAX_DEVICE_SLOTS;
}

}  // namespace

std::unique_ptr<SqliteWriter> SqliteWriter::open(const std::string& path, std::string& error) {
  Database db = open_to_record(path, error);
  if (!db) return nullptr;
  // What is purged need not be overwritten, which would double what sealing writes.
  if (!execute(db.get(), "PRAGMA secure_delete = OFF", error)) return nullptr;
  std::unique_ptr<SqliteWriter> writer(new SqliteWriter(std::move(db)));
  if (writer->prepare()) return writer;
  error = writer->error();
  return nullptr;
}

SqliteWriter::~SqliteWriter() {
  if (sqlite3_get_autocommit(db_.get()) == 0) SqliteWriter::rollback();
}

bool SqliteWriter::fail(const std::string& reason) {
  error_ = reason;
  return false;
}

bool SqliteWriter::fail_with_database_error() { return fail(sqlite3_errmsg(db_.get())); }

/// Returns the result of a call of `series_`. Where it is false, takes the reason over.
bool SqliteWriter::pass_on(bool is_done) {
  if (!is_done) error_ = series_.error();
  return is_done;
}

/// Prepares the statements for the catalogue, which shows that its tables are there.
bool SqliteWriter::prepare() {
  const std::pair<Statement*, const char*> texts[] = {
      {&begin_, "BEGIN IMMEDIATE"},
      {&commit_, "COMMIT"},
      {&rollback_, "ROLLBACK"},
      {&get_data_version_, "PRAGMA data_version"},
      {&add_device_, "INSERT OR IGNORE INTO device (path, description) VALUES (?1, ?2)"},
      {&get_device_, "SELECT id, description FROM device WHERE path = ?1"},
      {&add_param_,
       "INSERT INTO parameter (device_id, path, statistics, first_slot) VALUES (?1, ?2, ?3, ?4)"},
      {&get_param_,
       "SELECT statistics, first_slot FROM parameter WHERE device_id = ?1 AND path = ?2"},
      {&get_slots_, "SELECT statistics, first_slot FROM parameter WHERE device_id = ?1"},
      {&add_series_, "INSERT OR IGNORE INTO series (device_id, minutes) VALUES (?1, ?2)"},
      {&get_series_,
       "SELECT id, (SELECT count(*) FROM series WHERE device_id = ?1) FROM series "
       "WHERE device_id = ?1 AND minutes = ?2"}};
  for (const auto& [statement, sql] : texts) {
    *statement = Statement(db_.get(), sql);
    if (!*statement) return fail_with_database_error();
  }
  return true;
}

bool SqliteWriter::begin() {
  used_.clear();
  has_new_catalogue_ = false;
  copied_.reset();
  // What is recorded into a file that has no name any more is lost.
  int has_moved = 0;
  sqlite3_file_control(db_.get(), "main", SQLITE_FCNTL_HAS_MOVED, &has_moved);
  if (has_moved != 0) return fail("the file was moved or removed since it was opened");
  if (!begin_.run()) return fail_with_database_error();
  std::int64_t data_version = 0;
  {
    const RunningStatement row(&get_data_version_);
    if (row->step() != Statement::Step::ROW) return fail_with_database_error();
    data_version = row->read_whole(0);
  }
  if (data_version != data_version_ && !adopt_changes()) return false;
  data_version_ = data_version;
  return pass_on(series_.begin());
}

/// Looks at the database, which may have changed: another program may even have turned it into one
/// of another version.
bool SqliteWriter::adopt_changes() {
  series_.forget();
  std::int64_t version = 0;
  if (!verify(db_.get(), error_)) return false;
  if (!read_number(db_.get(), "PRAGMA user_version", version)) return fail_with_database_error();
  if (version == ROWS_ONLY_VERSION && !upgrade(db_.get(), error_)) return false;
  if (!has_tables_) has_tables_ = series_.prepare(db_.get());
  if (!has_tables_) return fail_with_database_error();
  return true;
}

/// Runs a statement that adds a row to a table of the catalogue, unless it is there. Returns false
/// on failure.
bool SqliteWriter::insert(Statement& statement, bool& is_new) {
  if (!statement.run()) return false;
  is_new = sqlite3_changes(db_.get()) > 0;
  if (!is_new) return true;
  has_new_catalogue_ = true;
  series_.note_catalogue();
  return true;
}

/// Looks whether what the transaction changed last is in the database.
SqliteWriter::Outcome SqliteWriter::look_for_last_change() {
  const SeriesState& state = series_.last_stored();
  std::string sql;
  if (state.changes > 0) {
    sql = "SELECT 1 FROM series_state WHERE series_id = ?1 AND changes >= ?2";
  } else if (has_new_catalogue_) {
    sql = "SELECT 1 FROM database WHERE catalogue = ?1";
  } else if (copied_) {
    CopiedRow row = *copied_;
    std::string ignored;
    if (!read_copied(db_.get(), row, ignored)) return Outcome::IN_DOUBT;
    return row.change == copied_->change ? Outcome::RECORDED : Outcome::NOT_RECORDED;
  } else {
    return Outcome::RECORDED;
  }
  Statement look(db_.get(), sql.c_str());
  look.bind(1, state.changes > 0 ? state.series_id : series_.catalogue());
  if (state.changes > 0) look.bind(2, state.changes);
  switch (look.step()) {
    case Statement::Step::ROW:
      return Outcome::RECORDED;
    case Statement::Step::DONE:
      return Outcome::NOT_RECORDED;
    default:
      return Outcome::IN_DOUBT;
  }
}

bool SqliteWriter::commit() {
  if (!pass_on(series_.finish())) return false;
  if (commit_.run()) return true;
  const int code = sqlite3_extended_errcode(db_.get());
  const std::string reason = sqlite3_errmsg(db_.get());
  rollback();
  // With a rollback journal, a lock that can't be released is an error after the commit. Where a
  // sync failed, nobody knows what is on the disk, whatever the database looks like now.
  const bool has_synced = code != SQLITE_IOERR_FSYNC && code != SQLITE_IOERR_DIR_FSYNC;
  switch (has_synced ? look_for_last_change() : Outcome::IN_DOUBT) {
    case Outcome::RECORDED:
      return true;
    case Outcome::NOT_RECORDED:
      return fail(reason);
    default:
      return fail("whether it was recorded is in doubt: " + reason + "; look with trendcsv");
  }
}

void SqliteWriter::rollback() {
  // SQLite has undone the transaction by itself after some errors; this then fails, harmlessly.
  static_cast<void>(rollback_.run());
  data_version_ = 0;
}

bool SqliteWriter::add_device(CDeviceProperties& device) {
  add_device_.bind(1, device.path);
  add_device_.bind(2, device.aux_text);
  bool is_new = false;
  if (!insert(add_device_, is_new)) return fail_with_database_error();

  const RunningStatement row(&get_device_);
  row->bind(1, device.path);
  if (row->step() != Statement::Step::ROW) return fail_with_database_error();
  if (row->read(0, device.aux_1) && row->read(1, device.aux_text)) return true;
  return fail(CATALOGUE_DAMAGED);
}

/// Sets `used` to the number of the device's parameters, and to the slot after all of theirs.
bool SqliteWriter::find_used(std::int64_t device_id, Used& used) {
  used = {};
  const RunningStatement row(&get_slots_);
  row->bind(1, device_id);
  Statement::Step step = row->step();
  for (; step == Statement::Step::ROW; step = row->step()) {
    CParamProperties param;
    if (!read_slots(*row, param)) return fail(CATALOGUE_DAMAGED);
    used.slots = std::max(used.slots, get_slot(param, STATISTICS.size()));
    ++used.params;
  }
  if (step == Statement::Step::ERROR) return fail_with_database_error();
  return true;
}

bool SqliteWriter::add_param(const CDeviceProperties& device, CParamProperties& param) {
  const std::string beyond = "parameter '" + param.path + "' has a slot beyond what a row can hold";
  {
    const RunningStatement row(&get_param_);
    row->bind(1, device.aux_1);
    row->bind(2, param.path);
    const Statement::Step step = row->step();
    if (step == Statement::Step::ERROR) return fail_with_database_error();
    if (step == Statement::Step::ROW) {
      if (read_slots(*row, param)) return true;
      return fail(beyond);
    }
  }
  auto [entry, is_first] = used_.try_emplace(device.aux_1);
  Used& used = entry->second;
  if (is_first && !find_used(device.aux_1, used)) return false;
  param.aux_1 = static_cast<std::uint32_t>(used.slots);
  used.slots = get_slot(param, STATISTICS.size());
  if (used.slots > MAX_DEVICE_SLOTS) {
    return fail("parameter '" + param.path + "' needs more than the " +
                std::to_string(MAX_DEVICE_SLOTS) + " slots that a device can have");
  }
  if (++used.params > MAX_DEVICE_SLOTS) {
    return fail("a device has at most " + std::to_string(MAX_DEVICE_SLOTS) + " parameters");
  }
  add_param_.bind(1, device.aux_1);
  add_param_.bind(2, param.path);
  add_param_.bind(3, std::int64_t{get_statistics(param)});
  add_param_.bind(4, std::int64_t{param.aux_1});
  bool is_new = false;
  if (insert(add_param_, is_new)) return true;
  return fail_with_database_error();
}

bool SqliteWriter::add_series(const CDeviceProperties& device, std::uint32_t minutes,
                              CSeries& series) {
  add_series_.bind(1, device.aux_1);
  add_series_.bind(2, std::int64_t{minutes});
  bool is_new = false;
  if (!insert(add_series_, is_new)) return fail_with_database_error();

  const RunningStatement row(&get_series_);
  row->bind(1, device.aux_1);
  row->bind(2, std::int64_t{minutes});
  series.minutes = minutes;
  if (row->step() != Statement::Step::ROW) return fail_with_database_error();
  if (!row->read(0, series.id)) return fail(CATALOGUE_DAMAGED);
  if (row->read_whole(1) > static_cast<std::int64_t>(MAX_DEVICE_SERIES)) {
    return fail("a device has at most " + std::to_string(MAX_DEVICE_SERIES) + " intervals");
  }
  if (!is_series_id(series.id)) return fail("the database has no room for another series");
  return !is_new || pass_on(series_.create(series.id));
}

bool SqliteWriter::append(const CSeries& series, std::int64_t timestamp, double valid_ratio,
                          std::span<const double> slots) {
  if (slots.size() > MAX_DEVICE_SLOTS) {
    return fail("a row has more than the " + std::to_string(MAX_DEVICE_SLOTS) +
                " slots that a device can have");
  }
  return pass_on(series_.append(series.id, timestamp, valid_ratio, slots));
}

bool SqliteWriter::get_copied(const std::string& source, const CSeries& series,
                              std::uint64_t& change) {
  CopiedRow row = {.source = source, .series_id = series.id};
  if (!read_copied(db_.get(), row, error_)) return false;
  change = static_cast<std::uint64_t>(row.change);
  return true;
}

bool SqliteWriter::set_copied(const std::string& source, const CSeries& series,
                              std::uint64_t change) {
  constexpr std::uint64_t MOST = std::numeric_limits<std::int64_t>::max();
  if (change > MOST) return fail("the number of a change is out of range");
  copied_ = {source, series.id, static_cast<std::int64_t>(change)};
  return write_copied(db_.get(), *copied_, error_);
}

bool SqliteWriter::purge(const CSeries& series, std::int64_t before) {
  return pass_on(series_.purge(series.id, before));
}

bool SqliteWriter::remove_row(const CSeries& series, std::int64_t timestamp) {
  return pass_on(series_.remove_row(series.id, timestamp));
}

/// Runs `sql`, which removes rows of the catalogue that belong to `id`.
bool SqliteWriter::remove_from_catalogue(const char* sql, std::int64_t id) {
  Statement remove(db_.get(), sql);
  if (!remove) return fail_with_database_error();
  remove.bind(1, id);
  if (!remove.run()) return fail_with_database_error();
  has_new_catalogue_ = true;
  series_.note_catalogue();
  return true;
}

bool SqliteWriter::remove_series(const CSeries& series) {
  if (!pass_on(series_.remove(series.id))) return false;
  // Another series may get its id.
  if (!remove_copied(db_.get(), series.id, error_)) return false;
  return remove_from_catalogue("DELETE FROM series WHERE id = ?1", series.id);
}

bool SqliteWriter::remove_device(const CDeviceProperties& device) {
  std::vector<CSeries> all;
  {
    Statement row(db_.get(), "SELECT id FROM series WHERE device_id = ?1");
    if (!row) return fail_with_database_error();
    row.bind(1, device.aux_1);
    Statement::Step step = row.step();
    for (; step == Statement::Step::ROW; step = row.step())
      all.push_back({.id = row.read_whole(0)});
    if (step == Statement::Step::ERROR) return fail_with_database_error();
  }
  for (const CSeries& series : all) {
    if (!remove_series(series)) return false;
  }
  used_.erase(device.aux_1);
  if (!remove_from_catalogue("DELETE FROM parameter WHERE device_id = ?1", device.aux_1) ||
      !remove_from_catalogue("DELETE FROM device WHERE id = ?1", device.aux_1)) {
    return false;
  }
  if (sqlite3_changes(db_.get()) > 0) return true;
  return fail("the database has no such device");
}

}  // namespace toolkit::trend
