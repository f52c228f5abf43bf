#include "libtrend/sqlite/block.h"

#include <algorithm>
#include <array>
#include <cmath>

#include "libtrend/query/bytes.h"
#include "libtrend/query/engine.h"
#include "libtrend/sqlite/checksum.h"
#include "libtrend/sqlite/column.h"

namespace toolkit::trend {

namespace {

constexpr std::size_t CHECKSUM_SIZE = sizeof(std::uint32_t);

/// The checksum of a column depends on its place, so that no other can be taken for it.
std::uint32_t get_column_checksum(const BlockHead& head, std::size_t slot,
                                  std::span<const unsigned char> encoded) {
  std::array<unsigned char, 20> place;
  store(static_cast<std::uint64_t>(head.series_id), place.data());
  store(static_cast<std::uint64_t>(head.number), place.data() + 8);
  store(static_cast<std::uint32_t>(slot), place.data() + 16);
  return get_checksum(encoded, get_checksum(place));
}

/// Takes `size` bytes from the start of `bytes`. Returns false where there are fewer.
bool take(std::size_t size, std::span<const unsigned char>& bytes,
          std::span<const unsigned char>& taken) {
  if (bytes.size() < size) return false;
  taken = bytes.first(size);
  bytes = bytes.subspan(size);
  return true;
}

/// Takes a part that is preceded by its length.
bool take_part(std::span<const unsigned char>& bytes, std::span<const unsigned char>& part) {
  return take(sizeof(std::uint16_t), bytes, part) &&
         take(load<std::uint16_t>(part.data()), bytes, part);
}

/// Appends what `encode` appends, preceded by its length.
template <typename Encode>
void append_part(const Encode& encode, std::vector<unsigned char>& bytes) {
  const std::size_t start = bytes.size();
  append(std::uint16_t{0}, bytes);
  encode();
  const std::size_t size = bytes.size() - start - sizeof(std::uint16_t);
  store(static_cast<std::uint16_t>(size), bytes.data() + start);
}

}  // namespace

std::size_t get_block_rows(std::size_t slots) {
  const std::size_t fitting = MAX_BLOCK_BYTES / (sizeof(double) * std::max<std::size_t>(slots, 1));
  return std::clamp<std::size_t>(fitting, 1, MAX_BLOCK_ROWS);
}

std::uint32_t get_checksum(const BlockHead& head) {
  std::array<unsigned char, 72> numbers;
  unsigned char* place = numbers.data();
  for (const std::int64_t number :
       {head.series_id, head.last_time, head.number, head.first_time, head.previous, head.rows,
        head.bytes, head.segment_size, head.change}) {
    store(static_cast<std::uint64_t>(number), place);
    place += sizeof number;
  }
  return get_checksum(head.content, get_checksum(numbers));
}

void encode_block(const BlockRows& rows, BlockHead& head, std::vector<unsigned char>& columns) {
  head.first_time = rows.times.front();
  head.last_time = rows.times.back();
  head.rows = static_cast<std::int64_t>(rows.times.size());
  head.content.clear();
  append_part([&] { encode_times(rows.times, head.content); }, head.content);
  append_part([&] { encode_column(rows.valid_ratios, head.content); }, head.content);
  columns.clear();
  for (std::size_t slot = 0; slot < rows.slots; ++slot) {
    const std::span<const double> values = rows.column(slot);
    const std::size_t start = columns.size();
    if (!std::all_of(values.begin(), values.end(), [](double v) { return std::isnan(v); })) {
      columns.resize(start + CHECKSUM_SIZE);
      encode_column(values, columns);
      const auto encoded = std::span<const unsigned char>(columns).subspan(start + CHECKSUM_SIZE);
      store(get_column_checksum(head, slot, encoded), columns.data() + start);
    }
    append(static_cast<std::uint16_t>(columns.size() - start), head.content);
  }
  head.bytes = static_cast<std::int64_t>(columns.size());
}

bool decode_layout(const BlockHead& head, BlockLayout& layout) {
  constexpr auto MAX_ROWS = static_cast<std::int64_t>(MAX_BLOCK_ROWS);
  if (head.rows < 1 || head.rows > MAX_ROWS || head.first_time <= head.previous ||
      head.previous < 0 || head.last_time > MAX_TIMESTAMP || head.segment_size < 1) {
    return false;
  }
  std::span<const unsigned char> rest = head.content;
  std::span<const unsigned char> part;
  layout.times.resize(static_cast<std::size_t>(head.rows));
  layout.times.front() = head.first_time;
  if (!take_part(rest, part) || !decode_times(part, head.last_time, layout.times) ||
      layout.times.back() != head.last_time) {
    return false;
  }
  layout.valid_ratios.resize(layout.times.size());
  if (!take_part(rest, part) || !decode_column(part, layout.valid_ratios)) return false;
  if (rest.size() % sizeof(std::uint16_t) != 0) return false;
  layout.offsets.assign(1, 0);
  for (; !rest.empty(); rest = rest.subspan(sizeof(std::uint16_t))) {
    layout.offsets.push_back(layout.offsets.back() + load<std::uint16_t>(rest.data()));
  }
  return layout.offsets.back() == head.bytes &&
         (head.rows == 1 || layout.slots() * layout.times.size() <= MAX_BLOCK_VALUES) &&
         layout.slots() <= MAX_DEVICE_SLOTS;
}

bool decode_block_column(const BlockHead& head, std::size_t slot,
                         std::span<const unsigned char> bytes, std::span<double> values) {
  if (bytes.empty()) {
    // Nothing was stored for a column without values.
    std::fill(values.begin(), values.end(), MISSING_VALUE);
    return true;
  }
  if (bytes.size() < CHECKSUM_SIZE) return false;
  const std::span<const unsigned char> encoded = bytes.subspan(CHECKSUM_SIZE);
  return load<std::uint32_t>(bytes.data()) == get_column_checksum(head, slot, encoded) &&
         decode_column(encoded, values);
}

}  // namespace toolkit::trend
