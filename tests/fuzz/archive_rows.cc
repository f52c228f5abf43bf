// The values of a row of an archive, as the server sends them: against a simple reader of the same
// bytes.
#include <fuzzer/FuzzedDataProvider.h>

#include <bit>
#include <limits>
#include <optional>

#include "libtrend/postgres/slot_runs.h"
#include "libtrend/statistics.h"
#include "tests/fuzz/fuzz.h"
#include "tests/support/made_result.h"

using namespace toolkit::trend;

namespace {

constexpr double MISSING = std::numeric_limits<double>::quiet_NaN();

/// A number of four bytes at `place`; nothing after the end of `bytes`.
std::optional<std::uint64_t> number_at(const std::string& bytes, std::size_t place,
                                       std::size_t size = 4) {
  if (place + size > bytes.size()) return {};
  std::uint64_t number = 0;
  for (std::size_t i = 0; i < size; ++i) {
    number = number << 8 | static_cast<unsigned char>(bytes[place + i]);
  }
  return number;
}

/// The first `count` values of an array of float8, with missing ones where it is shorter. Nothing
/// if `bytes` are not such an array.
std::optional<std::vector<double>> read_array(const std::string& bytes, std::size_t count) {
  std::vector<double> values(count, MISSING);
  const auto dimensions = number_at(bytes, 0);
  if (!dimensions || number_at(bytes, 8) != 701U) return {};
  if (*dimensions == 0) return values;
  const auto length = number_at(bytes, 12);
  if (*dimensions != 1 || !length || number_at(bytes, 16) != 1U) return {};
  std::size_t place = 20;
  for (std::size_t i = 0; i < count && i < *length; ++i) {
    const auto size = number_at(bytes, place);
    place += 4;
    if (size == 0xFFFFFFFFU) continue;
    const auto bits = number_at(bytes, place, 8);
    if (size != 8U || !bits) return {};
    values[i] = std::bit_cast<double>(*bits);
    place += 8;
  }
  return values;
}

/// Makes an array as the server sends it, in which a few bytes may be changed.
std::string make_array(FuzzedDataProvider& input) {
  const auto length = input.ConsumeIntegralInRange<std::uint32_t>(0, 8);
  std::string bytes;
  append_number(length == 0 ? 0 : 1, 4, bytes);
  append_number(1, 4, bytes);
  append_number(701, 4, bytes);
  if (length > 0) {
    append_number(length, 4, bytes);
    append_number(1, 4, bytes);
  }
  for (std::uint32_t i = 0; i < length; ++i) {
    const bool is_null = input.ConsumeIntegralInRange(0, 3) == 0;
    append_number(is_null ? 0xFFFFFFFF : 8, 4, bytes);
    if (!is_null) append_number(input.ConsumeIntegral<std::uint64_t>(), 8, bytes);
  }
  for (int left = input.ConsumeIntegralInRange(0, 2); left > 0; --left) {
    const auto place = input.ConsumeIntegralInRange<std::size_t>(0, bytes.size() - 1);
    bytes[place] = static_cast<char>(input.ConsumeIntegral<std::uint8_t>());
    if (input.ConsumeIntegralInRange(0, 3) == 0) bytes.resize(place + 1);
  }
  return bytes;
}

std::string make_column(FuzzedDataProvider& input) {
  return input.ConsumeBool() ? make_array(input) : input.ConsumeRandomLengthString();
}

bool is_same(double a, double b) {
  return std::bit_cast<std::uint64_t>(a) == std::bit_cast<std::uint64_t>(b) || (a != a && b != b);
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  FuzzedDataProvider input(data, size);
  // Two parameters with a gap between their slots are two columns.
  CParamProperties first;
  set_statistics(first, input.ConsumeIntegralInRange<std::uint32_t>(1, ALL_STATISTICS));
  CParamProperties second;
  set_statistics(second, input.ConsumeIntegralInRange<std::uint32_t>(1, ALL_STATISTICS));
  const std::size_t first_size = get_slot(first, STATISTICS.size());
  second.aux_1 = 1000;
  const std::size_t second_size = get_slot(second, STATISTICS.size()) - second.aux_1;

  const std::string column = make_column(input);
  const std::vector<std::string> columns = {column, make_column(input)};
  const Result result = make_result(columns);
  SlotRuns runs({first, second});
  std::vector<CSample> samples;
  const bool is_read = runs.unpack(result, 0, 0, samples);

  const auto expected = read_array(columns[0], first_size);
  const auto more = read_array(columns[1], second_size);
  demand(is_read == (expected && more), is_read ? "it is not an array" : "an array is refused");
  if (!is_read) return 0;
  demand(samples.size() == 2, "another number of samples");
  for (std::size_t i = 0; i < STATISTICS.size(); ++i) {
    const auto wanted = [&](const CParamProperties& param, const std::vector<double>& values) {
      return param.*STATISTICS[i].flag ? values[get_slot(param, i) - param.aux_1] : MISSING;
    };
    demand(is_same(samples[0].*STATISTICS[i].member, wanted(first, *expected)) &&
               is_same(samples[1].*STATISTICS[i].member, wanted(second, *more)),
           "a value is wrong");
  }
  return 0;
}
