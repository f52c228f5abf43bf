#include "libtrend/sqlite/writer.h"

#include <sqlite3.h>

#include <algorithm>
#include <utility>
#include <vector>

#include "libtrend/sqlite/samples.h"
#include "libtrend/sqlite/schema.h"
#include "libtrend/statistics.h"

namespace toolkit::trend {

namespace {

/// Reads the columns `statistics` and `first_slot` of `row`. Returns false where no row of a device
/// can have such slots.
bool read_slots(const Statement& row, CParamProperties& param) {
  std::int64_t statistics = 0;
  std::int64_t first_slot = 0;
  if (!row.read(0, statistics) || !row.read(1, first_slot) || statistics < 0 ||
      statistics > ALL_STATISTICS || first_slot < 0 || first_slot >= MAX_SLOTS) {
    return false;
  }
  set_statistics(param, static_cast<std::uint32_t>(statistics));
  param.aux_1 = static_cast<std::uint32_t>(first_slot);
  return true;
}

}  // namespace

std::unique_ptr<SqliteWriter> SqliteWriter::open(const std::string& path, std::string& error) {
  Database db = open_to_record(path, error);
  if (!db) return nullptr;
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

/// Prepares all statements, which shows that the tables are there.
bool SqliteWriter::prepare() {
  const std::pair<Statement*, const char*> texts[] = {
      {&begin_, "BEGIN IMMEDIATE"},
      {&commit_, "COMMIT"},
      {&rollback_, "ROLLBACK"},
      {&add_device_, "INSERT OR IGNORE INTO device (path, description) VALUES (?1, ?2)"},
      {&get_device_, "SELECT id, description FROM device WHERE path = ?1"},
      {&add_param_,
       "INSERT INTO parameter (device_id, path, statistics, first_slot) VALUES (?1, ?2, ?3, ?4)"},
      {&get_param_,
       "SELECT statistics, first_slot FROM parameter WHERE device_id = ?1 AND path = ?2"},
      {&get_slots_, "SELECT statistics, first_slot FROM parameter WHERE device_id = ?1"},
      {&add_series_, "INSERT OR IGNORE INTO series (device_id, minutes) VALUES (?1, ?2)"},
      {&get_series_, "SELECT id FROM series WHERE device_id = ?1 AND minutes = ?2"},
      {&append_, "INSERT INTO snapshot (id, valid_ratio, samples) VALUES (?1, ?2, ?3)"}};
  for (const auto& [statement, sql] : texts) {
    *statement = Statement(db_.get(), sql);
    if (!*statement) return fail_with_database_error();
  }
  return true;
}

bool SqliteWriter::begin() {
  free_slots_.clear();
  last_table_ = nullptr;
  // What is recorded into a file that has no name any more is lost.
  int has_moved = 0;
  sqlite3_file_control(db_.get(), "main", SQLITE_FCNTL_HAS_MOVED, &has_moved);
  if (has_moved != 0) return fail("the file was moved or removed since it was opened");
  return begin_.run() || fail_with_database_error();
}

/// Runs a statement that inserts into `table`; false on failure.
bool SqliteWriter::insert(Statement& statement, const char* table) {
  if (!statement.run()) return false;
  if (sqlite3_changes(db_.get()) > 0) {
    last_table_ = table;
    last_row_ = sqlite3_last_insert_rowid(db_.get());
  }
  return true;
}

/// Looks whether the last row that the transaction inserted is in the database.
SqliteWriter::Outcome SqliteWriter::look_for_last_row() {
  if (last_table_ == nullptr) return Outcome::RECORDED;
  const std::string sql = std::string("SELECT 1 FROM ") + last_table_ + " WHERE rowid = ?1";
  Statement look(db_.get(), sql.c_str());
  look.bind(1, last_row_);
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
  if (commit_.run()) return true;
  const int code = sqlite3_extended_errcode(db_.get());
  const std::string reason = sqlite3_errmsg(db_.get());
  rollback();
  // With a rollback journal, a lock that can't be released is an error after the commit. Where a
  // sync failed, nobody knows what is on the disk, whatever the database looks like now.
  const bool has_synced = code != SQLITE_IOERR_FSYNC && code != SQLITE_IOERR_DIR_FSYNC;
  switch (has_synced ? look_for_last_row() : Outcome::IN_DOUBT) {
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
}

bool SqliteWriter::add_device(CDeviceProperties& device) {
  add_device_.bind(1, device.path);
  add_device_.bind(2, device.aux_text);
  if (!insert(add_device_, "device")) return fail_with_database_error();

  const RunningStatement row(&get_device_);
  row->bind(1, device.path);
  return (row->step() == Statement::Step::ROW && row->read(0, device.aux_1) &&
          row->read(1, device.aux_text)) ||
         fail_with_database_error();
}

/// Sets `slot` to the one after all slots of the device's parameters.
bool SqliteWriter::find_free_slot(std::int64_t device_id, std::size_t& slot) {
  slot = 0;
  const RunningStatement row(&get_slots_);
  row->bind(1, device_id);
  Statement::Step step = row->step();
  for (; step == Statement::Step::ROW; step = row->step()) {
    CParamProperties param;
    if (!read_slots(*row, param)) return fail("the catalogue is damaged");
    slot = std::max(slot, get_slot(param, STATISTICS.size()));
  }
  return step == Statement::Step::DONE || fail_with_database_error();
}

bool SqliteWriter::add_param(const CDeviceProperties& device, CParamProperties& param) {
  const std::string beyond = "parameter '" + param.path + "' has a slot beyond what a row can hold";
  {
    const RunningStatement row(&get_param_);
    row->bind(1, device.aux_1);
    row->bind(2, param.path);
    const Statement::Step step = row->step();
    if (step == Statement::Step::ROW) return read_slots(*row, param) || fail(beyond);
    if (step != Statement::Step::DONE) return fail_with_database_error();
  }
  auto [free_slot, is_new] = free_slots_.try_emplace(device.aux_1);
  if (is_new && !find_free_slot(device.aux_1, free_slot->second)) return false;
  param.aux_1 = static_cast<std::uint32_t>(free_slot->second);
  free_slot->second = get_slot(param, STATISTICS.size());
  if (free_slot->second > MAX_SLOTS) return fail(beyond);
  add_param_.bind(1, device.aux_1);
  add_param_.bind(2, param.path);
  add_param_.bind(3, std::int64_t{get_statistics(param)});
  add_param_.bind(4, std::int64_t{param.aux_1});
  return insert(add_param_, "parameter") || fail_with_database_error();
}

bool SqliteWriter::add_series(const CDeviceProperties& device, std::uint32_t minutes,
                              CSeries& series) {
  add_series_.bind(1, device.aux_1);
  add_series_.bind(2, std::int64_t{minutes});
  if (!insert(add_series_, "series")) return fail_with_database_error();

  const RunningStatement row(&get_series_);
  row->bind(1, device.aux_1);
  row->bind(2, std::int64_t{minutes});
  series.minutes = minutes;
  if (row->step() != Statement::Step::ROW || !row->read(0, series.id)) {
    return fail_with_database_error();
  }
  return is_series_id(series.id) || fail("the database has no room for another series");
}

bool SqliteWriter::append(const CSeries& series, std::int64_t timestamp, double valid_ratio,
                          std::span<const double> slots) {
  const std::vector<unsigned char> samples = pack_samples(slots);
  append_.bind(1, get_row_id(series.id, timestamp));
  append_.bind(2, valid_ratio);
  append_.bind(3, samples.data(), samples.size());
  if (insert(append_, "snapshot")) return true;
  if (sqlite3_extended_errcode(db_.get()) == SQLITE_CONSTRAINT_PRIMARYKEY) {
    return fail("the series has a row with the timestamp " + std::to_string(timestamp) +
                " already");
  }
  return fail_with_database_error();
}

}  // namespace toolkit::trend
