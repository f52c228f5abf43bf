// The first bytes of a database file, which SQLite's file format defines.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

struct sqlite3;
struct sqlite3_file;

namespace toolkit::trend {

/// What the header of a file says. For a file that is not an SQLite database, every function below
/// returns false.
class FileHeader {
 public:
  static constexpr std::size_t SIZE = 100;  ///< bytes

  /// Takes the first bytes of a file of `file_size` bytes.
  FileHeader(std::span<const unsigned char, SIZE> bytes, std::int64_t file_size);

  /// Reads the header of a file that SQLite has open. It is read through SQLite: closing a file
  /// descriptor of our own would release the locks of all connections of this process. A file that
  /// can't be read is treated as one that is not a database.
  static FileHeader read(sqlite3_file* file);
  /// The same for the file of a connection.
  static FileHeader read(sqlite3* db);

  /// Returns whether the file consists of whole pages, as a database always does.
  [[nodiscard]] bool has_whole_pages() const;

  /// Returns whether the database is in WAL mode.
  [[nodiscard]] bool asks_for_write_ahead_log() const;

  /// Returns whether the file is a trend database and is complete, provided that no write-ahead log
  /// holds a part of it.
  [[nodiscard]] bool is_sound() const;

 private:
  FileHeader() = default;
  [[nodiscard]] std::int64_t page_size() const;
  [[nodiscard]] std::int64_t number(std::size_t offset) const;

  unsigned char bytes_[SIZE] = {};
  std::int64_t file_size_ = 0;  ///< 0 if the file is not a database
};

}  // namespace toolkit::trend
