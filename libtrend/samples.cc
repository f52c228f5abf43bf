#include "libtrend/samples.h"

#include <bit>
#include <cstdint>
#include <limits>

namespace toolkit::trend {

namespace {

static_assert(std::numeric_limits<double>::is_iec559 && sizeof(double) == 8);
constexpr std::size_t VALUE_SIZE = 8;
constexpr double LACKING = std::numeric_limits<double>::quiet_NaN();

double load_big_endian(const unsigned char* bytes) {
  std::uint64_t bits = 0;
  for (std::size_t i = 0; i < VALUE_SIZE; ++i) bits = bits << 8 | bytes[i];
  return std::bit_cast<double>(bits);
}

void store_big_endian(double value, unsigned char* bytes) {
  const auto bits = std::bit_cast<std::uint64_t>(value);
  for (std::size_t i = 0; i < VALUE_SIZE; ++i) {
    bytes[i] = static_cast<unsigned char>(bits >> (8 * (VALUE_SIZE - 1 - i)));
  }
}

}  // namespace

bool unpack_samples(const unsigned char* bytes, std::size_t size,
                    const std::vector<CParamProperties>& params, std::vector<CSample>& samples) {
  if (size % VALUE_SIZE != 0) return false;
  const std::size_t slots = size / VALUE_SIZE;
  samples.reserve(params.size());
  for (const CParamProperties& param : params) {
    std::size_t slot = param.aux_1;
    const auto value = [&](bool has_value) {
      if (!has_value || slot >= slots) return LACKING;
      return load_big_endian(bytes + VALUE_SIZE * slot++);
    };
    // The braces evaluate from left to right, which is the order of the slots.
    samples.push_back(CSample{value(param.has_min), value(param.has_max), value(param.has_avg),
                              value(param.has_actual), value(param.has_sum)});
  }
  return true;
}

std::vector<unsigned char> pack_samples(std::span<const double> slots) {
  std::vector<unsigned char> bytes(VALUE_SIZE * slots.size());
  for (std::size_t i = 0; i < slots.size(); ++i) {
    store_big_endian(slots[i], bytes.data() + VALUE_SIZE * i);
  }
  return bytes;
}

}  // namespace toolkit::trend
