#include "libtrend/sqlite/checksum.h"

#include <array>
#include <bit>
#include <cstring>

namespace toolkit::trend {

namespace {

constexpr std::uint32_t POLYNOMIAL = 0x82F63B78;  // bits reversed
constexpr std::size_t WORD = 8;

/// What a byte does to the checksum when `i` more bytes follow it.
constexpr auto CRC_TABLES = [] {
  std::array<std::array<std::uint32_t, 256>, WORD> tables{};
  for (std::uint32_t byte = 0; byte < 256; ++byte) {
    std::uint32_t crc = byte;
    for (int bit = 0; bit < 8; ++bit) crc = crc >> 1 ^ ((crc & 1) != 0 ? POLYNOMIAL : 0);
    tables[0][byte] = crc;
  }
  for (std::size_t i = 1; i < WORD; ++i) {
    for (std::size_t byte = 0; byte < 256; ++byte) {
      const std::uint32_t crc = tables[i - 1][byte];
      tables[i][byte] = crc >> 8 ^ tables[0][crc & 0xFF];
    }
  }
  return tables;
}();

std::uint32_t load_little_endian(const unsigned char* bytes) {
  std::uint32_t word = 0;
  std::memcpy(&word, bytes, sizeof word);
  return std::endian::native == std::endian::little ? word : __builtin_bswap32(word);
}

/// Continues a checksum, eight bytes at a time by tables.
std::uint32_t update_by_tables(std::uint32_t crc, const unsigned char* bytes, std::size_t size) {
  for (; size >= WORD; size -= WORD, bytes += WORD) {
    const std::uint32_t low = crc ^ load_little_endian(bytes);
    const std::uint32_t high = load_little_endian(bytes + 4);
    crc = CRC_TABLES[7][low & 0xFF] ^ CRC_TABLES[6][low >> 8 & 0xFF] ^
          CRC_TABLES[5][low >> 16 & 0xFF] ^ CRC_TABLES[4][low >> 24] ^ CRC_TABLES[3][high & 0xFF] ^
          CRC_TABLES[2][high >> 8 & 0xFF] ^ CRC_TABLES[1][high >> 16 & 0xFF] ^
          CRC_TABLES[0][high >> 24];
  }
  for (; size > 0; --size, ++bytes) crc = crc >> 8 ^ CRC_TABLES[0][(crc ^ *bytes) & 0xFF];
  return crc;
}

#ifdef __x86_64__
/// The same by the instruction that some processors have for this very checksum.
[[gnu::target("sse4.2")]] std::uint32_t update_by_instruction(std::uint32_t crc,
                                                              const unsigned char* bytes,
                                                              std::size_t size) {
  std::uint64_t wide = crc;
  for (; size >= WORD; size -= WORD, bytes += WORD) {
    std::uint64_t word = 0;
    std::memcpy(&word, bytes, sizeof word);
    wide = __builtin_ia32_crc32di(wide, word);
  }
  crc = static_cast<std::uint32_t>(wide);
  for (; size > 0; --size, ++bytes) crc = __builtin_ia32_crc32qi(crc, *bytes);
  return crc;
}

const bool HAS_INSTRUCTION = __builtin_cpu_supports("sse4.2") != 0;
#endif

}  // namespace

std::uint32_t get_checksum(std::span<const unsigned char> bytes, std::uint32_t previous) {
#ifdef __x86_64__
  if (HAS_INSTRUCTION) return ~update_by_instruction(~previous, bytes.data(), bytes.size());
#endif
  return get_checksum_by_tables(bytes, previous);
}

std::uint32_t get_checksum_by_tables(std::span<const unsigned char> bytes, std::uint32_t previous) {
  return ~update_by_tables(~previous, bytes.data(), bytes.size());
}

}  // namespace toolkit::trend
