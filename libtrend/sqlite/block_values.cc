#include "libtrend/sqlite/block_values.h"

#include <algorithm>
#include <span>

#include "libtrend/sqlite/column.h"
#include "libtrend/sqlite/damage_text.h"

namespace toolkit::trend {

namespace {

/// So many columns are decoded before their values go to the rows: those of one row then fill a
/// line of the processor's cache.
constexpr std::size_t TILE = 8;

/// Adjacent columns are read together, up to so many bytes.
constexpr std::size_t MAX_RUN = 65536;

}  // namespace

bool BlockValues::read(BlockTable& table, const BlockHead& head, const BlockLayout& layout,
                       const std::vector<std::uint32_t>& slots, const Lose* lose,
                       std::string& error) {
  number_ = -1;
  slots_ = slots;
  values_.resize(layout.times.size() * slots.size());
  tile_.resize(TILE * layout.times.size());
  // A row of a parameter that was added later has slots that an older block lacks.
  const auto has = [&](std::size_t i) { return slots[i] < layout.slots(); };
  for (std::size_t first = 0; first < slots.size();) {
    std::size_t end = first + 1;
    if (has(first)) {
      const std::uint32_t start = layout.offsets[slots[first]];
      while (end < slots.size() && slots[end] == slots[end - 1] + 1 && has(end) &&
             layout.offsets[slots[end] + 1] - start <= MAX_RUN) {
        ++end;
      }
    }
    if (!read_run(table, head, layout, first, end, error)) {
      if (lose == nullptr) return false;
      read_one_by_one(table, head, layout, first, end, *lose);
    }
    first = end;
  }
  number_ = head.number;
  return true;
}

/// Reads the values of slots_[first] to slots_[end - 1] where some are damaged.
void BlockValues::read_one_by_one(BlockTable& table, const BlockHead& head,
                                  const BlockLayout& layout, std::size_t first, std::size_t end,
                                  const Lose& lose) {
  std::string ignored;
  for (std::size_t i = first; i < end; ++i) {
    if (read_run(table, head, layout, i, i + 1, ignored)) continue;
    for (std::size_t row = 0; row < layout.times.size(); ++row) {
      values_[row * slots_.size() + i] = MISSING_VALUE;
    }
    lose(i);
  }
}

/// Reads the values of slots_[first] to slots_[end - 1], whose columns stand one after another. A
/// single slot may be one that the block lacks.
bool BlockValues::read_run(BlockTable& table, const BlockHead& head, const BlockLayout& layout,
                           std::size_t first, std::size_t end, std::string& error) {
  const std::size_t rows = layout.times.size();
  const bool is_there = slots_[first] < layout.slots();
  const std::size_t start = is_there ? layout.offsets[slots_[first]] : 0;
  const std::size_t stop = is_there ? layout.offsets[slots_[end - 1] + 1] : 0;
  if (!table.read_columns(head, start, stop, bytes_, error)) return false;
  for (std::size_t i = first; i < end; i += TILE) {
    const std::size_t columns = std::min(TILE, end - i);
    for (std::size_t column = 0; column < columns; ++column) {
      const std::span<double> values = std::span(tile_).subspan(column * rows, rows);
      if (!is_there) {
        std::fill(values.begin(), values.end(), MISSING_VALUE);
        continue;
      }
      const auto slot = static_cast<std::size_t>(slots_[i + column]);
      const auto encoded = std::span<const unsigned char>(bytes_).subspan(
          layout.offsets[slot] - start, layout.offsets[slot + 1] - layout.offsets[slot]);
      if (!decode_block_column(head, slot, encoded, values)) {
        error = COLUMNS_DAMAGED;
        return false;
      }
    }
    transpose(i, columns, rows);
  }
  return true;
}

/// Copies the first `columns` columns of the tile to the places `first` and following of each row.
void BlockValues::transpose(std::size_t first, std::size_t columns, std::size_t rows) {
  const std::size_t width = slots_.size();
  double* row = values_.data() + first;
  const double* values = tile_.data();
  for (std::size_t i = 0; i < rows; ++i, row += width) {
    for (std::size_t column = 0; column < columns; ++column)
      row[column] = values[column * rows + i];
  }
}

}  // namespace toolkit::trend
