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
  std::unique_ptr<SqliteWriter> writer(new SqliteWriter(path));
  if (writer->connect()) return writer;
  error = writer->error();
  return nullptr;
}

SqliteWriter::~SqliteWriter() {
  if (file_.db && sqlite3_get_autocommit(file_.db.get()) == 0) rollback();
  if (file_.is_blank && file_.is_created) remove_blank(file_.db.get());
}

bool SqliteWriter::connect() {
  is_prepared_ = false;
  for (Statement* statement : {&begin_, &commit_, &rollback_}) *statement = Statement();
  file_ = open_to_record(path_, error_);
  if (!file_.db) return false;
  lacks_log_ = file_.is_blank;
  begin_ = Statement(file_.db.get(), "BEGIN IMMEDIATE");
  commit_ = Statement(file_.db.get(), "COMMIT");
  rollback_ = Statement(file_.db.get(), "ROLLBACK");
  return (begin_ && commit_ && rollback_) || fail_with_database_error();
}

bool SqliteWriter::fail(const std::string& reason) {
  error_ = reason;
  return false;
}

bool SqliteWriter::fail_with_database_error() { return fail(sqlite3_errmsg(file_.db.get())); }

/// Prepares the statements that write, which takes the tables.
bool SqliteWriter::prepare() {
  const std::pair<Statement*, const char*> texts[] = {
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
    *statement = Statement(file_.db.get(), sql);
    if (!*statement) return fail_with_database_error();
  }
  return true;
}

bool SqliteWriter::begin() {
  bool has_begun = begin_.run();
  if (has_moved(file_.db.get())) {
    // Another program gave up a database that it had just created.
    if (!connect()) return false;
    has_begun = begin_.run();
    if (has_moved(file_.db.get())) return fail("the database keeps being removed");
  }
  free_slots_.clear();
  if (!has_begun) return fail_with_database_error();
  if (file_.is_blank && !create_schema(file_.db.get(), error_)) return false;
  if (!is_prepared_) is_prepared_ = prepare();
  return is_prepared_;
}

bool SqliteWriter::commit() {
  if (!commit_.run()) return fail_with_database_error();
  file_.is_blank = false;
  if (lacks_log_) {
    // What is committed is committed; where a reader is in the way, the next commit tries again.
    std::string ignored;
    lacks_log_ = !set_journal(file_.db.get(), false, ignored);
  }
  return true;
}

void SqliteWriter::rollback() {
  // SQLite has undone the transaction by itself after some errors; this then fails, harmlessly.
  static_cast<void>(rollback_.run());
}

bool SqliteWriter::add_device(CDeviceProperties& device) {
  add_device_.bind(1, device.path);
  add_device_.bind(2, device.aux_text);
  if (!add_device_.run()) return fail_with_database_error();

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
  return add_param_.run() || fail_with_database_error();
}

bool SqliteWriter::add_series(const CDeviceProperties& device, std::uint32_t minutes,
                              CSeries& series) {
  add_series_.bind(1, device.aux_1);
  add_series_.bind(2, std::int64_t{minutes});
  if (!add_series_.run()) return fail_with_database_error();

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
  if (append_.run()) return true;
  if (sqlite3_extended_errcode(file_.db.get()) == SQLITE_CONSTRAINT_PRIMARYKEY) {
    return fail("the series has a row with the timestamp " + std::to_string(timestamp) +
                " already");
  }
  return fail_with_database_error();
}

}  // namespace toolkit::trend
