// Makes a trend database of any size for benchmarks; the same arguments give the same values.
//   make_log KIND DB PARAMETERS MINUTES ROWS [MINUTES ROWS ...]
// Minimum, maximum and average are recorded for every parameter. The newest rows of all intervals
// end at the same time, so that those of longer intervals start earlier. The kinds of values:
//   mixed    of three parameters, one has one decimal place, like a sensor; one has all digits,
//            like a computed value; and one is a large count
//   sensor   minimum and maximum have one decimal place, within 30 units; averages have all digits
//   decimal  the same without averages
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "libtrend/recorder.h"

using toolkit::trend::CDeviceProperties;
using toolkit::trend::CParamProperties;
using toolkit::trend::CRecorder;
using toolkit::trend::CSeries;

namespace {

/// A pseudo-random sequence of numbers from 0 to below 1.
class Noise {
 public:
  double next() {
    state_ = state_ * 6364136223846793005U + 1442695040888963407U;
    return static_cast<double>(state_ >> 11) * 0x1p-53;
  }

 private:
  std::uint64_t state_ = 1;
};

double with_one_decimal(double value) { return std::round(value * 10) / 10; }

/// The values of a row.
std::vector<double> make_values(const std::string& kind, std::size_t params, Noise& noise) {
  std::vector<double> values;
  for (std::size_t i = 0; i < params; ++i) {
    if (kind != "mixed") {
      const double min = 30 * noise.next();
      const double max = min + (30 - min) * noise.next();
      values.insert(values.end(), {with_one_decimal(min), with_one_decimal(max)});
      if (kind == "sensor") values.push_back(min + (max - min) * noise.next());
      continue;
    }
    const double middle = 20 + static_cast<double>(i) + 5 * noise.next();
    const double spread = 3 * noise.next();
    for (const double value : {middle - spread, middle + spread, middle}) {
      if (i % 3 == 0) values.push_back(with_one_decimal(value));
      if (i % 3 == 1) values.push_back(value);
      if (i % 3 == 2) values.push_back(std::round(value * 100000));
    }
  }
  return values;
}

int fail(const CRecorder& recorder) {
  std::fprintf(stderr, "make_log: %s\n", recorder.error().c_str());
  return 1;
}

}  // namespace

int main(int argc, char** argv) {
  const std::string kind = argc > 1 ? argv[1] : "";
  if (argc < 6 || argc % 2 == 1 || (kind != "mixed" && kind != "sensor" && kind != "decimal")) {
    std::fputs("usage: make_log KIND DB PARAMETERS MINUTES ROWS [MINUTES ROWS ...]\n", stderr);
    return 1;
  }
  const auto params = static_cast<std::size_t>(std::atol(argv[3]));

  CRecorder recorder;
  if (recorder.open(argv[2]) != 0 || recorder.begin() != 0) return fail(recorder);
  CDeviceProperties device{.path = "bench", .aux_text = ""};
  if (recorder.add_device(device) != 0) return fail(recorder);
  for (std::size_t i = 0; i < params; ++i) {
    CParamProperties param;
    param.path = "group" + std::to_string(i / 10) + "/p" + std::to_string(i);
    param.has_min = param.has_max = true;
    param.has_avg = kind != "decimal";
    if (recorder.add_param(device, param) != 0) return fail(recorder);
  }
  Noise noise;
  constexpr std::int64_t END = 1900000000 / 86400 * 86400;
  for (int i = 4; i < argc; i += 2) {
    const auto minutes = static_cast<std::uint32_t>(std::atol(argv[i]));
    const std::int64_t length = 60 * std::int64_t{minutes};
    CSeries series;
    if (recorder.add_series(device, minutes, series) != 0) return fail(recorder);
    for (std::int64_t row = std::atol(argv[i + 1]) - 1; row >= 0; --row) {
      const std::int64_t time = END - END % length - row * length;
      if (recorder.append(series, time, 1, make_values(kind, params, noise)) != 0)
        return fail(recorder);
    }
  }
  return recorder.commit() == 0 ? 0 : fail(recorder);
}
