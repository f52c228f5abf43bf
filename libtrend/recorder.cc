#include "libtrend/recorder.h"

#include "libtrend/query/engine_module.h"
#include "libtrend/sqlite/writer.h"

namespace toolkit::trend {

CRecorder::CRecorder() = default;
CRecorder::~CRecorder() { close(); }
CRecorder::CRecorder(CRecorder&&) noexcept = default;
CRecorder& CRecorder::operator=(CRecorder&&) noexcept = default;

int CRecorder::fail(const std::string& reason) {
  error_ = reason;
  rollback();
  return -1;
}

/// Ends a call: returns its status, and rolls back if the writer was not able to do it.
int CRecorder::finish(bool is_done) { return is_done ? 0 : fail(writer_->error()); }

bool CRecorder::is_recording() {
  if (writer_ && in_transaction_) return true;
  error_ = writer_ ? "no transaction is open" : "no database is open";
  return false;
}

int CRecorder::open(const std::string& path) {
  close();
  if (is_archive_url(path)) {
    const EngineModule* module = load_postgres_module(error_);
    if (module != nullptr) writer_ = module->open_writer(path, error_);
  } else {
    writer_ = SqliteWriter::open(path, error_);
  }
  return writer_ ? 0 : -1;
}

void CRecorder::close() {
  rollback();
  writer_.reset();
}

int CRecorder::begin() {
  if (!writer_) return fail("no database is open");
  if (in_transaction_) return fail("a transaction is already open");
  in_transaction_ = true;
  return finish(writer_->begin());
}

int CRecorder::commit() {
  if (!is_recording()) return -1;
  if (!writer_->commit()) return fail(writer_->error());
  in_transaction_ = false;
  return 0;
}

void CRecorder::rollback() {
  if (writer_ && in_transaction_) writer_->rollback();
  in_transaction_ = false;
}

int CRecorder::add_device(CDeviceProperties& device) {
  return is_recording() ? finish(writer_->add_device(device)) : -1;
}

int CRecorder::add_param(const CDeviceProperties& device, CParamProperties& param) {
  return is_recording() ? finish(writer_->add_param(device, param)) : -1;
}

int CRecorder::add_series(const CDeviceProperties& device, std::uint32_t minutes, CSeries& series) {
  return is_recording() ? finish(writer_->add_series(device, minutes, series)) : -1;
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
  // SQLite stores -0 as 0, which would not fit the checksum of the row.
  return finish(writer_->append(series, timestamp, valid_ratio + 0.0, slots));
}

int CRecorder::get_copied(const std::string& source, const CSeries& series, std::uint64_t& change) {
  return is_recording() ? finish(writer_->get_copied(source, series, change)) : -1;
}

int CRecorder::set_copied(const std::string& source, const CSeries& series, std::uint64_t change) {
  return is_recording() ? finish(writer_->set_copied(source, series, change)) : -1;
}

int CRecorder::purge(const CSeries& series, std::int64_t before) {
  return is_recording() ? finish(writer_->purge(series, before)) : -1;
}

int CRecorder::remove_row(const CSeries& series, std::int64_t timestamp) {
  return is_recording() ? finish(writer_->remove_row(series, timestamp)) : -1;
}

int CRecorder::remove_series(const CSeries& series) {
  return is_recording() ? finish(writer_->remove_series(series)) : -1;
}

int CRecorder::remove_device(const CDeviceProperties& device) {
  return is_recording() ? finish(writer_->remove_device(device)) : -1;
}

}  // namespace toolkit::trend
