// The writers of all series of a database.
#pragma once

#include <cstdint>
#include <limits>
#include <map>
#include <span>
#include <string>
#include <vector>

#include "libtrend/sqlite/series_writer.h"

namespace toolkit::trend {

/// The writers of the series that transactions on one connection write, and what these share.
/// Functions that return false have failed and leave the reason in `error`; the transaction then
/// has to be undone, and `forget` to be called.
class SeriesWriters {
 public:
  /// Prepares all statements, which takes the tables. Returns false where SQLite refused one.
  [[nodiscard]] bool prepare(sqlite3* db) { return tables_.prepare(db); }
  /// Forgets what is known about the database: it has changed otherwise, or has changed back.
  void forget();

  /// Starts a transaction that SQLite has started.
  [[nodiscard]] bool begin();
  /// Writes everything that belongs to the transaction. Loose rows are sealed, but not more than
  /// one block and a number that grows with the rows that were appended, so that no transaction
  /// takes far longer than others of its size.
  [[nodiscard]] bool finish();

  /// Makes the state of a new series.
  [[nodiscard]] bool create(std::int64_t id);
  /// See the functions of the same names of `LogWriter`.
  [[nodiscard]] bool append(std::int64_t id, std::int64_t time, double valid_ratio,
                            std::span<const double> slots);
  [[nodiscard]] bool purge(std::int64_t id, std::int64_t before);
  [[nodiscard]] bool remove_row(std::int64_t id, std::int64_t time);
  /// Removes all that belongs to a series but its row in the catalogue.
  [[nodiscard]] bool remove(std::int64_t id);
  /// Notes that the catalogue has changed.
  void note_catalogue() { tables_.database.note_catalogue(); }

  /// The checksum of the catalogue, after `finish`.
  [[nodiscard]] std::int64_t catalogue() const { return tables_.database.catalogue(); }

  /// Returns the state that `finish` wrote last in this transaction; with 0 changes if it wrote
  /// none.
  [[nodiscard]] const SeriesState& last_stored() const { return tables_.last_stored; }

  [[nodiscard]] const std::string& error() const { return tables_.error; }

 private:
  struct Entry {
    SeriesWriter writer;
    bool is_used = false;  ///< in this transaction
  };
  SeriesWriter* use(std::int64_t id);
  bool spill();
  bool seal();
  bool take_noted(std::int64_t& row_id);
  bool seal_region(std::int64_t row_id, std::int64_t& end, bool& is_sealed);

  RecordTables tables_;
  bool is_loaded_ = false;  ///< whether `tables_.database` is up to date
  SeriesWriter::Regions crowded_;
  std::int64_t last_region_ = 0;  ///< the last one that was taken from `crowded_`
  /// Where to look for loose rows that nobody noted, which is once from the start to the end.
  std::int64_t unseen_ = std::numeric_limits<std::int64_t>::min();
  bool has_seen_all_ = false;

  std::map<std::int64_t, Entry> series_;  ///< by id
  std::vector<Entry*> used_;
  std::size_t bytes_ = 0;           ///< of the rows in memory
  std::size_t appended_rows_ = 0;   ///< in this transaction
  std::size_t appended_slots_ = 0;  ///< likewise
};

}  // namespace toolkit::trend
