// The one row of the table `database`: the database's id, numbers for new blocks, and the checksum
// of the catalogue.
#pragma once

#include <cstdint>
#include <string>

struct sqlite3;

namespace toolkit::trend {

/// The row on one connection, for its writer. Functions that return false leave the reason in
/// `error`.
class DatabaseRow {
 public:
  /// Makes the row, with a random id, in a database that has a catalogue and not this row.
  [[nodiscard]] static bool create(sqlite3* db, std::string& error);

  /// Reads the row, and compares the catalogue with its checksum if that is not the one of the last
  /// call. Returns false where the row or the catalogue is damaged.
  [[nodiscard]] bool load(sqlite3* db, std::string& error);

  /// Returns a number for a new block, which no block had before.
  [[nodiscard]] std::int64_t take_block_number();
  /// Notes that the catalogue has changed.
  void note_catalogue() { has_new_catalogue_ = true; }

  /// The checksum of the catalogue that was loaded or stored last.
  [[nodiscard]] std::int64_t catalogue() const { return catalogue_; }

  /// Writes the row if it has changed. Returns false on failure.
  [[nodiscard]] bool store(sqlite3* db, std::string& error);

 private:
  std::string uuid_;
  std::int64_t next_block_ = 0;
  std::int64_t catalogue_ = -1;
  bool is_changed_ = false;
  bool has_new_catalogue_ = false;
};

}  // namespace toolkit::trend
