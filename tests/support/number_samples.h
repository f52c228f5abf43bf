// Doubles to test the text of numbers with, and the text that is expected.
#pragma once

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

#include "text/number.h"

/// The expected text, made by the C library alone.
inline std::string reference_text(double v) {
  int precision = 6;
  if (v != 0 && std::isfinite(v)) {
    const int digits = static_cast<int>(std::trunc(std::log10(std::fabs(v)))) + 1;
    precision = digits <= 5 ? 6 : digits;
  }
  char text[512];
  const int length = std::snprintf(text, sizeof text, "%.*G", precision, v);
  return {text, static_cast<std::size_t>(length)};
}

/// The text that format_value writes into a buffer of MAX_VALUE_TEXT bytes.
inline std::string formatted(double v) {
  static std::vector<char> buffer(MAX_VALUE_TEXT);
  return {buffer.data(), format_value(v, buffer.data())};
}

/// The double that is that many representable values away, in the order of their bits.
inline double neighbour(double v, std::int64_t steps) {
  return std::bit_cast<double>(std::bit_cast<std::uint64_t>(v) + static_cast<std::uint64_t>(steps));
}

inline double power_of_ten(int exponent) {
  return std::strtod(("1e" + std::to_string(exponent)).c_str(), nullptr);
}

/// The smallest double whose log10 reaches the exponent, where the precision changes. It is
/// searched for among that many doubles on both sides of 10^exponent.
inline double switch_of_precision(int exponent, std::int64_t reach = 4096) {
  const double power = power_of_ten(exponent);
  std::int64_t below = -reach;
  std::int64_t reached = reach;
  while (reached - below > 1) {
    const std::int64_t middle = below + (reached - below) / 2;
    (std::log10(neighbour(power, middle)) >= exponent ? reached : below) = middle;
  }
  return neighbour(power, reached);
}

/// An endless sequence of doubles of one kind.
class Samples {
 public:
  enum Kind {
    RANDOM_BITS,       ///< any finite double, both signs
    UNIFORM,           ///< uniform in +-10^k for k of 0 to 16
    ANY_MAGNITUDE,     ///< random mantissas and magnitudes, 1e-10 to 1e17
    DECIMAL,           ///< one to nine decimal places
    WHOLE,             ///< integers of any length up to 19 digits
    HALF,              ///< k + 0.5, and its nearest neighbours
    DYADIC,            ///< few binary fraction bits, with exact ties of six digits
    SIX_DIGIT_TIE,     ///< next to the middle of two numbers of six digits
    NEAR_POWER,        ///< within 64 doubles of any power of ten, 1e-320 to 1e308
    NEAR_SWITCH,       ///< around the doubles where log10 reaches the next integer
    NEAR_ROUNDING_UP,  ///< around 999999.5, 99999.95, ..., which round up to a power of ten
    NEAR_SEAM,         ///< within 70 of the powers 1e5 to 1e16, not whole
    SUBNORMAL,
    KIND_COUNT
  };

  Samples(Kind kind, std::uint64_t seed) : kind_(kind), random_(seed) {}

  double next() {
    const double v = std::fabs(positive());
    return std::isnan(v) ? 0.0 : below(2) ? -v : v;
  }

 private:
  std::uint64_t below(std::uint64_t end) { return random_() % end; }
  double fraction() { return static_cast<double>(random_() >> 11) * 0x1p-53; }
  int between(int first, int last) {
    return first + static_cast<int>(below(static_cast<std::uint64_t>(last - first) + 1));
  }
  double near(double v, int steps) { return neighbour(v, between(-steps, steps)); }
  double whole_below(double end) {
    return static_cast<double>(below(static_cast<std::uint64_t>(end)));
  }
  double whole() { return whole_below(ten(between(1, 19))); }

  // Powers of ten come from a table, because a check needs hundreds of millions.
  static double ten(int exponent) {
    static const std::vector<double> POWERS = [] {
      std::vector<double> powers;
      for (int i = -320; i <= 308; ++i) powers.push_back(power_of_ten(i));
      return powers;
    }();
    const int index = exponent + 320;
    return POWERS[static_cast<std::size_t>(index)];
  }
  static double switched(int exponent) {
    static const std::vector<double> SWITCHES = [] {
      std::vector<double> switches;
      for (int i = 5; i <= 308; ++i) switches.push_back(switch_of_precision(i));
      return switches;
    }();
    return SWITCHES[static_cast<std::size_t>(exponent - 5)];
  }

  double positive() {
    switch (kind_) {
      case RANDOM_BITS: {
        const auto v = std::bit_cast<double>(random_());
        return std::isfinite(v) ? v : 0;
      }
      case UNIFORM:
        return fraction() * ten(between(0, 16));
      case ANY_MAGNITUDE:
        return (1 + 9 * fraction()) * ten(between(-10, 16));
      case DECIMAL: {
        const int places = between(1, 9);
        return whole_below(ten(between(places, 15))) / ten(places);
      }
      case WHOLE:
        return whole();
      case HALF:
        return near(whole() + 0.5, below(2) ? 0 : 2);
      case DYADIC:
        return std::ldexp(static_cast<double>(below(std::uint64_t{1} << between(1, 53))),
                          -between(0, 40));
      case SIX_DIGIT_TIE: {
        const double tie = static_cast<double>(100000 + below(900000)) + 0.5;
        const int exponent = between(-15, 12);
        return near(exponent < 0 ? tie / ten(-exponent) : tie * ten(exponent), 2);
      }
      case NEAR_POWER: {
        const double v = ten(between(-320, 308));
        const auto steps = std::min<std::uint64_t>(64, std::bit_cast<std::uint64_t>(v));
        return near(v, static_cast<int>(steps));
      }
      case NEAR_SWITCH: {
        const int exponent = below(2) ? between(5, 16) : between(5, 308);
        return near(switched(exponent), 1 << between(0, 12));
      }
      case NEAR_ROUNDING_UP: {
        const int digits = between(1, 17);
        return near((ten(digits) - 0.5) / ten(between(0, digits + 9)), 64);
      }
      case NEAR_SEAM:
        return ten(between(5, 16)) + (fraction() - 0.5) * 140;
      case SUBNORMAL:
        return std::bit_cast<double>(random_() >> between(12, 63));
      case KIND_COUNT:
        break;
    }
    return 0;
  }

  Kind kind_;
  std::mt19937_64 random_;
};
