#include "libtrend/sqlite/column.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <limits>

#include "libtrend/query/bytes.h"

namespace toolkit::trend {

namespace {

/// How a column is encoded: its first byte.
enum Kind : unsigned char {
  MISSING = 0,    ///< every value is missing
  CONSTANT = 1,   ///< one value for all rows, 8 bytes
  DECIMAL_1 = 2,  ///< codes of 1 byte, see `Decimals`
  DECIMAL_2 = 3,
  DECIMAL_4 = 4,
  FLOAT_4 = 5,  ///< binary32
  FLOAT_8 = 6,  ///< binary64
};

/// 10^0 to 10^15, all exact.
constexpr std::array POWERS_OF_TEN = {1e0, 1e1, 1e2,  1e3,  1e4,  1e5,  1e6,  1e7,
                                      1e8, 1e9, 1e10, 1e11, 1e12, 1e13, 1e14, 1e15};

/// Whole numbers up to this one, and the sums of two with one in these bounds, are exact.
constexpr double MAX_WHOLE = 0x1p53;

bool has_same_bits(double a, double b) {
  return std::bit_cast<std::uint64_t>(a) == std::bit_cast<std::uint64_t>(b);
}

/// Values that are whole numbers over a power of ten: the value of code c is
/// (base + c) / 10^places, the largest code of its size stands for a missing value.
struct Decimals {
  std::size_t places = 0;
  double base = 0;
  double span = -1;  ///< the largest code; negative where there is no such encoding
};

/// The whole number that is `value` times 10^places, where `value` is that number divided by
/// 10^places; otherwise a NaN.
double to_whole(double value, std::size_t places) {
  const double whole = std::nearbyint(value * POWERS_OF_TEN[places]);
  // A code can't tell -0 from 0; adding 0 makes the former the latter, and so not exact.
  const bool is_exact =
      std::fabs(whole) <= MAX_WHOLE && has_same_bits((whole + 0.0) / POWERS_OF_TEN[places], value);
  return is_exact ? whole : MISSING_VALUE;
}

/// Finds the fewest decimal places that give back every value.
Decimals find_decimals(std::span<const double> values) {
  // A value of so many places has more as well, so the number of places only grows on the way.
  std::size_t places = 0;
  for (const double value : values) {
    if (std::isnan(value)) continue;
    while (std::isnan(to_whole(value, places))) {
      if (++places == POWERS_OF_TEN.size()) return {};
    }
  }
  double least = MAX_WHOLE;
  double greatest = -MAX_WHOLE;
  for (const double value : values) {
    if (std::isnan(value)) continue;
    const double whole = to_whole(value, places);
    if (std::isnan(whole)) return {};  // more places than this large number has digits for
    least = std::min(least, whole);
    greatest = std::max(greatest, whole);
  }
  return {places, least, greatest - least};
}

template <typename Code>
constexpr double MISSING_CODE = std::numeric_limits<Code>::max();

template <typename Code>
void append_decimals(const Decimals& decimals, std::span<const double> values,
                     std::vector<unsigned char>& bytes) {
  bytes.push_back(static_cast<unsigned char>(decimals.places));
  append(static_cast<std::uint64_t>(static_cast<std::int64_t>(decimals.base)), bytes);
  for (const double value : values) {
    const double code =
        std::isnan(value) ? MISSING_CODE<Code> : to_whole(value, decimals.places) - decimals.base;
    append(static_cast<Code>(code), bytes);
  }
}

template <typename Code>
bool decode_decimals(std::span<const unsigned char> bytes, std::span<double> values) {
  constexpr std::size_t HEAD = 9;
  if (bytes.size() != HEAD + sizeof(Code) * values.size()) return false;
  if (bytes[0] >= POWERS_OF_TEN.size()) return false;
  const double scale = POWERS_OF_TEN[bytes[0]];
  const auto whole_base = static_cast<std::int64_t>(load<std::uint64_t>(&bytes[1]));
  const auto base = static_cast<double>(whole_base);
  if (std::fabs(base) > MAX_WHOLE) return false;
  const unsigned char* codes = bytes.data() + HEAD;
  for (std::size_t i = 0; i < values.size(); ++i) {
    const auto code = static_cast<double>(load<Code>(codes + sizeof(Code) * i));
    const double value = (base + code) / scale;
    values[i] = code == MISSING_CODE<Code> ? MISSING_VALUE : value;
  }
  return true;
}

bool is_float(double value) {
  return std::isnan(value) || has_same_bits(static_cast<double>(static_cast<float>(value)), value);
}

/// `Float` is float or double, `Bits` the unsigned number of its size.
template <typename Float, typename Bits>
void append_floats(std::span<const double> values, std::vector<unsigned char>& bytes) {
  for (const double value : values) {
    const double canonical = std::isnan(value) ? MISSING_VALUE : value;
    append(std::bit_cast<Bits>(static_cast<Float>(canonical)), bytes);
  }
}

template <typename Float, typename Bits>
bool decode_floats(std::span<const unsigned char> bytes, std::span<double> values) {
  if (bytes.size() != sizeof(Bits) * values.size()) return false;
  for (std::size_t i = 0; i < values.size(); ++i) {
    values[i] = std::bit_cast<Float>(load<Bits>(bytes.data() + sizeof(Bits) * i));
  }
  return true;
}

/// The kind of the shortest encoding.
Kind choose_kind(std::span<const double> values, Decimals& decimals) {
  const bool is_constant = std::all_of(values.begin(), values.end(), [&](double value) {
    return has_same_bits(value, values.front());
  });
  if (std::all_of(values.begin(), values.end(), [](double value) { return std::isnan(value); })) {
    return MISSING;
  }
  if (is_constant) return CONSTANT;
  decimals = find_decimals(values);
  if (decimals.span >= 0 && decimals.span < MISSING_CODE<std::uint8_t>) return DECIMAL_1;
  if (decimals.span >= 0 && decimals.span < MISSING_CODE<std::uint16_t>) return DECIMAL_2;
  if (std::all_of(values.begin(), values.end(), is_float)) return FLOAT_4;
  if (decimals.span >= 0 && decimals.span < MISSING_CODE<std::uint32_t>) return DECIMAL_4;
  return FLOAT_8;
}

}  // namespace

void encode_column(std::span<const double> values, std::vector<unsigned char>& bytes) {
  Decimals decimals;
  const Kind kind = choose_kind(values, decimals);
  bytes.push_back(kind);
  switch (kind) {
    case MISSING:
      return;
    case CONSTANT:
      return append_floats<double, std::uint64_t>(values.first(1), bytes);
    case DECIMAL_1:
      return append_decimals<std::uint8_t>(decimals, values, bytes);
    case DECIMAL_2:
      return append_decimals<std::uint16_t>(decimals, values, bytes);
    case DECIMAL_4:
      return append_decimals<std::uint32_t>(decimals, values, bytes);
    case FLOAT_4:
      return append_floats<float, std::uint32_t>(values, bytes);
    case FLOAT_8:
      return append_floats<double, std::uint64_t>(values, bytes);
  }
}

bool decode_column(std::span<const unsigned char> bytes, std::span<double> values) {
  if (bytes.empty()) return false;
  const std::span<const unsigned char> rest = bytes.subspan(1);
  switch (bytes[0]) {
    case MISSING:
      std::fill(values.begin(), values.end(), MISSING_VALUE);
      return rest.empty();
    case CONSTANT:
      if (rest.size() != sizeof(std::uint64_t)) return false;
      std::fill(values.begin(), values.end(),
                std::bit_cast<double>(load<std::uint64_t>(rest.data())));
      return true;
    case DECIMAL_1:
      return decode_decimals<std::uint8_t>(rest, values);
    case DECIMAL_2:
      return decode_decimals<std::uint16_t>(rest, values);
    case DECIMAL_4:
      return decode_decimals<std::uint32_t>(rest, values);
    case FLOAT_4:
      return decode_floats<float, std::uint32_t>(rest, values);
    case FLOAT_8:
      return decode_floats<double, std::uint64_t>(rest, values);
    default:
      return false;
  }
}

namespace {

constexpr unsigned char MAX_STEP_SIZE = 8;

/// The bytes that `number` takes: 0, 1, 2, 4 or 8.
unsigned char get_size(std::uint64_t number) {
  if (number == 0) return 0;
  if (number <= std::numeric_limits<std::uint8_t>::max()) return 1;
  if (number <= std::numeric_limits<std::uint16_t>::max()) return 2;
  return number <= std::numeric_limits<std::uint32_t>::max() ? 4 : MAX_STEP_SIZE;
}

std::uint64_t load_of_size(const unsigned char* bytes, unsigned char size) {
  switch (size) {
    case 0:
      return 0;
    case 1:
      return *bytes;
    case 2:
      return load<std::uint16_t>(bytes);
    case 4:
      return load<std::uint32_t>(bytes);
    default:
      return load<std::uint64_t>(bytes);
  }
}

void append_of_size(std::uint64_t number, unsigned char size, std::vector<unsigned char>& bytes) {
  for (unsigned char i = size; i > 0; --i) {
    bytes.push_back(static_cast<unsigned char>(number >> 8 * (i - 1)));
  }
}

}  // namespace

void encode_times(std::span<const std::int64_t> times, std::vector<unsigned char>& bytes) {
  std::vector<std::uint64_t> steps;
  for (std::size_t i = 1; i < times.size(); ++i) {
    steps.push_back(static_cast<std::uint64_t>(times[i] - times[i - 1]));
  }
  const auto [least, greatest] = std::minmax_element(steps.begin(), steps.end());
  const std::uint64_t base = steps.empty() ? 0 : *least;
  const unsigned char size = steps.empty() ? 0 : get_size(*greatest - base);
  bytes.push_back(size);
  append(base, bytes);
  for (const std::uint64_t step : steps) append_of_size(step - base, size, bytes);
}

bool decode_times(std::span<const unsigned char> bytes, std::int64_t latest,
                  std::span<std::int64_t> times) {
  constexpr std::size_t HEAD = 9;
  if (times.empty() || bytes.size() < HEAD) return false;
  const unsigned char size = bytes[0];
  if (size != 0 && size != 1 && size != 2 && size != 4 && size != MAX_STEP_SIZE) return false;
  if (bytes.size() != HEAD + size * (times.size() - 1)) return false;
  const auto base = load<std::uint64_t>(&bytes[1]);
  if (times.front() > latest) return false;
  for (std::size_t i = 1; i < times.size(); ++i) {
    const std::uint64_t more = load_of_size(bytes.data() + HEAD + size * (i - 1), size);
    const auto left = static_cast<std::uint64_t>(latest - times[i - 1]);
    if (base > left || more > left - base || base + more == 0) return false;
    times[i] = times[i - 1] + static_cast<std::int64_t>(base + more);
  }
  return true;
}

}  // namespace toolkit::trend
