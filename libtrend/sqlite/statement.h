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
  /// Prepares `sql`. The statement converts to false if SQLite refused it.
  Statement(sqlite3* db, const char* sql);
  explicit operator bool() const { return statement_ != nullptr; }

  /// Resets the statement, so that it can run again. Its parameters keep their values.
  void reset();

  /// Binds parameter `index`, counted from 1. The statement must be newly prepared or reset.
  void bind(int index, std::int64_t value);
  void bind(int index, double value);
  void bind(int index, const std::string& text);
  /// The bytes must stay valid until the statement is reset.
  void bind(int index, const void* bytes, std::size_t size);

  [[nodiscard]] Step step();
  /// Runs a statement that returns no rows. Returns false on failure.
  [[nodiscard]] bool run();

  /// Returns why the last failed call failed.
  [[nodiscard]] std::string error() const;

  /// Reads column `index`, counted from 0, of the current row. It must be a whole number in any
  /// file: a rowid, a count, a length, or the result of a pragma.
  [[nodiscard]] std::int64_t read_whole(int index) const;
  /// Returns whether column `index` of the current row is NULL.
  [[nodiscard]] bool is_null(int index) const;
  /// Reads column `index` of the current row into `value`. Returns false if it has another type,
  /// which means that the data is damaged: in this format all values of a column have one type.
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

/// Resets a statement at the end of a scope, and does not own it.
using RunningStatement = std::unique_ptr<Statement, StatementResetter>;

}  // namespace toolkit::trend
