// Small trend databases with pages of 512 bytes, in every state that a database can be in.
#pragma once

#include <cstdint>
#include <ostream>
#include <string>
#include <vector>

#include "tests/support/stored_log.h"

/// A state of a database, and what makes a database in this state at a path where there is none.
/// Those that the recorder made have the devices "/one" and "/two" with a few series each.
struct SmallDatabase {
  const char* name;    ///< one word
  bool has_checksums;  ///< whether each row has a checksum
  void (*make)(const std::string& path);
};

/// How GoogleTest shows a state.
inline void PrintTo(const SmallDatabase& database, std::ostream* out) { *out << database.name; }

/// All states.
[[nodiscard]] const std::vector<SmallDatabase>& small_databases();

/// The state of this name. Throws where there is none.
[[nodiscard]] const SmallDatabase& small_database(const std::string& name);

/// Records `rows` rows in one transaction in the database at `path`, the first at the time `first`,
/// and one each minute: in the series of `minutes` of `device`. Adds what of the catalogue is not
/// there yet. Then removes the rows before `purged`. Returns the reason of a failure, or an empty
/// text.
[[nodiscard]] std::string record_rows(const std::string& path, const std::string& device,
                                      std::uint32_t minutes, std::int64_t first, int rows,
                                      std::int64_t purged = 0);

/// Returns the device "d" with two series. That of 5 minutes has blocks of 8 rows; and loose rows
/// before, in and after them, without checksums up to the time `unchecked_until`. That of 60
/// minutes has one block.
[[nodiscard]] StoredDevice make_stored_device(std::int64_t unchecked_until = 0);

/// Returns the two parameters of that device, which have three slots.
[[nodiscard]] std::vector<toolkit::trend::CParamProperties> make_stored_params();

/// Returns rows of the series of 5 minutes, from the row `first` to the row `last`, counted from 1.
[[nodiscard]] std::vector<StoredRow> make_stored_rows(int first, int last);
