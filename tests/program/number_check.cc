// Compares the text of very many doubles with that of the C library: a longer version of
// number_test.
//   number_check [count = 100000000] [seed = 1]
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>

#include "tests/support/number_samples.h"

namespace {

bool same(double v) {
  const std::string expected = reference_text(v);
  const std::string actual = formatted(v);
  if (actual == expected) return true;
  std::printf("\nmismatch for %a = %.17g: \"%s\" instead of \"%s\"\n", v, v, actual.c_str(),
              expected.c_str());
  return false;
}

// Checks every double near the powers of ten and the changes of precision, as far as the count
// allows.
bool check_switches(std::uint64_t count) {
  const auto steps = static_cast<std::int64_t>(std::min<std::uint64_t>(20000, count / 1000));
  for (int exponent = 5; exponent <= 17; ++exponent) {
    const double power = power_of_ten(exponent);
    for (const double centre : {power, power - 64, power + 64, power - 0.5}) {
      for (std::int64_t i = -steps; i <= steps; ++i) {
        if (!same(neighbour(centre, i))) return false;
      }
    }
    std::printf("log10 gives %d from %+.0f doubles on\n", exponent,
                static_cast<double>(static_cast<std::int64_t>(
                    std::bit_cast<std::uint64_t>(switch_of_precision(exponent)) -
                    std::bit_cast<std::uint64_t>(power))));
  }
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  const std::uint64_t count = argc > 1 ? std::strtoull(argv[1], nullptr, 10) : 100000000;
  const std::uint64_t seed = argc > 2 ? std::strtoull(argv[2], nullptr, 10) : 1;
  const std::uint64_t share = count / Samples::KIND_COUNT + 1;

  if (!check_switches(count)) return EXIT_FAILURE;
  for (int kind = 0; kind < Samples::KIND_COUNT; ++kind) {
    const auto start = std::chrono::steady_clock::now();
    Samples samples(static_cast<Samples::Kind>(kind),
                    seed * Samples::KIND_COUNT + static_cast<std::uint64_t>(kind));
    for (std::uint64_t i = 0; i < share; ++i) {
      if (!same(samples.next())) return EXIT_FAILURE;
    }
    const std::chrono::duration<double> spent = std::chrono::steady_clock::now() - start;
    std::printf("kind %d of %d: %llu equal, %.0f s\n", kind + 1,
                static_cast<int>(Samples::KIND_COUNT), static_cast<unsigned long long>(share),
                spent.count());
    std::fflush(stdout);
  }
  std::printf("%llu equal\n", static_cast<unsigned long long>(share) * Samples::KIND_COUNT);
  return EXIT_SUCCESS;
}
