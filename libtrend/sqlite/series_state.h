// What the database keeps about each series so that lost rows are noticed, and the checksums of
// everything that is not in a block. See docs/trend-database.md.
#pragma once

#include <cstdint>
#include <span>
#include <string>

#include "libtrend/sqlite/statement.h"

namespace toolkit::trend {

/// A row of the table `series_state`.
struct SeriesState {
  std::int64_t series_id = 0;
  std::int64_t loose_rows = 0;       ///< after `unchecked_until`
  std::int64_t unchecked_until = 0;  ///< loose rows up to this time may be without checksum
  std::int64_t first_block = 0;      ///< the last time of the first block, 0 where there is none
  std::int64_t last_block = 0;       ///< likewise of the last one
  std::int64_t blocks = 0;
  std::int64_t sealed_rows = 0;
  std::int64_t changes = 0;  ///< the number of the last commit that changed the series
};

/// Returns the checksum of a state.
[[nodiscard]] std::uint32_t get_checksum(const SeriesState& state);

/// Reads and writes the table of states on one connection, which must outlive it.
class SeriesStates {
 public:
  enum class Result { FOUND, MISSING, FAILED };

  SeriesStates() = default;
  explicit SeriesStates(sqlite3* db);
  explicit operator bool() const { return get_ && add_ && set_ && remove_; }

  /// Reads the state of a series. FAILED where it is damaged or can't be read; the reason is then
  /// in `error`.
  [[nodiscard]] Result get(std::int64_t series_id, SeriesState& state, std::string& error);
  /// Writes the state of a new series. Returns false on failure, with the reason in `error`.
  [[nodiscard]] bool add(const SeriesState& state, std::string& error);
  /// Writes the state of a series that has one. Returns false on failure, with the reason in
  /// `error`.
  [[nodiscard]] bool set(const SeriesState& state, std::string& error);
  /// Removes the state of a series. Returns false on failure, with the reason in `error`.
  [[nodiscard]] bool remove(std::int64_t series_id, std::string& error);

 private:
  static bool write(Statement& statement, const SeriesState& state, std::string& error);

  Statement get_;
  Statement add_;
  Statement set_;
  Statement remove_;
};

/// Returns the checksum of a loose row. `samples` are its packed values.
[[nodiscard]] std::uint32_t get_row_checksum(std::int64_t id, double valid_ratio,
                                             std::span<const unsigned char> samples);

/// Computes the checksum of the catalogue: of all rows of `device`, `parameter` and `series`.
/// Returns false where it can't be read.
[[nodiscard]] bool get_catalogue_checksum(sqlite3* db, std::uint32_t& checksum);

/// Returns the checksum of the one row of the table `database`.
[[nodiscard]] std::uint32_t get_database_checksum(const std::string& uuid, std::int64_t next_block,
                                                  std::int64_t catalogue);

}  // namespace toolkit::trend
