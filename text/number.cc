#include "text/number.h"

#include <algorithm>
#include <array>
#include <bit>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstring>

namespace {

constexpr int SIX_DIGITS = 6;

// Fields of an IEEE 754 double.
constexpr int MANTISSA_BITS = 52;
constexpr int EXPONENT_BIAS = 1023;
constexpr std::uint64_t SIGN_BIT = std::uint64_t{1} << 63;
constexpr std::uint64_t HIDDEN_BIT = std::uint64_t{1} << MANTISSA_BITS;

constexpr std::uint64_t bits_of(double v) { return std::bit_cast<std::uint64_t>(v); }

// 5^13 is the largest power of five below 2^32. So for values from 1e-8 on two multiplications with
// 32-bit factors are enough for six digits.
constexpr int MIN_EXPONENT = -8;
constexpr std::array<std::uint32_t, 14> POWERS_OF_FIVE = {
    1,     5,      25,      125,     625,      3125,      15625,
    78125, 390625, 1953125, 9765625, 48828125, 244140625, 1220703125};

// Positive doubles have the same order as their bits. It does not matter on which side of 10^k the
// doubles next to it are counted: either way they round to the digits of 10^k.
constexpr std::array<std::uint64_t, 15> POWER_OF_TEN_BITS = {
    bits_of(1e-8), bits_of(1e-7), bits_of(1e-6), bits_of(1e-5), bits_of(1e-4),
    bits_of(1e-3), bits_of(1e-2), bits_of(1e-1), bits_of(1e0),  bits_of(1e1),
    bits_of(1e2),  bits_of(1e3),  bits_of(1e4),  bits_of(1e5),  bits_of(1e6)};

constexpr auto POWERS_OF_TEN = [] {
  std::array<std::uint64_t, 17> powers{};
  std::uint64_t power = 1;
  for (auto& entry : powers) {
    entry = power;
    power *= 10;
  }
  return powers;
}();

// Near a power of ten, from 1e6 on, the precision depends on the last bits of log10. If log10 is
// wrong by five units in its last place, the value at which the precision changes moves by less
// than 32 at 1e15, and by less at smaller powers. Values that are closer than this to a power of
// ten are left to the library.
constexpr std::uint64_t SEAM = 64;

constexpr std::uint64_t HUNDRED_MILLION = 100000000;

constexpr std::uint64_t SIX_DIGIT_BEGIN = bits_of(1e-8);
constexpr std::uint64_t SIX_DIGIT_END = bits_of(1e6 - double{SEAM});
constexpr std::uint64_t INTEGER_END = bits_of(0x1p52);

// The two digits of the numbers from 0 to 99, one digit per byte.
constexpr auto DIGIT_PAIRS = [] {
  std::array<std::uint16_t, 100> pairs{};
  for (unsigned i = 0; i < 100; ++i) pairs[i] = static_cast<std::uint16_t>(i / 10 << 8 | i % 10);
  return pairs;
}();

constexpr std::uint64_t ASCII_ZEROS = 0x3030303030303030;

// The four digits of `n`, one per byte. The first digit is in the highest byte.
inline std::uint32_t four_digits(std::uint32_t n) {
  return std::uint32_t{DIGIT_PAIRS[n / 100]} << 16 | DIGIT_PAIRS[n % 100];
}

// The eight digits of `n` in the same way.
inline std::uint64_t eight_digits(std::uint32_t n) {
  return std::uint64_t{four_digits(n / 10000)} << 32 | four_digits(n % 10000);
}

// Writes eight digits, that of the highest byte first.
inline void write_digits(std::uint64_t digits, char* out) {
  digits |= ASCII_ZEROS;
  if constexpr (std::endian::native == std::endian::little) digits = __builtin_bswap64(digits);
  std::memcpy(out, &digits, sizeof digits);
}

// The exact value of a positive double is mantissa * 2^exponent.
inline std::uint64_t mantissa_of(std::uint64_t bits) {
  return (bits & (HIDDEN_BIT - 1)) | HIDDEN_BIT;
}
inline int exponent_of(std::uint64_t bits) {
  return static_cast<int>(bits >> MANTISSA_BITS) - EXPONENT_BIAS - MANTISSA_BITS;
}

// n / 2^shift, rounded to the nearest integer, and to the even one of two that are equally near.
inline std::uint64_t rounded_shift(std::uint64_t n, int shift) {
  const std::uint64_t half = std::uint64_t{1} << (shift - 1);
  return (n + half - 1 + (n >> shift & 1)) >> shift;
}

// A value as a number of six digits and a decimal exponent.
struct SixDigits {
  std::uint32_t digits;
  int exponent;
};

// For a value from 1e-8 to below 1e6.
inline SixDigits round_to_six_digits(std::uint64_t bits) {
  const int binary_exponent = static_cast<int>(bits >> MANTISSA_BITS) - EXPONENT_BIAS;
  int exponent = (binary_exponent * 1233) >> 12;  // floor(log10(2^binary_exponent))
  exponent += bits >= POWER_OF_TEN_BITS[static_cast<unsigned>(exponent + 1 - MIN_EXPONENT)];

  // value * 10^scale = mantissa * 5^scale / 2^shift, which is from 1e5 to below 1e6. The product
  // has 84 bits and is exact. As shift is above 32, only one thing about its lowest 32 bits matters
  // to the rounding: whether they are all zero.
  const int scale = SIX_DIGITS - 1 - exponent;
  const int shift = -exponent_of(bits) - scale;
  const std::uint64_t mantissa = mantissa_of(bits);
  const std::uint64_t power = POWERS_OF_FIVE[static_cast<unsigned>(scale)];
  const std::uint64_t low = (mantissa & 0xFFFFFFFF) * power;
  const std::uint64_t high = (mantissa >> 32) * power + (low >> 32);
  const std::uint64_t sticky = static_cast<std::uint32_t>(low) != 0;
  auto digits = static_cast<std::uint32_t>(rounded_shift(high << 1 | sticky, shift - 31));
  if (digits == 1000000) {
    digits = 100000;
    ++exponent;
  }
  return {digits, exponent};
}

// Writes a value from 1e-8 to below 1e6.
char* write_six_digits(std::uint64_t bits, char* out) {
  const auto [value, exponent] = round_to_six_digits(bits);
  const std::uint64_t digits = std::uint64_t{DIGIT_PAIRS[value / 10000]} << 48 |
                               std::uint64_t{four_digits(value % 10000)} << 16;
  // The number of digits without the zeros at the end.
  const int count = 8 - std::countr_zero(digits) / 8;

  if (exponent < 0 && exponent >= -4) {
    std::memcpy(out, "0.000000", 8);
    out += 1 - exponent;
    write_digits(digits, out);
    return out + count;
  }
  const int whole = std::max(exponent, 0) + 1;  // digits before the point
  write_digits(digits, out);
  out[whole] = '.';
  write_digits(digits << 8 * whole, out + whole + 1);
  out += count > whole ? count + 1 : whole;
  if (exponent < 0) {
    std::memcpy(out, "E-0", 3);
    out[3] = static_cast<char>('0' - exponent);
    out += 4;
  }
  return out;
}

// Writes a value from 1e6 to below 2^52 as an integer. Returns null, with nothing written, for a
// value that is less than SEAM away from a power of ten.
char* write_integer(std::uint64_t bits, char* out) {
  const std::uint64_t n = rounded_shift(mantissa_of(bits), -exponent_of(bits));
  // This is floor(log10(2^width)). It is one too small for the larger numbers of this width.
  unsigned length = static_cast<unsigned>(std::bit_width(n)) * 1233 >> 12;
  length += n >= POWERS_OF_TEN[length];
  if (n + SEAM >= POWERS_OF_TEN[length] || n < POWERS_OF_TEN[length - 1] + SEAM) return nullptr;

  if (n < HUNDRED_MILLION) {
    write_digits(eight_digits(static_cast<std::uint32_t>(n)) << 8 * (8 - length), out);
    return out + length;
  }
  // n / 10^8, calculated from the upper 31 of the 52 bits of n: a 32-bit machine does that with two
  // multiplications. The quotient is exact or one too small, because rounding 2^58 / 10^8 and n
  // down makes it smaller by less than 1/16 each.
  std::uint64_t first = (n >> 21) * ((std::uint64_t{1} << 58) / HUNDRED_MILLION) >> 37;
  std::uint64_t last = n - first * HUNDRED_MILLION;
  if (last >= HUNDRED_MILLION) {
    ++first;
    last -= HUNDRED_MILLION;
  }
  write_digits(eight_digits(static_cast<std::uint32_t>(first)) << 8 * (16 - length), out);
  write_digits(eight_digits(static_cast<std::uint32_t>(last)), out + length - 8);
  return out + length;
}

// Writes any other value above zero, infinity or NaN. The library calculates the precision and the
// digits.
char* write_any(double v, char* out) {
  if (!std::isfinite(v)) {
    std::memcpy(out, std::isnan(v) ? "NAN" : "INF", 3);
    return out + 3;
  }
  const int precision = std::max(SIX_DIGITS, static_cast<int>(std::log10(v)) + 1);
  char* const end =
      std::to_chars(out, out + MAX_VALUE_TEXT - 1, v, std::chars_format::general, precision).ptr;
  if (void* const mark = std::memchr(out, 'e', static_cast<std::size_t>(end - out))) {
    *static_cast<char*>(mark) = 'E';
  }
  return end;
}

}  // namespace

char* format_value(double v, char* buffer) {
  const std::uint64_t bits = bits_of(v) & ~SIGN_BIT;
  *buffer = '-';
  char* const out = buffer + (bits_of(v) >> 63);

  if (bits >= SIX_DIGIT_BEGIN && bits < SIX_DIGIT_END) return write_six_digits(bits, out);
  if (bits == 0) {
    *out = '0';
    return out + 1;
  }
  if (bits >= SIX_DIGIT_END && bits < INTEGER_END) {
    if (char* const end = write_integer(bits, out)) return end;
  }
  return write_any(std::bit_cast<double>(bits), out);
}
