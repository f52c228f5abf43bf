// Values that travel to and from a PostgreSQL server, in libpq's binary form.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

// Of libpq-fe.h, which only .cc files include.
struct pg_result;

namespace toolkit::trend {

/// The values for `$1`, `$2` and so on of a statement. Their types are those that the statement
/// gives them; a number is sent as an int8.
class Parameters {
 public:
  Parameters& add(std::int64_t number);
  Parameters& add(bool value);
  Parameters& add(std::string_view text);
  /// A time in seconds since 1970, for a timestamptz.
  Parameters& add_time(std::int64_t time);

  [[nodiscard]] const std::vector<std::string>& values() const { return values_; }

 private:
  std::vector<std::string> values_;
};

/// The rows that a statement has returned. Columns and rows count from 0. A row that is not there
/// reads as one of NULLs.
class Result {
 public:
  Result() = default;
  explicit Result(pg_result* result) : result_(result) {}

  [[nodiscard]] std::size_t rows() const;
  /// The bytes of a value; none if it is NULL.
  [[nodiscard]] std::span<const unsigned char> get(std::size_t row, std::size_t column) const;
  [[nodiscard]] bool is_null(std::size_t row, std::size_t column) const;
  /// Set `value`. Return false where the column has another type, or is NULL.
  [[nodiscard]] bool read(std::size_t row, std::size_t column, std::int64_t& value) const;
  [[nodiscard]] bool read(std::size_t row, std::size_t column, double& value) const;
  [[nodiscard]] bool read(std::size_t row, std::size_t column, bool& value) const;
  [[nodiscard]] bool read(std::size_t row, std::size_t column, std::string& value) const;
  /// Sets `time` to that of a timestamptz, in seconds since 1970. False where it is between two
  /// seconds, too.
  [[nodiscard]] bool read_time(std::size_t row, std::size_t column, std::int64_t& time) const;

  /// The result itself, for calls of libpq.
  [[nodiscard]] pg_result* get() const { return result_.get(); }

 private:
  struct Clear {
    void operator()(pg_result* result) const;
  };
  std::unique_ptr<pg_result, Clear> result_;
};

}  // namespace toolkit::trend
