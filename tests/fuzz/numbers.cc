// Numbers as text: the writer against printf of the C library, and the reader against strtod.
#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <cstring>

#include "tests/fuzz/fuzz.h"
#include "tests/support/number_samples.h"
#include "text/csv.h"

namespace {

/// A value prints as the C library prints it, and is read back as a value that prints the same.
void check_value(double value) {
  const std::string text = formatted(value);
  demand_equal(text, reference_text(value), "a number is printed wrong");
  double again = 0;
  if (std::isnan(value)) return;
  demand(read_value(text, again), "a printed number can't be read: " + text);
  demand_equal(formatted(again), text, "a number that was read prints in another way");
}

/// Whether `text` is a number in decimal notation, with a minus sign or none.
bool is_decimal(const std::string& text) {
  std::size_t i = text.starts_with('-') ? 1 : 0;
  const auto pass_digits = [&] {
    const std::size_t start = i;
    while (i < text.size() && text[i] >= '0' && text[i] <= '9') ++i;
    return i - start;
  };
  std::size_t digits = pass_digits();
  if (i < text.size() && text[i] == '.') {
    ++i;
    digits += pass_digits();
  }
  if (digits == 0) return false;
  if (i < text.size() && (text[i] == 'e' || text[i] == 'E')) {
    ++i;
    if (i < text.size() && (text[i] == '+' || text[i] == '-')) ++i;
    if (pass_digits() == 0) return false;
  }
  return i == text.size();
}

/// What is read as a number is the one that strtod finds, or one that prints as the same text.
void check_text(const std::string& text) {
  double value = 0;
  const bool is_read = read_value(text, value);
  if (text.empty()) {
    demand(is_read && std::isnan(value), "an empty text is not a missing value");
    return;
  }
  char* end = nullptr;
  errno = 0;
  const double expected = std::strtod(text.c_str(), &end);
  const bool is_number = end == text.c_str() + text.size();
  const bool is_in_range = errno == 0;
  if (is_read) {
    demand(is_number, "a text that is not a number is read: " + text);
    if (std::bit_cast<std::uint64_t>(value) != std::bit_cast<std::uint64_t>(expected)) {
      demand_equal(formatted(value), text, "a number is read wrong");
    }
  } else {
    demand(!is_decimal(text) || !is_in_range, "a number is refused: " + text);
  }
  double ratio = 0;
  if (read_percent(text, ratio)) {
    demand(is_read && ratio >= 0 && ratio <= 1, "a percentage is out of its range: " + text);
  }
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  check_text({reinterpret_cast<const char*>(data), size});
  for (std::size_t i = 0; i + sizeof(double) <= size; i += sizeof(double)) {
    double value = 0;
    std::memcpy(&value, data + i, sizeof value);
    check_value(value);
    // A value like those of a sensor, too: random bits are rarely near the usual sizes.
    int ignored = 0;
    check_value(std::ldexp(std::frexp(value, &ignored), static_cast<int>(data[i] % 128) - 40));
  }
  return 0;
}
