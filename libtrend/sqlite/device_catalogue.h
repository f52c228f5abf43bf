// What the catalogue of a database has of each device.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "libtrend/query/engine.h"
#include "libtrend/sqlite/damage_text.h"
#include "libtrend/sqlite/statement.h"

namespace toolkit::trend {

/// Is called with the reason where a part of the catalogue can't be read. Returns whether to go on
/// without that part.
using LoseCatalogue = std::function<bool(const std::string& reason)>;

/// Runs `statement` and calls `take_row`, which returns false on a damaged row, on each of its
/// rows. Returns false on failure.
template <typename TakeRow>
bool for_each_row(Statement& statement, const TakeRow& take_row, const LoseCatalogue& lose) {
  const RunningStatement running(&statement);
  Statement::Step step = statement.step();
  for (; step == Statement::Step::ROW; step = statement.step()) {
    if (!take_row(statement) && !lose(CATALOGUE_DAMAGED)) return false;
  }
  return step == Statement::Step::DONE || lose(statement.error());
}

/// Finds the parameters and series of devices. It remembers what it needs to be fast, whether it is
/// asked for one device again and again or for all devices in turn.
///
/// What a query reads of the catalogue is compared with a checksum of its tables. So an index of
/// the database, which could be damaged, is not used.
class DeviceCatalogue {
 public:
  DeviceCatalogue() = default;
  /// Prepares all statements. The object converts to false if SQLite refused one.
  explicit DeviceCatalogue(sqlite3* db);
  explicit operator bool() const;

  /// Is to be called when the database may have changed.
  void forget();

  /// Append what belongs to a device: its parameters in the order of their paths, or its series,
  /// the one with the shortest interval first. Return false on failure. `version` is that of
  /// the format: in version 1, slots had no limit, and series hardly any.
  bool get_params(std::int64_t device_id, std::int64_t version,
                  std::vector<CParamProperties>& params, const LoseCatalogue& lose);
  bool get_series(std::int64_t device_id, std::int64_t version, std::vector<CSeries>& series,
                  const LoseCatalogue& lose);

 private:
  /// A table of the catalogue whose rows belong to devices.
  struct Table {
    Statement of_device;  ///< the rows of a device, by looking at all
    Statement by_id;      ///< a row
    Statement owners;     ///< the device and the id of each row
    /// The same in memory, in order, after several devices were asked for.
    std::vector<std::pair<std::int64_t, std::int64_t>> ids;
    bool has_ids = false;
    int asked = 0;  ///< for how many devices

    Table() = default;
    Table(sqlite3* db, const std::string& name, const std::string& columns);
    explicit operator bool() const { return of_device && by_id && owners; }
    void forget();
  };

  using TakeRow = std::function<bool(const Statement& row)>;
  static bool for_rows_of(Table& table, std::int64_t device_id, const TakeRow& take_row,
                          const LoseCatalogue& lose);
  bool find_series(std::int64_t device_id, std::int64_t version, std::vector<CSeries>& series,
                   const LoseCatalogue& lose);

  Table params_;
  Table series_;
  bool has_known_series_ = false;  ///< whether the series of one device are remembered
  std::int64_t known_device_ = 0;
  std::vector<CSeries> known_series_;
};

}  // namespace toolkit::trend
