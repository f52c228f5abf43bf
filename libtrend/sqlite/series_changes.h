// Where a series has changed.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "libtrend/records.h"
#include "libtrend/sqlite/block_cursor.h"
#include "libtrend/sqlite/loose_rows.h"
#include "libtrend/sqlite/series_state.h"

namespace toolkit::trend {

/// Fills `changes`, a new object, with the changes of a series after the number `since`, see
/// `CLog::get_changes`. `checked` are the times of the loose rows that `check_loose_rows` has
/// found, and `chain` is that of the series. Reads the heads of all blocks, and looks in `loose`
/// for the rows that may be without a checksum. Returns false on failure, with the reason in
/// `error`.
[[nodiscard]] bool find_changes(LooseRows& loose, const std::vector<std::int64_t>& checked,
                                BlockChain& chain, const SeriesState& state, std::uint64_t since,
                                CSeriesChanges& changes, std::string& error);

}  // namespace toolkit::trend
