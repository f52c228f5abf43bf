#include "libtrend/statement.h"

#include <sqlite3.h>

namespace toolkit::trend {

void StatementDeleter::operator()(sqlite3_stmt* statement) const { sqlite3_finalize(statement); }

Statement::Statement(sqlite3* db, const char* sql) {
  sqlite3_stmt* statement = nullptr;
  sqlite3_prepare_v3(db, sql, -1, SQLITE_PREPARE_PERSISTENT, &statement, nullptr);
  statement_.reset(statement);
}

void Statement::reset() { sqlite3_reset(statement_.get()); }

void Statement::bind(int index, std::int64_t value) {
  sqlite3_bind_int64(statement_.get(), index, value);
}

void Statement::bind(int index, double value) {
  sqlite3_bind_double(statement_.get(), index, value);
}

void Statement::bind(int index, const std::string& text) {
  sqlite3_bind_text64(statement_.get(), index, text.data(), text.size(), SQLITE_TRANSIENT,
                      SQLITE_UTF8);
}

void Statement::bind(int index, const void* bytes, std::size_t size) {
  // A null pointer would bind NULL rather than an empty blob.
  sqlite3_bind_blob64(statement_.get(), index, size == 0 ? "" : bytes, size, SQLITE_STATIC);
}

Statement::Step Statement::step() {
  switch (sqlite3_step(statement_.get())) {
    case SQLITE_ROW:
      return Step::ROW;
    case SQLITE_DONE:
      return Step::DONE;
    default:
      return Step::ERROR;
  }
}

bool Statement::run() {
  const Step step = this->step();
  reset();
  return step == Step::DONE;
}

bool Statement::read(int index, std::int64_t& value) const {
  if (sqlite3_column_type(statement_.get(), index) != SQLITE_INTEGER) return false;
  value = sqlite3_column_int64(statement_.get(), index);
  return true;
}

bool Statement::read(int index, double& value) const {
  if (sqlite3_column_type(statement_.get(), index) != SQLITE_FLOAT) return false;
  value = sqlite3_column_double(statement_.get(), index);
  return true;
}

bool Statement::read(int index, std::string& text) const {
  if (sqlite3_column_type(statement_.get(), index) != SQLITE_TEXT) return false;
  const unsigned char* bytes = sqlite3_column_text(statement_.get(), index);
  if (bytes == nullptr) return false;
  text.assign(reinterpret_cast<const char*>(bytes),
              static_cast<std::size_t>(sqlite3_column_bytes(statement_.get(), index)));
  return true;
}

bool Statement::read(int index, const unsigned char*& bytes, std::size_t& size) const {
  if (sqlite3_column_type(statement_.get(), index) != SQLITE_BLOB) return false;
  bytes = static_cast<const unsigned char*>(sqlite3_column_blob(statement_.get(), index));
  size = static_cast<std::size_t>(sqlite3_column_bytes(statement_.get(), index));
  return bytes != nullptr || size == 0;
}

}  // namespace toolkit::trend
