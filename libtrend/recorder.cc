#include "libtrend/recorder.h"

#include <sqlite3.h>

#include <cmath>
#include <utility>
#include <vector>

#include "libtrend/sqlite/database.h"
#include "libtrend/sqlite/samples.h"
#include "libtrend/sqlite/schema.h"
#include "libtrend/sqlite/statement.h"

namespace toolkit::trend {

namespace {

/// The statements that write rows and catalogue.
struct Writer {
  Writer() = default;
  explicit Writer(sqlite3* db)
      : add_device(db, "INSERT OR IGNORE INTO device (path, description) VALUES (?1, ?2)"),
        get_device(db, "SELECT id, description FROM device WHERE path = ?1"),
        add_param(db,
                  "INSERT OR IGNORE INTO parameter (device_id, path, statistics, first_slot) "
                  "SELECT ?1, ?2, ?3, coalesce(max(first_slot + (statistics & 1) + "
                  "(statistics >> 1 & 1) + (statistics >> 2 & 1) + (statistics >> 3 & 1) + "
                  "(statistics >> 4 & 1)), 0) FROM parameter WHERE device_id = ?1"),
        get_param(
            db, "SELECT statistics, first_slot FROM parameter WHERE device_id = ?1 AND path = ?2"),
        add_series(db, "INSERT OR IGNORE INTO series (device_id, minutes) VALUES (?1, ?2)"),
        get_series(db, "SELECT id FROM series WHERE device_id = ?1 AND minutes = ?2"),
        append(db, "INSERT INTO snapshot (id, valid_ratio, samples) VALUES (?1, ?2, ?3)") {}

  /// Whether every statement could be prepared, which takes the tables.
  [[nodiscard]] bool is_usable() const {
    return add_device && get_device && add_param && get_param && add_series && get_series && append;
  }

  Statement add_device;
  Statement get_device;
  Statement add_param;
  Statement get_param;
  Statement add_series;
  Statement get_series;
  Statement append;
};

}  // namespace

struct CRecorder::Connection {
  explicit Connection(RecordedDatabase database)
      : file(std::move(database)),
        lacks_log(file.is_blank),
        begin(file.db.get(), "BEGIN IMMEDIATE"),
        commit(file.db.get(), "COMMIT"),
        rollback(file.db.get(), "ROLLBACK") {}
  ~Connection() {
    if (in_transaction) static_cast<void>(rollback.run());
    if (file.is_blank && file.is_created) remove_blank(file.db.get());
  }
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

  RecordedDatabase file;  ///< blank until the first transaction is committed
  bool lacks_log;         ///< whether it is new, and not in WAL mode yet
  Statement begin;
  Statement commit;
  Statement rollback;
  Writer writer;
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

int CRecorder::fail_with_database_error() {
  return fail(sqlite3_errmsg(connection_->file.db.get()));
}

bool CRecorder::is_recording() {
  if (connection_ && connection_->in_transaction) return true;
  error_ = connection_ ? "no transaction is open" : "no database is open";
  return false;
}

int CRecorder::open(const std::string& path) {
  close();
  RecordedDatabase file = open_to_record(path, error_);
  if (!file.db) return -1;
  connection_ = std::make_unique<Connection>(std::move(file));
  path_ = path;
  return 0;
}

void CRecorder::close() { connection_.reset(); }

int CRecorder::begin() {
  if (!connection_) return fail("no database is open");
  if (connection_->in_transaction) return fail("a transaction is open already");
  connection_->in_transaction = connection_->begin.run();
  if (has_moved(connection_->file.db.get())) {
    // Another program gave up a database that it had just created.
    if (open(path_) != 0) return -1;
    connection_->in_transaction = connection_->begin.run();
    if (has_moved(connection_->file.db.get())) return fail("the database keeps being removed");
  }
  if (!connection_->in_transaction) return fail_with_database_error();
  if (connection_->file.is_blank && !create_schema(connection_->file.db.get(), error_)) {
    rollback();
    return -1;
  }
  if (!connection_->writer.is_usable()) connection_->writer = Writer(connection_->file.db.get());
  return connection_->writer.is_usable() ? 0 : fail_with_database_error();
}

int CRecorder::commit() {
  if (!is_recording()) return -1;
  if (!connection_->commit.run()) return fail_with_database_error();
  connection_->in_transaction = false;
  connection_->file.is_blank = false;
  if (connection_->lacks_log) {
    // What is committed is committed; where a reader is in the way, the next commit tries again.
    std::string ignored;
    connection_->lacks_log = !set_journal(connection_->file.db.get(), false, ignored);
  }
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
  connection_->writer.add_device.bind(1, device.path);
  connection_->writer.add_device.bind(2, device.aux_text);
  if (!connection_->writer.add_device.run()) return fail_with_database_error();

  Statement& row = connection_->writer.get_device;
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
  connection_->writer.add_param.bind(1, device.aux_1);
  connection_->writer.add_param.bind(2, param.path);
  connection_->writer.add_param.bind(3, get_statistics(param));
  if (!connection_->writer.add_param.run()) return fail_with_database_error();

  Statement& row = connection_->writer.get_param;
  const RunningStatement running(&row);
  row.bind(1, device.aux_1);
  row.bind(2, param.path);
  std::int64_t statistics = 0;
  std::int64_t first_slot = 0;
  if (row.step() != Statement::Step::ROW || !row.read(0, statistics) || !row.read(1, first_slot)) {
    return fail_with_database_error();
  }
  if (first_slot < 0 || first_slot >= MAX_SLOTS) {
    return fail("parameter '" + param.path + "' has a slot beyond what a row can hold");
  }
  param.aux_1 = static_cast<std::uint32_t>(first_slot);
  set_statistics(param, statistics);
  return 0;
}

int CRecorder::add_series(const CDeviceProperties& device, std::uint32_t minutes, CSeries& series) {
  if (!is_recording()) return -1;
  connection_->writer.add_series.bind(1, device.aux_1);
  connection_->writer.add_series.bind(2, std::int64_t{minutes});
  if (!connection_->writer.add_series.run()) return fail_with_database_error();

  Statement& row = connection_->writer.get_series;
  const RunningStatement running(&row);
  row.bind(1, device.aux_1);
  row.bind(2, std::int64_t{minutes});
  if (row.step() != Statement::Step::ROW || !row.read(0, series.id)) {
    return fail_with_database_error();
  }
  if (series.id > MAX_SERIES_ID || series.id < -MAX_SERIES_ID - 1) {
    return fail("the database has no room for another series");
  }
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
  Statement& append = connection_->writer.append;
  append.bind(1, series.id * (MAX_TIMESTAMP + 1) + timestamp);
  append.bind(2, valid_ratio);
  append.bind(3, samples.data(), samples.size());
  if (append.run()) return 0;
  if (sqlite3_extended_errcode(connection_->file.db.get()) == SQLITE_CONSTRAINT_PRIMARYKEY) {
    return fail("the series has a row with the timestamp " + std::to_string(timestamp) +
                " already");
  }
  return fail_with_database_error();
}

}  // namespace toolkit::trend
