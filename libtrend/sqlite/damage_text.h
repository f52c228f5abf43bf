// What can be wrong with a database, for messages that more than one file has.
#pragma once

namespace toolkit::trend {

inline constexpr const char* BLOCK_MISSING = "a block is missing";
inline constexpr const char* CATALOGUE_DAMAGED = "the catalogue is damaged";
inline constexpr const char* COLUMNS_DAMAGED = "the columns of a block are damaged";
inline constexpr const char* HEAD_DAMAGED = "the head of a block is damaged";
inline constexpr const char* ROWS_DAMAGED = "the table of rows is damaged";
inline constexpr const char* STATE_MISSING = "the state of a series is missing";
inline constexpr const char* TABLE_MISSING = "a table is missing";

}  // namespace toolkit::trend
