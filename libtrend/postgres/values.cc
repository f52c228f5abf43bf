#include "libtrend/postgres/values.h"

#include <libpq-fe.h>

#include <bit>

#include "libtrend/postgres/wire.h"
#include "libtrend/query/bytes.h"

namespace toolkit::trend {

namespace {

std::string pack(std::uint64_t bits) {
  std::string bytes(sizeof bits, '\0');
  store(bits, reinterpret_cast<unsigned char*>(bytes.data()));
  return bytes;
}

}  // namespace

Parameters& Parameters::add(std::int64_t number) {
  values_.push_back(pack(static_cast<std::uint64_t>(number)));
  return *this;
}

Parameters& Parameters::add(bool value) {
  values_.emplace_back(1, value ? '\1' : '\0');
  return *this;
}

Parameters& Parameters::add(std::string_view text) {
  values_.emplace_back(text);
  return *this;
}

Parameters& Parameters::add_time(std::int64_t time) { return add(get_wire_time(time)); }

void Result::Clear::operator()(pg_result* result) const { PQclear(result); }

std::size_t Result::rows() const { return static_cast<std::size_t>(PQntuples(result_.get())); }

bool Result::is_null(std::size_t row, std::size_t column) const {
  return PQgetisnull(result_.get(), static_cast<int>(row), static_cast<int>(column)) != 0;
}

std::span<const unsigned char> Result::get(std::size_t row, std::size_t column) const {
  const int r = static_cast<int>(row);
  const int c = static_cast<int>(column);
  return {reinterpret_cast<const unsigned char*>(PQgetvalue(result_.get(), r, c)),
          static_cast<std::size_t>(PQgetlength(result_.get(), r, c))};
}

bool Result::read(std::size_t row, std::size_t column, std::int64_t& value) const {
  const std::span<const unsigned char> bytes = get(row, column);
  if (bytes.size() == sizeof(std::int32_t)) {
    value = static_cast<std::int32_t>(load<std::uint32_t>(bytes.data()));
    return true;
  }
  if (bytes.size() != sizeof value) return false;
  value = static_cast<std::int64_t>(load<std::uint64_t>(bytes.data()));
  return true;
}

bool Result::read(std::size_t row, std::size_t column, double& value) const {
  std::int64_t bits = 0;
  if (!read(row, column, bits)) return false;
  value = std::bit_cast<double>(bits);
  return true;
}

bool Result::read(std::size_t row, std::size_t column, bool& value) const {
  const std::span<const unsigned char> bytes = get(row, column);
  if (bytes.size() != 1) return false;
  value = bytes[0] != 0;
  return true;
}

bool Result::read(std::size_t row, std::size_t column, std::string& value) const {
  if (is_null(row, column)) return false;
  const std::span<const unsigned char> bytes = get(row, column);
  value.assign(bytes.begin(), bytes.end());
  return true;
}

bool Result::read_time(std::size_t row, std::size_t column, std::int64_t& time) const {
  std::int64_t wire_time = 0;
  return read(row, column, wire_time) && get_time(wire_time, time);
}

}  // namespace toolkit::trend
