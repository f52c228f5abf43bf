#include "libtrend/sqlite/statement.h"

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

std::string Statement::error() const { return sqlite3_errmsg(sqlite3_db_handle(statement_.get())); }

std::int64_t Statement::read_whole(int index) const {
  return sqlite3_column_int64(statement_.get(), index);
}

bool Statement::is_null(int index) const {
  return sqlite3_column_type(statement_.get(), index) == SQLITE_NULL;
}

// Getting a column once as a value is cheaper than asking the statement for its type and its
// content. Such a value must not be read while another thread uses the connection. No other thread
// does.

bool Statement::read(int index, std::int64_t& value) const {
  sqlite3_value* column = sqlite3_column_value(statement_.get(), index);
  if (sqlite3_value_type(column) != SQLITE_INTEGER) return false;
  value = sqlite3_value_int64(column);
  return true;
}

bool Statement::read(int index, double& value) const {
  sqlite3_value* column = sqlite3_column_value(statement_.get(), index);
  if (sqlite3_value_type(column) != SQLITE_FLOAT) return false;
  value = sqlite3_value_double(column);
  return true;
}

bool Statement::read(int index, std::string& text) const {
  sqlite3_value* column = sqlite3_column_value(statement_.get(), index);
  if (sqlite3_value_type(column) != SQLITE_TEXT) return false;
  const unsigned char* bytes = sqlite3_value_text(column);
  if (bytes == nullptr) return false;
  text.assign(reinterpret_cast<const char*>(bytes),
              static_cast<std::size_t>(sqlite3_value_bytes(column)));
  return true;
}

bool Statement::read(int index, std::span<const unsigned char>& bytes) const {
  sqlite3_value* column = sqlite3_column_value(statement_.get(), index);
  if (sqlite3_value_type(column) != SQLITE_BLOB) return false;
  const auto* begin = static_cast<const unsigned char*>(sqlite3_value_blob(column));
  bytes = {begin, static_cast<std::size_t>(sqlite3_value_bytes(column))};
  return begin != nullptr || bytes.empty();
}

}  // namespace toolkit::trend
