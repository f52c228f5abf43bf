// Records rows of 60 values, each in a transaction of its own, into a new database. Prints the
// number of rows per second, and the milliseconds that the slowest took.
//   commits DB ROWS
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "libtrend/recorder.h"

using namespace toolkit::trend;

int main(int argc, char** argv) {
  if (argc != 3) return 2;
  const long rows = std::atol(argv[2]);
  CRecorder recorder;
  CDeviceProperties device{.path = "bench", .aux_text = ""};
  CSeries series;
  bool is_done =
      recorder.open(argv[1]) == 0 && recorder.begin() == 0 && recorder.add_device(device) == 0;
  for (int i = 0; i < 20 && is_done; ++i) {
    CParamProperties param;
    param.path = "p" + std::to_string(i);
    param.has_min = param.has_max = param.has_avg = true;
    is_done = recorder.add_param(device, param) == 0;
  }
  is_done = is_done && recorder.add_series(device, 5, series) == 0 && recorder.commit() == 0;

  std::vector<double> values(60);
  double slowest = 0;
  const auto start = std::chrono::steady_clock::now();
  auto before = start;
  for (long row = 1; row <= rows && is_done; ++row) {
    for (std::size_t i = 0; i < values.size(); ++i) {
      values[i] = static_cast<double>((row * 7919 + static_cast<long>(i) * 104729) % 300) / 10;
    }
    is_done = recorder.begin() == 0 && recorder.append(series, 300 * row, 1, values) == 0 &&
              recorder.commit() == 0;
    const auto now = std::chrono::steady_clock::now();
    slowest = std::max(slowest, std::chrono::duration<double>(now - before).count());
    before = now;
  }
  if (!is_done) {
    std::fprintf(stderr, "commits: %s\n", recorder.error().c_str());
    return 1;
  }
  const double seconds = std::chrono::duration<double>(before - start).count();
  std::printf("%.1f %.3f\n", static_cast<double>(rows) / seconds, 1000 * slowest);
}
