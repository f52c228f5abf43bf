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

bool unpack_samples(std::span<const unsigned char> bytes,
                    const std::vector<CParamProperties>& params, std::vector<CSample>& samples) {
  if (bytes.size() % VALUE_SIZE != 0) return false;
  const std::size_t slots = bytes.size() / VALUE_SIZE;
  samples.resize(params.size());
  for (std::size_t i = 0; i < params.size(); ++i) {
    const CParamProperties& param = params[i];
    CSample& sample = samples[i];
    std::size_t slot = param.aux_1;
    const auto next = [&] {
      return slot < slots ? load_big_endian(bytes.data() + VALUE_SIZE * slot++) : LACKING;
    };
    sample.min = param.has_min ? next() : LACKING;
    sample.max = param.has_max ? next() : LACKING;
    sample.avg = param.has_avg ? next() : LACKING;
    sample.actual = param.has_actual ? next() : LACKING;
    sample.sum = param.has_sum ? next() : LACKING;
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
