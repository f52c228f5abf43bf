#include "libtrend/sqlite/database_row.h"

#include <sqlite3.h>

#include "libtrend/sqlite/connection.h"
#include "libtrend/sqlite/damage_text.h"
#include "libtrend/sqlite/schema.h"
#include "libtrend/sqlite/series_state.h"
#include "libtrend/sqlite/statement.h"

namespace toolkit::trend {

namespace {

constexpr std::int64_t FIRST_BLOCK = 1;

/// Returns a random id in the form of a UUID of version 4.
std::string make_uuid() {
  unsigned char bytes[16];
  sqlite3_randomness(sizeof bytes, bytes);
  bytes[6] = static_cast<unsigned char>((bytes[6] & 0x0F) | 0x40);
  bytes[8] = static_cast<unsigned char>((bytes[8] & 0x3F) | 0x80);
  std::string uuid;
  for (std::size_t i = 0; i < sizeof bytes; ++i) {
    constexpr const char* DIGITS = "0123456789abcdef";
    if (i == 4 || i == 6 || i == 8 || i == 10) uuid += '-';
    uuid += DIGITS[bytes[i] >> 4];
    uuid += DIGITS[bytes[i] & 0x0F];
  }
  return uuid;
}

bool write(sqlite3* db, const std::string& uuid, std::int64_t next_block, std::int64_t catalogue,
           std::string& error) {
  Statement row(db, "INSERT OR REPLACE INTO database VALUES (1, ?1, ?2, ?3, ?4)");
  if (!row) return fail_with_database_error(db, error);
  row.bind(1, uuid);
  row.bind(2, next_block);
  row.bind(3, catalogue);
  row.bind(4, std::int64_t{get_database_checksum(uuid, next_block, catalogue)});
  if (row.run()) return true;
  return fail_with_database_error(db, error);
}

}  // namespace

bool DatabaseRow::create(sqlite3* db, std::string& error) {
  std::uint32_t catalogue = 0;
  if (!get_catalogue_checksum(db, catalogue)) {
    error = CATALOGUE_DAMAGED;
    return false;
  }
  return write(db, make_uuid(), FIRST_BLOCK, catalogue, error);
}

bool DatabaseRow::load(sqlite3* db, std::string& error) {
  is_changed_ = false;
  has_new_catalogue_ = false;
  Statement row(db, "SELECT uuid, next_block, catalogue, checksum FROM database WHERE id = 1");
  if (!row) return fail_with_database_error(db, error);
  const Statement::Step step = row.step();
  if (step == Statement::Step::ERROR) return fail_with_database_error(db, error);
  const std::int64_t known = catalogue_;
  std::int64_t checksum = 0;
  if (step == Statement::Step::DONE || !row.read(0, uuid_) || !row.read(1, next_block_) ||
      !row.read(2, catalogue_) || !row.read(3, checksum) ||
      checksum != std::int64_t{get_database_checksum(uuid_, next_block_, catalogue_)} ||
      next_block_ < FIRST_BLOCK || next_block_ > MAX_BLOCK_NUMBER) {
    error = "the row about the database is damaged";
    return false;
  }
  std::uint32_t actual = 0;
  if (catalogue_ == known || (get_catalogue_checksum(db, actual) && catalogue_ == actual)) {
    return true;
  }
  catalogue_ = -1;
  error = CATALOGUE_DAMAGED;
  return false;
}

std::int64_t DatabaseRow::take_block_number() {
  is_changed_ = true;
  return next_block_++;
}

bool DatabaseRow::store(sqlite3* db, std::string& error) {
  if (!is_changed_ && !has_new_catalogue_) return true;
  std::uint32_t catalogue = static_cast<std::uint32_t>(catalogue_);
  if (has_new_catalogue_ && !get_catalogue_checksum(db, catalogue)) {
    error = CATALOGUE_DAMAGED;
    return false;
  }
  catalogue_ = catalogue;
  is_changed_ = false;
  has_new_catalogue_ = false;
  return write(db, uuid_, next_block_, catalogue_, error);
}

}  // namespace toolkit::trend
