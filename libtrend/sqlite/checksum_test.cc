#include "libtrend/sqlite/checksum.h"

#include <gtest/gtest.h>

#include <numeric>
#include <random>
#include <string_view>
#include <vector>

namespace toolkit::trend {
namespace {

using Bytes = std::vector<unsigned char>;

std::uint32_t both(const Bytes& bytes) {
  EXPECT_EQ(get_checksum(bytes), get_checksum_by_tables(bytes));
  return get_checksum(bytes);
}

TEST(Checksum, HasTheValuesOfItsStandard) {
  // RFC 3720, appendix B.4; and the check value that catalogues of checksums list.
  EXPECT_EQ(both(Bytes(32, 0)), 0x8A9136AAU);
  EXPECT_EQ(both(Bytes(32, 0xFF)), 0x62A8AB43U);
  Bytes rising(32);
  std::iota(rising.begin(), rising.end(), 0);
  EXPECT_EQ(both(rising), 0x46DD794EU);
  EXPECT_EQ(both(Bytes(rising.rbegin(), rising.rend())), 0x113FDB5CU);
  const std::string_view digits = "123456789";
  EXPECT_EQ(both(Bytes(digits.begin(), digits.end())), 0xE3069283U);
  EXPECT_EQ(both({}), 0U);
}

TEST(Checksum, ContinuesOverParts) {
  std::mt19937 random(1);
  Bytes bytes(200);
  for (unsigned char& byte : bytes) byte = static_cast<unsigned char>(random());
  const std::span<const unsigned char> all(bytes);
  for (std::size_t size = 0; size <= bytes.size(); ++size) {
    const std::uint32_t whole = both(Bytes(bytes.begin(), bytes.begin() + std::ptrdiff_t(size)));
    for (std::size_t split = 0; split <= size; split += 7) {
      EXPECT_EQ(get_checksum(all.subspan(split, size - split), get_checksum(all.first(split))),
                whole);
    }
  }
}

TEST(Checksum, ChangesWithEveryBit) {
  Bytes bytes(100, 0xA5);
  const std::uint32_t before = get_checksum(bytes);
  for (std::size_t bit = 0; bit < 8 * bytes.size(); ++bit) {
    bytes[bit / 8] = static_cast<unsigned char>(bytes[bit / 8] ^ 1U << bit % 8);
    EXPECT_NE(get_checksum(bytes), before);
    bytes[bit / 8] = static_cast<unsigned char>(bytes[bit / 8] ^ 1U << bit % 8);
  }
}

}  // namespace
}  // namespace toolkit::trend
