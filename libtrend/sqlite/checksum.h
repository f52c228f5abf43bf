// The checksum of the database format.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace toolkit::trend {

/// Returns the CRC-32C (Castagnoli; RFC 3720, appendix B.4) of `bytes`. For bytes in several parts,
/// `previous` is the checksum of the parts before.
[[nodiscard]] std::uint32_t get_checksum(std::span<const unsigned char> bytes,
                                         std::uint32_t previous = 0);

/// The same without the instruction that some processors have for it.
[[nodiscard]] std::uint32_t get_checksum_by_tables(std::span<const unsigned char> bytes,
                                                   std::uint32_t previous = 0);

}  // namespace toolkit::trend
