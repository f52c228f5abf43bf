// A prepared SQL statement that is run many times.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>

struct sqlite3;
struct sqlite3_stmt;

namespace toolkit::trend {

struct StatementDeleter {
  void operator()(sqlite3_stmt* statement) const;
};

/// Owns a prepared statement. Must not outlive the connection it was prepared on.
class Statement {
 public:
  enum class Step { ROW, DONE, ERROR };

  Statement() = default;
  /// Prepares `sql`; false afterwards where SQLite refused it.
  Statement(sqlite3* db, const char* sql);
  explicit operator bool() const { return statement_ != nullptr; }

  /// Starts the statement over; its parameters keep their values.
  void reset();

  /// Binds parameter `index`, counted from 1. To be called on a statement that was reset.
  void bind(int index, std::int64_t value);
  void bind(int index, double value);
  void bind(int index, const std::string& text);
  /// The bytes must stay until the statement is reset.
  void bind(int index, const void* bytes, std::size_t size);

  [[nodiscard]] Step step();
  /// Runs a statement that gives no rows from its start to its end; false on failure.
  [[nodiscard]] bool run();

  /// Why the last call that failed did.
  [[nodiscard]] std::string error() const;

  /// Reads column `index`, counted from 0, of the current row, which is an integer as it is a
  /// rowid.
  [[nodiscard]] std::int64_t read_id(int index) const;
  /// Whether column `index` of the current row is NULL.
  [[nodiscard]] bool is_null(int index) const;
  /// Reads column `index` of the current row into `value`; false where the column is of another
  /// type. The database format has no column of several types, so that is damage.
  [[nodiscard]] bool read(int index, std::int64_t& value) const;
  [[nodiscard]] bool read(int index, double& value) const;
  [[nodiscard]] bool read(int index, std::string& text) const;
  /// The bytes stay valid until the next step or reset.
  [[nodiscard]] bool read(int index, std::span<const unsigned char>& bytes) const;

 private:
  std::unique_ptr<sqlite3_stmt, StatementDeleter> statement_;
};

struct StatementResetter {
  void operator()(Statement* statement) const { statement->reset(); }
};

/// A statement that someone else owns, reset when this goes out of scope.
using RunningStatement = std::unique_ptr<Statement, StatementResetter>;

}  // namespace toolkit::trend
