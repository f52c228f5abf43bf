// The first bytes of a database file, as SQLite's file format has them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

struct sqlite3;
struct sqlite3_file;

namespace toolkit::trend {

/// What the header of a file says. For a file that is not an SQLite database, every question below
/// has the answer no.
class FileHeader {
 public:
  static constexpr std::size_t SIZE = 100;  ///< bytes

  /// Takes the first bytes of a file of `file_size` bytes.
  FileHeader(std::span<const unsigned char, SIZE> bytes, std::int64_t file_size);

  /// Reads the header of a file that SQLite has open. It is read by SQLite because a file
  /// descriptor of our own, once closed, would end the locks of all connections of this process. A
  /// file that can't be read counts as one that is not a database.
  static FileHeader read(sqlite3_file* file);
  /// The same for the file of a connection.
  static FileHeader read(sqlite3* db);

  /// Whether the file consists of whole pages, which a database does at any time.
  [[nodiscard]] bool has_whole_pages() const;

  /// Whether the database is in WAL mode.
  [[nodiscard]] bool asks_for_write_ahead_log() const;

  /// Whether the file is a trend database, and as long as it should be when no log holds a part of
  /// it.
  [[nodiscard]] bool is_sound() const;

 private:
  FileHeader() = default;
  [[nodiscard]] std::int64_t page_size() const;
  [[nodiscard]] std::int64_t number(std::size_t offset) const;

  unsigned char bytes_[SIZE] = {};
  std::int64_t file_size_ = 0;  ///< 0 if the file is not a database
};

}  // namespace toolkit::trend
