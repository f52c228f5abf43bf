#include "libtrend/sqlite/file_header.h"

#include <sqlite3.h>

#include <algorithm>
#include <cstring>

#include "libtrend/sqlite/schema.h"

namespace toolkit::trend {

namespace {

constexpr char MAGIC[] = "SQLite format 3";

// Where the numbers are in the header.
constexpr std::size_t PAGE_SIZE = 16;
constexpr std::size_t READ_VERSION = 19;
constexpr std::size_t CHANGE_COUNTER = 24;
constexpr std::size_t PAGE_COUNT = 28;
constexpr std::size_t USER_VERSION = 60;
constexpr std::size_t APPLICATION = 68;
constexpr std::size_t PAGE_COUNT_VALID_FOR = 92;  ///< a value of the change counter

}  // namespace

FileHeader::FileHeader(std::span<const unsigned char, SIZE> bytes, std::int64_t file_size) {
  if (file_size < static_cast<std::int64_t>(SIZE)) return;
  if (std::memcmp(bytes.data(), MAGIC, sizeof MAGIC) != 0) return;
  std::copy(bytes.begin(), bytes.end(), bytes_);
  file_size_ = file_size;
}

FileHeader FileHeader::read(sqlite3_file* file) {
  unsigned char bytes[SIZE] = {};
  sqlite3_int64 size = 0;
  if (file->pMethods->xRead(file, bytes, SIZE, 0) != SQLITE_OK ||
      file->pMethods->xFileSize(file, &size) != SQLITE_OK) {
    return {};
  }
  return {bytes, size};
}

FileHeader FileHeader::read(sqlite3* db) {
  sqlite3_file* file = nullptr;
  // Every connection to a file has this one.
  sqlite3_file_control(db, "main", SQLITE_FCNTL_FILE_POINTER, &file);
  return read(file);
}

bool FileHeader::has_whole_pages() const {
  return page_size() > 0 && file_size_ % page_size() == 0;
}

bool FileHeader::asks_for_write_ahead_log() const { return bytes_[READ_VERSION] == 2; }

bool FileHeader::is_sound() const {
  const bool knows_length = number(CHANGE_COUNTER) == number(PAGE_COUNT_VALID_FOR);
  const std::int64_t version = number(USER_VERSION);
  return has_whole_pages() && (!knows_length || number(PAGE_COUNT) * page_size() <= file_size_) &&
         (version == ROWS_ONLY_VERSION || version == FORMAT_VERSION) &&
         number(APPLICATION) == APPLICATION_ID;
}

std::int64_t FileHeader::page_size() const {
  // 65536 does not fit into the two bytes, so it is stored as 1.
  const std::int64_t size = number(PAGE_SIZE) >> 16;
  return size == 1 ? 65536 : size;
}

std::int64_t FileHeader::number(std::size_t offset) const {
  std::int64_t value = 0;
  for (std::size_t i = offset; i < offset + 4; ++i) value = value << 8 | bytes_[i];
  return value;
}

}  // namespace toolkit::trend
