// Blocks: many rows of a series, stored column by column, see docs/trend-database.md.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace toolkit::trend {

/// The most rows of a block, and the most bytes that its values take when they are decoded.
inline constexpr std::size_t MAX_BLOCK_ROWS = 512;
inline constexpr std::size_t MAX_BLOCK_BYTES = std::size_t{1} << 20;
/// The most values of a block of several rows that a reader accepts. It would need memory for them.
inline constexpr std::size_t MAX_BLOCK_VALUES = std::size_t{1} << 19;

/// Returns how many rows a full block of rows with so many slots has.
[[nodiscard]] std::size_t get_block_rows(std::size_t slots);

/// Rows to be put into a block, or taken out of one.
struct BlockRows {
  std::vector<std::int64_t> times;  ///< ascending
  std::vector<double> valid_ratios;
  std::size_t slots = 0;
  std::vector<double> values;  ///< slot after slot, each with one value per row

  /// Returns the values of `slot`, one per row.
  [[nodiscard]] std::span<const double> column(std::size_t slot) const {
    return std::span(values).subspan(slot * times.size(), times.size());
  }
};

/// A row of the table `block`: what a block holds, and its place in the chain of its series.
struct BlockHead {
  std::int64_t series_id = 0;
  std::int64_t last_time = 0;
  std::int64_t number = 0;
  std::int64_t first_time = 0;
  std::int64_t previous = 0;  ///< the last time of the block before, 0 for none
  std::int64_t rows = 0;
  std::int64_t bytes = 0;         ///< of all columns together
  std::int64_t segment_size = 0;  ///< bytes of each row of `segment` but the last
  std::int64_t change = 0;
  std::vector<unsigned char> content;  ///< times, shares of valid data, and lengths of columns
};

/// Returns the checksum of a head.
[[nodiscard]] std::uint32_t get_checksum(const BlockHead& head);

/// Encodes `rows`, which are at least one, as the block of `head.series_id` with `head.number`.
/// Sets `columns` and the other members of `head`, but for `previous`, `segment_size` and `change`.
void encode_block(const BlockRows& rows, BlockHead& head, std::vector<unsigned char>& columns);

/// Where the columns of a block are, and all that is not in its columns.
struct BlockLayout {
  std::vector<std::int64_t> times;
  std::vector<double> valid_ratios;
  std::vector<std::uint32_t> offsets;  ///< of the columns; one more at the end, the end of the last

  [[nodiscard]] std::size_t slots() const { return offsets.size() - 1; }
};

/// Decodes the content of `head`, whose checksum was right. Returns false where it is damaged.
[[nodiscard]] bool decode_layout(const BlockHead& head, BlockLayout& layout);

/// Decodes the column of `slot`, whose bytes are `bytes`, into `values`, one per row. Returns false
/// where it is damaged, or the column of another slot or block.
[[nodiscard]] bool decode_block_column(const BlockHead& head, std::size_t slot,
                                       std::span<const unsigned char> bytes,
                                       std::span<double> values);

}  // namespace toolkit::trend
