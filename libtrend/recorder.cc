#include "libtrend/recorder.h"

#include <sqlite3.h>

#include <cmath>
#include <limits>
#include <utility>
#include <vector>

#include "libtrend/database.h"
#include "libtrend/samples.h"
#include "libtrend/schema.h"
#include "libtrend/statement.h"

namespace toolkit::trend {

struct CRecorder::Connection {
  explicit Connection(Database database)
      : db(std::move(database)),
        begin(db.get(), "BEGIN IMMEDIATE"),
        commit(db.get(), "COMMIT"),
        rollback(db.get(), "ROLLBACK"),
        add_device(db.get(), "INSERT OR IGNORE INTO device (path, description) VALUES (?1, ?2)"),
        get_device(db.get(), "SELECT id, description FROM device WHERE path = ?1"),
        add_param(db.get(),
                  "INSERT OR IGNORE INTO parameter (device_id, path, statistics, first_slot) "
                  "SELECT ?1, ?2, ?3, coalesce(max(first_slot + (statistics & 1) + "
                  "(statistics >> 1 & 1) + (statistics >> 2 & 1) + (statistics >> 3 & 1) + "
                  "(statistics >> 4 & 1)), 0) FROM parameter WHERE device_id = ?1"),
        get_param(
            db.get(),
            "SELECT statistics, first_slot FROM parameter WHERE device_id = ?1 AND path = ?2"),
        add_series(db.get(), "INSERT OR IGNORE INTO series (device_id, minutes) VALUES (?1, ?2)"),
        get_series(db.get(), "SELECT id FROM series WHERE device_id = ?1 AND minutes = ?2"),
        append(db.get(), "INSERT INTO snapshot (id, valid_ratio, samples) VALUES (?1, ?2, ?3)") {}

  [[nodiscard]] bool is_usable() const {
    return begin && commit && rollback && add_device && get_device && add_param && get_param &&
           add_series && get_series && append;
  }

  Database db;
  Statement begin;
  Statement commit;
  Statement rollback;
  Statement add_device;
  Statement get_device;
  Statement add_param;
  Statement get_param;
  Statement add_series;
  Statement get_series;
  Statement append;
  bool in_transaction = false;
};

CRecorder::CRecorder() = default;
CRecorder::~CRecorder() = default;
CRecorder::CRecorder(CRecorder&&) noexcept = default;
CRecorder& CRecorder::operator=(CRecorder&&) noexcept = default;

int CRecorder::fail(const std::string& reason) {
  error_ = reason;
  rollback();
  return -1;
}

int CRecorder::fail_with_database_error() { return fail(sqlite3_errmsg(connection_->db.get())); }

bool CRecorder::is_recording() {
  if (connection_ && connection_->in_transaction) return true;
  error_ = connection_ ? "no transaction is open" : "no database is open";
  return false;
}

int CRecorder::open(const std::string& path) {
  close();
  Database db = open_database(path, OpenOptions{.read_only = false, .create = true}, error_);
  if (!db) return -1;
  auto connection = std::make_unique<Connection>(std::move(db));
  if (!connection->is_usable()) return fail(sqlite3_errmsg(connection->db.get()));
  connection_ = std::move(connection);
  return 0;
}

void CRecorder::close() { connection_.reset(); }

int CRecorder::begin() {
  if (!connection_) return fail("no database is open");
  if (connection_->in_transaction) return fail("a transaction is open already");
  if (!connection_->begin.run()) return fail_with_database_error();
  connection_->in_transaction = true;
  return 0;
}

int CRecorder::commit() {
  if (!is_recording()) return -1;
  if (!connection_->commit.run()) return fail_with_database_error();
  connection_->in_transaction = false;
  return 0;
}

void CRecorder::rollback() {
  if (!connection_ || !connection_->in_transaction) return;
  connection_->in_transaction = false;
  // SQLite has undone the transaction by itself after some errors; this then fails, harmlessly.
  static_cast<void>(connection_->rollback.run());
}

int CRecorder::add_device(CDeviceProperties& device) {
  if (!is_recording()) return -1;
  connection_->add_device.bind(1, device.path);
  connection_->add_device.bind(2, device.aux_text);
  if (!connection_->add_device.run()) return fail_with_database_error();

  Statement& row = connection_->get_device;
  const RunningStatement running(&row);
  row.bind(1, device.path);
  if (row.step() != Statement::Step::ROW || !row.read(0, device.aux_1) ||
      !row.read(1, device.aux_text)) {
    return fail_with_database_error();
  }
  return 0;
}

int CRecorder::add_param(const CDeviceProperties& device, CParamProperties& param) {
  if (!is_recording()) return -1;
  connection_->add_param.bind(1, device.aux_1);
  connection_->add_param.bind(2, param.path);
  connection_->add_param.bind(3, get_statistics(param));
  if (!connection_->add_param.run()) return fail_with_database_error();

  Statement& row = connection_->get_param;
  const RunningStatement running(&row);
  row.bind(1, device.aux_1);
  row.bind(2, param.path);
  std::int64_t statistics = 0;
  std::int64_t first_slot = 0;
  if (row.step() != Statement::Step::ROW || !row.read(0, statistics) || !row.read(1, first_slot)) {
    return fail_with_database_error();
  }
  if (first_slot > std::numeric_limits<std::uint32_t>::max()) {
    return fail("parameter '" + param.path + "' has a slot beyond what a row can hold");
  }
  param.aux_1 = static_cast<std::uint32_t>(first_slot);
  set_statistics(param, statistics);
  return 0;
}

int CRecorder::add_series(const CDeviceProperties& device, std::uint32_t minutes, CSeries& series) {
  if (!is_recording()) return -1;
  connection_->add_series.bind(1, device.aux_1);
  connection_->add_series.bind(2, std::int64_t{minutes});
  if (!connection_->add_series.run()) return fail_with_database_error();

  Statement& row = connection_->get_series;
  const RunningStatement running(&row);
  row.bind(1, device.aux_1);
  row.bind(2, std::int64_t{minutes});
  if (row.step() != Statement::Step::ROW || !row.read(0, series.id)) {
    return fail_with_database_error();
  }
  if (series.id > MAX_SERIES_ID) return fail("the database has no room for another series");
  return 0;
}

int CRecorder::append(const CSeries& series, std::int64_t timestamp, double valid_ratio,
                      std::span<const double> slots) {
  if (!is_recording()) return -1;
  if (timestamp <= 0 || timestamp > MAX_TIMESTAMP) {
    return fail("the timestamp " + std::to_string(timestamp) + " is out of range");
  }
  if (!(valid_ratio >= 0 && valid_ratio <= 1)) {
    return fail("the share of valid data, " + std::to_string(valid_ratio) +
                ", is not between 0 and 1");
  }
  const std::vector<unsigned char> samples = pack_samples(slots);
  Statement& append = connection_->append;
  append.bind(1, series.id * (MAX_TIMESTAMP + 1) + timestamp);
  append.bind(2, valid_ratio);
  append.bind(3, samples.data(), samples.size());
  if (append.run()) return 0;
  if (sqlite3_extended_errcode(connection_->db.get()) == SQLITE_CONSTRAINT_PRIMARYKEY) {
    return fail("the series has a row with the timestamp " + std::to_string(timestamp) +
                " already");
  }
  return fail_with_database_error();
}

}  // namespace toolkit::trend
