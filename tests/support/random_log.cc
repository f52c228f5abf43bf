// Makes random logs and records them.
#include <algorithm>
#include <bit>
#include <cmath>
#include <limits>
#include <stdexcept>

#include "libtrend/recorder.h"
#include "tests/support/model.h"

using toolkit::trend::CDeviceProperties;
using toolkit::trend::CParamProperties;
using toolkit::trend::CRecorder;
using toolkit::trend::CSeries;

namespace {

double about_power_of_ten(Random& random) {
  const double power = std::pow(10, static_cast<int>(pick(random, 24)) - 6);
  switch (pick(random, 4)) {
    case 0:
      return power;
    case 1:
      return std::nextafter(power, 0.0);
    case 2:
      return power - 0.5;
    default:
      return std::nextafter(power, std::numeric_limits<double>::infinity());
  }
}

/// A time shortly before the clocks change in some zone, or any time.
std::int64_t random_begin(Random& random) {
  switch (pick(random, 5)) {
    case 0:
      return utc(2023, 3, 12, 2);  // New York
    case 1:
      return utc(2023, 11, 5, 1);
    case 2:
      return utc(2023, 4, 1, 12);  // Lord Howe
    case 3:
      return utc(2023, 9, 30, 12);
    default:
      return 60 * std::int64_t{pick(random, 35'000'000)} + 60;
  }
}

}  // namespace

std::uint32_t pick(Random& random, std::uint32_t limit) {
  return static_cast<std::uint32_t>(random() % limit);
}

double random_value(Random& random) {
  const double sign = pick(random, 3) == 0 ? -1 : 1;
  switch (pick(random, 8)) {
    case 0:
      return std::numeric_limits<double>::quiet_NaN();
    case 1:
      return sign * (pick(random, 3) == 0 ? std::numeric_limits<double>::infinity() : 0);
    case 2:
      return sign * about_power_of_ten(random);
    case 3:
      return std::bit_cast<double>(std::uint64_t{random()} << 32 | random());
    case 4:
      return sign * pick(random, 100'000'000);
    default:
      return sign * pick(random, 100'000) / 1000;
  }
}

ModelLog random_log(Random& random, bool whole_minutes) {
  ModelLog log;
  for (const char* path : {"b/x", "level", "a/z", "Level", "b", "a/y z", "b/x:y"}) {
    if (pick(random, 2) == 0) log.params.push_back({path, 1 + pick(random, 31)});
  }
  if (log.params.empty()) log.params.push_back({"pump", ACTUAL});
  std::size_t slots = 0;
  for (const ModelParam& param : log.params) {
    slots += static_cast<std::size_t>(std::popcount(param.statistics));
  }
  for (const std::uint32_t minutes : {1U, 5U, 7U, 15U, 60U, 100U}) {
    if (pick(random, 3) == 0) log.minutes.push_back(minutes);
  }
  if (log.minutes.empty()) log.minutes.push_back(10);

  const std::int64_t begin = random_begin(random);
  for (const std::uint32_t minutes : log.minutes) {
    const std::int64_t step = std::int64_t{60} * minutes;
    const bool is_aligned = pick(random, 2) == 0;
    std::int64_t time = begin - begin % step + step * pick(random, 20);
    for (std::uint32_t left = pick(random, 40); left > 0; --left) {
      if (is_aligned) {
        time += step * (1 + (pick(random, 4) == 0 ? pick(random, 6) : 0));
      } else {
        time +=
            whole_minutes ? 60 * (1 + pick(random, 2 * minutes)) : 1 + pick(random, 120 * minutes);
      }
      ModelRow row = {
          minutes, time, pick(random, 3) == 0 ? pick(random, 10'001) / 10'000.0 : 1, {}};
      const std::size_t size = pick(random, 5) == 0 ? pick(random, 8) : slots;
      for (std::size_t i = 0; i < std::min(size, slots); ++i) {
        row.values.push_back(random_value(random));
      }
      log.rows.push_back(std::move(row));
    }
  }
  std::shuffle(log.rows.begin(), log.rows.end(), random);
  return log;
}

void record(const ModelLog& log, const std::string& path) {
  CRecorder recorder;
  const auto check = [&](int status) {
    if (status != 0) throw std::runtime_error(recorder.error());
  };
  check(recorder.open(path));
  check(recorder.begin());
  CDeviceProperties device;
  device.path = log.device;
  check(recorder.add_device(device));
  for (const ModelParam& wanted : log.params) {
    CParamProperties param;
    param.path = wanted.path;
    param.has_min = (wanted.statistics & MIN) != 0;
    param.has_max = (wanted.statistics & MAX) != 0;
    param.has_avg = (wanted.statistics & AVG) != 0;
    param.has_actual = (wanted.statistics & ACTUAL) != 0;
    param.has_sum = (wanted.statistics & SUM) != 0;
    check(recorder.add_param(device, param));
  }
  for (const std::uint32_t minutes : log.minutes) {
    CSeries series;
    check(recorder.add_series(device, minutes, series));
    for (const ModelRow& row : log.rows) {
      if (row.minutes == minutes) check(recorder.append(series, row.time, row.ratio, row.values));
    }
  }
  check(recorder.commit());
}
