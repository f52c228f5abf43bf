// Blocks of any content with right checksums, against a simple reader of the format.
#include <fuzzer/FuzzedDataProvider.h>

#include <array>
#include <bit>
#include <cmath>
#include <limits>
#include <optional>

#include "libtrend/query/bytes.h"
#include "libtrend/sqlite/block.h"
#include "libtrend/sqlite/checksum.h"
#include "tests/fuzz/fuzz.h"

using namespace toolkit::trend;

namespace {

using Bytes = std::vector<unsigned char>;

constexpr double MISSING = std::numeric_limits<double>::quiet_NaN();
constexpr std::int64_t LAST_TIME = (std::int64_t{1} << 40) - 1;

/// Takes numbers and parts from the start of bytes. Once there are too few, `is_short` stays set.
class Source {
 public:
  explicit Source(Bytes bytes) : bytes_(std::move(bytes)) {}

  std::uint64_t number(std::size_t size) {
    std::uint64_t number = 0;
    for (const unsigned char byte : part(size)) number = number << 8 | byte;
    return number;
  }
  Bytes part(std::size_t size) {
    if (size > bytes_.size() - place_) {
      is_short_ = true;
      return {};
    }
    place_ += size;
    const auto end = bytes_.begin() + static_cast<std::ptrdiff_t>(place_);
    return {end - static_cast<std::ptrdiff_t>(size), end};
  }
  [[nodiscard]] bool is_short() const { return is_short_; }
  [[nodiscard]] bool is_empty() const { return place_ == bytes_.size(); }
  [[nodiscard]] bool is_exact() const { return !is_short_ && is_empty(); }

 private:
  Bytes bytes_;
  std::size_t place_ = 0;
  bool is_short_ = false;
};

using Column = std::optional<std::vector<double>>;  ///< nothing if it is damaged

Column read_decimals(Source& source, std::size_t code_size, std::size_t rows) {
  const std::uint64_t places = source.number(1);
  // 2^53 + 1 can't be told from 2^53: the sum is a double.
  const auto base = static_cast<double>(static_cast<std::int64_t>(source.number(8)));
  if (places > 15 || base < -0x1p53 || base > 0x1p53) return {};
  const std::uint64_t missing = (std::uint64_t{1} << 8 * code_size) - 1;
  const double scale = std::pow(10.0, static_cast<double>(places));
  std::vector<double> values;
  for (std::size_t i = 0; i < rows; ++i) {
    const std::uint64_t code = source.number(code_size);
    values.push_back(code == missing ? MISSING : (base + static_cast<double>(code)) / scale);
  }
  return source.is_exact() ? Column(values) : std::nullopt;
}

Column read_column(const Bytes& bytes, std::size_t rows) {
  Source source(bytes);
  const std::uint64_t kind = source.number(1);
  if (source.is_short()) return {};
  if (kind >= 2 && kind <= 4) return read_decimals(source, std::size_t{1} << (kind - 2), rows);
  std::vector<double> values;
  if (kind == 0) values.assign(rows, MISSING);
  if (kind == 1) values.assign(rows, std::bit_cast<double>(source.number(8)));
  for (std::size_t i = 0; i < rows && kind == 5; ++i) {
    values.push_back(std::bit_cast<float>(static_cast<std::uint32_t>(source.number(4))));
  }
  for (std::size_t i = 0; i < rows && kind == 6; ++i) {
    values.push_back(std::bit_cast<double>(source.number(8)));
  }
  return kind <= 6 && source.is_exact() ? Column(values) : std::nullopt;
}

std::optional<std::vector<std::int64_t>> read_times(const Bytes& bytes, const BlockHead& head) {
  Source source(bytes);
  const std::uint64_t size = source.number(1);
  const std::uint64_t base = source.number(8);
  if (size != 0 && size != 1 && size != 2 && size != 4 && size != 8) return {};
  std::vector<std::int64_t> times = {head.first_time};
  while (std::ssize(times) < head.rows) {
    const std::uint64_t more = source.number(size);
    if (base > LAST_TIME || more > LAST_TIME || base + more == 0) return {};
    times.push_back(times.back() + static_cast<std::int64_t>(base + more));
    if (times.back() > head.last_time) return {};
  }
  if (!source.is_exact() || times.back() != head.last_time) return {};
  return times;
}

struct SimpleLayout {
  std::vector<std::int64_t> times;
  std::vector<double> valid_ratios;
  std::vector<std::size_t> lengths;
};

std::optional<SimpleLayout> read_layout(const BlockHead& head) {
  if (head.rows < 1 || head.rows > 512 || head.previous < 0 || head.first_time <= head.previous ||
      head.last_time > LAST_TIME || head.last_time < head.first_time) {
    return {};
  }
  Source source(head.content);
  const auto times = read_times(source.part(source.number(2)), head);
  const auto ratios =
      read_column(source.part(source.number(2)), static_cast<std::size_t>(head.rows));
  if (source.is_short() || !times || !ratios) return {};
  SimpleLayout layout = {*times, *ratios, {}};
  std::size_t bytes = 0;
  while (!source.is_empty()) {
    layout.lengths.push_back(source.number(2));
    if (source.is_short()) return {};
    bytes += layout.lengths.back();
  }
  if (std::cmp_not_equal(bytes, head.bytes)) return {};
  return layout;
}

/// Puts the right checksum in front of an encoded column.
void repair_checksum(const BlockHead& head, std::size_t slot, std::span<unsigned char> column) {
  if (column.size() < 4) return;
  std::array<unsigned char, 20> place;
  store(static_cast<std::uint64_t>(head.series_id), place.data());
  store(static_cast<std::uint64_t>(head.number), place.data() + 8);
  store(static_cast<std::uint32_t>(slot), place.data() + 16);
  store(get_checksum(column.subspan(4), get_checksum(place)), column.data());
}

bool is_same(std::span<const double> a, std::span<const double> b) {
  for (std::size_t i = 0; i < a.size(); ++i) {
    const bool is_equal = std::bit_cast<std::uint64_t>(a[i]) == std::bit_cast<std::uint64_t>(b[i]);
    if (!is_equal && !(std::isnan(a[i]) && std::isnan(b[i]))) return false;
  }
  return a.size() == b.size();
}

/// What is encoded again is decoded as the same.
void check_encoder(const BlockRows& rows) {
  BlockHead head;
  head.series_id = 1;
  head.number = 1;
  head.segment_size = 1;
  Bytes columns;
  encode_block(rows, head, columns);
  BlockLayout layout;
  demand(decode_layout(head, layout), "an encoded block can't be read");
  demand(layout.times == rows.times, "other times");
  demand(is_same(layout.valid_ratios, rows.valid_ratios), "other shares of valid data");
  demand(layout.slots() == rows.slots, "another number of slots");
  std::vector<double> values(rows.times.size());
  for (std::size_t slot = 0; slot < rows.slots; ++slot) {
    const auto bytes = std::span<const unsigned char>(columns).subspan(
        layout.offsets[slot], layout.offsets[slot + 1] - layout.offsets[slot]);
    demand(decode_block_column(head, slot, bytes, values), "an encoded column can't be read");
    demand(is_same(values, rows.column(slot)), "other values");
  }
}

/// A block, right or wrong.
struct Block {
  BlockHead head;
  std::vector<Bytes> columns;
};

Bytes to_bytes(const std::string& text) { return {text.begin(), text.end()}; }

/// Makes a head and columns of any bytes.
Block make_any_block(FuzzedDataProvider& input) {
  Block block;
  BlockHead& head = block.head;
  head.rows = input.ConsumeIntegralInRange<std::int64_t>(-1, 513);
  head.first_time = input.ConsumeIntegral<std::int32_t>();
  head.last_time = head.first_time + input.ConsumeIntegral<std::int32_t>();
  head.previous = input.ConsumeBool() ? 0 : head.first_time - 1;
  for (int i = 0; i < 2; ++i) {
    const Bytes part = to_bytes(input.ConsumeRandomLengthString(4096));
    append(static_cast<std::uint16_t>(part.size()), head.content);
    head.content.insert(head.content.end(), part.begin(), part.end());
  }
  // A block has far fewer values than a reader accepts.
  constexpr std::size_t MOST_COLUMNS = 500;
  while (input.remaining_bytes() > 1 && block.columns.size() < MOST_COLUMNS) {
    block.columns.push_back(to_bytes(input.ConsumeRandomLengthString(4096)));
    append(static_cast<std::uint16_t>(block.columns.back().size()), head.content);
    head.bytes += std::ssize(block.columns.back());
  }
  if (input.ConsumeBool()) head.content.push_back(0);
  return block;
}

double make_value(int kind, FuzzedDataProvider& input) {
  switch (kind) {
    case 0:
      return 21.5;
    case 1:
      return input.ConsumeIntegral<std::int8_t>() / 10.0;
    case 2:
      return input.ConsumeIntegral<std::int32_t>() / 100.0;
    case 3:
      return input.ConsumeFloatingPoint<float>();
    case 4:
      return std::bit_cast<double>(input.ConsumeIntegral<std::uint64_t>());
    default:
      return input.ConsumeBool() ? MISSING : input.ConsumeIntegral<std::int16_t>();
  }
}

/// Makes rows and encodes them.
Block make_right_block(FuzzedDataProvider& input) {
  BlockRows rows;
  const auto count = input.ConsumeIntegralInRange<std::size_t>(1, 40);
  std::int64_t time = 0;
  const bool is_even = input.ConsumeBool();
  for (std::size_t i = 0; i < count; ++i) {
    time += is_even ? 60 : 1 + std::int64_t{input.ConsumeIntegral<std::uint16_t>()};
    rows.times.push_back(time);
    rows.valid_ratios.push_back(input.ConsumeIntegralInRange(0, 4) / 4.0);
  }
  rows.slots = input.ConsumeIntegralInRange<std::size_t>(0, 5);
  for (std::size_t slot = 0; slot < rows.slots; ++slot) {
    const int kind = input.ConsumeIntegralInRange(0, 5);
    for (std::size_t i = 0; i < count; ++i) rows.values.push_back(make_value(kind, input));
  }
  Block block;
  Bytes bytes;
  encode_block(rows, block.head, bytes);
  block.head.segment_size = 1;
  BlockLayout layout;
  demand(decode_layout(block.head, layout), "an encoded block can't be read");
  for (std::size_t slot = 0; slot < rows.slots; ++slot) {
    block.columns.emplace_back(bytes.begin() + layout.offsets[slot],
                               bytes.begin() + layout.offsets[slot + 1]);
  }
  return block;
}

/// Changes a byte or the length of `bytes`.
void change(Bytes& bytes, FuzzedDataProvider& input) {
  if (bytes.empty()) return;
  const auto place = input.ConsumeIntegralInRange<std::size_t>(0, bytes.size() - 1);
  if (input.ConsumeBool()) bytes[place] = input.ConsumeIntegral<std::uint8_t>();
  if (input.ConsumeIntegralInRange(0, 7) == 0) bytes.resize(place);
}

void change(Block& block, FuzzedDataProvider& input) {
  switch (input.ConsumeIntegralInRange(0, 3)) {
    case 0:
      block.head.rows += input.ConsumeIntegral<std::int8_t>();
      break;
    case 1:
      block.head.last_time += input.ConsumeIntegral<std::int8_t>();
      break;
    case 2:
      change(block.head.content, input);
      break;
    default:
      if (block.columns.empty()) return;
      change(block.columns[input.ConsumeIntegralInRange<std::size_t>(0, block.columns.size() - 1)],
             input);
  }
}

/// Checks one column. Adds its values to `rows`, if it has some.
void check_column(const BlockHead& head, std::size_t slot, Bytes& column, BlockRows& rows) {
  repair_checksum(head, slot, column);
  std::vector<double> values(rows.times.size());
  const bool is_decoded = decode_block_column(head, slot, column, values);
  Column wanted(std::in_place, values.size(), MISSING);
  if (!column.empty()) {
    wanted = column.size() < 4 ? Column()
                               : read_column({column.begin() + 4, column.end()}, values.size());
  }
  demand(is_decoded == wanted.has_value(),
         is_decoded ? "a damaged column is read" : "a column is refused");
  if (!is_decoded) return;
  demand(is_same(values, *wanted), "other values");
  rows.values.insert(rows.values.end(), values.begin(), values.end());
  ++rows.slots;
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  FuzzedDataProvider input(data, size);
  const bool is_any = input.ConsumeBool();
  Block block = is_any ? make_any_block(input) : make_right_block(input);
  for (int left = is_any ? 0 : input.ConsumeIntegralInRange(0, 3); left > 0; --left) {
    change(block, input);
  }
  BlockHead& head = block.head;
  head.series_id = 7;
  head.number = 9;
  head.segment_size = 4056;

  BlockLayout layout;
  const bool is_read = decode_layout(head, layout);
  const auto expected = read_layout(head);
  demand(is_read == expected.has_value(), is_read ? "a damaged head is read" : "a head is refused");
  if (!is_read) return 0;
  demand(layout.times == expected->times, "other times");
  demand(is_same(layout.valid_ratios, expected->valid_ratios), "other shares of valid data");
  demand(layout.slots() == expected->lengths.size(), "another number of slots");

  BlockRows rows = {layout.times, layout.valid_ratios, 0, {}};
  for (std::size_t slot = 0; slot < block.columns.size(); ++slot) {
    check_column(head, slot, block.columns[slot], rows);
  }
  check_encoder(rows);
  return 0;
}
