#include "libtrend/sqlite/samples.h"

#include <bit>
#include <cstdint>
#include <cstring>
#include <limits>

#include "libtrend/statistics.h"

namespace toolkit::trend {

namespace {

static_assert(std::numeric_limits<double>::is_iec559 && sizeof(double) == 8);
constexpr std::size_t VALUE_SIZE = 8;
constexpr double LACKING = std::numeric_limits<double>::quiet_NaN();

/// Converts bits from the byte order of this machine to big-endian, or back.
std::uint64_t swap_to_big_endian(std::uint64_t bits) {
  return std::endian::native == std::endian::big ? bits : __builtin_bswap64(bits);
}

double load_big_endian(const unsigned char* bytes) {
  std::uint64_t bits = 0;
  std::memcpy(&bits, bytes, VALUE_SIZE);
  return std::bit_cast<double>(swap_to_big_endian(bits));
}

void store_big_endian(double value, unsigned char* bytes) {
  const std::uint64_t bits = swap_to_big_endian(std::bit_cast<std::uint64_t>(value));
  std::memcpy(bytes, &bits, VALUE_SIZE);
}

}  // namespace

bool unpack_samples(std::span<const unsigned char> bytes,
                    const std::vector<CParamProperties>& params, std::vector<CSample>& samples) {
  if (bytes.size() % VALUE_SIZE != 0) return false;
  const std::size_t slots = bytes.size() / VALUE_SIZE;
  const unsigned char* const end = bytes.data() + bytes.size();
  samples.assign(params.size(), CSample{LACKING, LACKING, LACKING, LACKING, LACKING});
  CSample* sample = samples.data();
  for (const CParamProperties& param : params) {
    const unsigned char* value =
        param.aux_1 < slots ? bytes.data() + VALUE_SIZE * param.aux_1 : end;
    for (const Statistic& statistic : STATISTICS) {
      if (!(param.*statistic.flag) || value == end) continue;
      sample->*statistic.member = load_big_endian(value);
      value += VALUE_SIZE;
    }
    ++sample;
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
