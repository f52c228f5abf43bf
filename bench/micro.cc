// Measures the time that each part of printing a row takes.
#include <benchmark/benchmark.h>

#include <array>
#include <cmath>
#include <cstdio>
#include <ctime>
#include <filesystem>
#include <vector>

#include "libtrend/log.h"
#include "libtrend/recorder.h"
#include "output/row.h"
#include "text/calendar.h"
#include "text/number.h"
#include "text/time_text.h"

namespace {

namespace tt = toolkit::trend;

/// 1,000 values of one kind: 0 with one decimal place, 1 with all digits, 2 large counts.
std::vector<double> values(int kind) {
  std::vector<double> values;
  for (int i = 0; i < 1000; ++i) {
    const double noise = std::fmod(i * 0.6180339887498949, 1.0);
    if (kind == 0) values.push_back(std::round(noise * 400) / 10);
    if (kind == 1) values.push_back(noise * 40);
    if (kind == 2) values.push_back(std::round(noise * 1e9));
  }
  return values;
}

void format_numbers(benchmark::State& state) {
  const std::vector<double> numbers = values(static_cast<int>(state.range(0)));
  std::array<char, MAX_VALUE_TEXT> text;
  for (auto _ : state) {
    for (const double number : numbers) {
      benchmark::DoNotOptimize(format_value(number, text.data()));
      benchmark::ClobberMemory();
    }
  }
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(numbers.size()));
}
BENCHMARK(format_numbers)->ArgName("tenths_full_counts")->Arg(0)->Arg(1)->Arg(2);

void format_numbers_with_library(benchmark::State& state) {
  const std::vector<double> numbers = values(static_cast<int>(state.range(0)));
  std::array<char, MAX_VALUE_TEXT + 1> text;
  for (auto _ : state) {
    for (const double number : numbers) {
      const int digits = number == 0 ? 0 : static_cast<int>(std::log10(std::fabs(number))) + 1;
      std::snprintf(text.data(), text.size(), "%.*G", digits > 6 ? digits : 6, number);
      benchmark::ClobberMemory();
    }
  }
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(numbers.size()));
}
BENCHMARK(format_numbers_with_library)->ArgName("tenths_full_counts")->Arg(0)->Arg(1)->Arg(2);

/// Prints rows, five minutes apart, with the minimum, maximum and average of so many parameters.
void print_rows(benchmark::State& state) {
  DumpContext context;
  context.out = std::fopen("/dev/null", "w");
  DumpOptions options;
  options.output_date_format = "%F";
  options.output_time_format = "%R";
  const auto params = static_cast<std::size_t>(state.range(0));
  const std::vector<double> numbers = values(1);
  tt::CSnapshot row;
  row.timestamp = 1'300'000'000;
  for (std::size_t i = 0; i < params; ++i) {
    context.device_params.params.push_back(
        {.path = "", .has_min = true, .has_max = true, .has_avg = true});
    row.samples.push_back({numbers[3 * i], numbers[3 * i + 1], numbers[3 * i + 2], 0, 0});
  }
  for (auto _ : state) {
    row.timestamp += 300;
    print_row(context, options, row);
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(print_rows)->ArgName("params")->Arg(1)->Arg(20);

void format_date_and_time(benchmark::State& state) {
  const std::string date = "%F";
  const std::string time_of_day = "%R";
  Calendar calendar;
  std::array<char, MAX_TIME_TEXT> text;
  std::time_t time = 1'300'000'000;
  for (auto _ : state) {
    time += 300;
    const std::tm fields = calendar.fields_at(time, false);
    benchmark::DoNotOptimize(format_time(date, fields, text.data()));
    benchmark::DoNotOptimize(format_time(time_of_day, fields, text.data()));
  }
}
BENCHMARK(format_date_and_time);

void format_date_and_time_with_library(benchmark::State& state) {
  std::array<char, 128> text;
  std::time_t time = 1'300'000'000;
  for (auto _ : state) {
    time += 300;
    std::tm fields = {};
    localtime_r(&time, &fields);
    benchmark::DoNotOptimize(std::strftime(text.data(), text.size(), "%F", &fields));
    benchmark::DoNotOptimize(std::strftime(text.data(), text.size(), "%R", &fields));
  }
}
BENCHMARK(format_date_and_time_with_library);

/// Queries for chunks of so many rows of 20 parameters.
void query(benchmark::State& state) {
  const std::filesystem::path path =
      std::filesystem::temp_directory_path() / "trendcsv-micro-bench.db";
  std::filesystem::remove(path);
  tt::CRecorder recorder;
  tt::CDeviceParams device;
  device.device.path = "bench";
  tt::CSeries series;
  bool is_recorded =
      recorder.open(path) == 0 && recorder.begin() == 0 && recorder.add_device(device.device) == 0;
  for (int i = 0; i < 20; ++i) {
    tt::CParamProperties param{
        .path = std::to_string(i), .has_min = true, .has_max = true, .has_avg = true};
    is_recorded = is_recorded && recorder.add_param(device.device, param) == 0;
    device.params.push_back(param);
  }
  is_recorded = is_recorded && recorder.add_series(device.device, 5, series) == 0;
  const std::vector<double> row(60, 21.5);
  for (int i = 1; i <= 20000; ++i) {
    is_recorded = is_recorded && recorder.append(series, 300 * i, 1, row) == 0;
  }
  tt::CLog log;
  if (!is_recorded || recorder.commit() != 0 || log.open(path, {}) != 0) {
    state.SkipWithError("can't make the database");
    return;
  }
  const auto count = static_cast<unsigned>(state.range(0));
  std::int64_t rows = 0;
  long end = -1;
  for (auto _ : state) {
    tt::CDeviceData data;
    if (log.get_trend_data(data, device, {{.interval = 5}}, {-1, end}, count, 0, false, true) !=
        0) {
      state.SkipWithError("the query failed");
      return;
    }
    rows += static_cast<std::int64_t>(data.snapshots.size());
    end = data.snapshots.size() < count ? -1 : data.snapshots.back().timestamp - 1;
  }
  state.SetItemsProcessed(rows);
  log.close();
  recorder.close();
  std::filesystem::remove(path);
}
BENCHMARK(query)->ArgName("rows")->Arg(16)->Arg(512);

}  // namespace
