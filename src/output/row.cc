#include "output/row.h"

#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <ctime>
#include <limits>
#include <string>

#include "output/number.h"

using toolkit::trend::CParamProperties;
using toolkit::trend::CSample;
using toolkit::trend::CSnapshot;

namespace {

/// The begin of a row's interval. Deliberate: lengths and times are 32-bit numbers that wrap, so
/// that every platform gives the same; only times beyond these stay as they are.
std::time_t begin_of(const CSnapshot& snapshot) {
  const auto length = static_cast<std::int32_t>(60U * snapshot.interval_minutes);
  const std::int64_t begin = std::int64_t{snapshot.timestamp} - length;
  const bool is_wide = snapshot.timestamp > std::numeric_limits<std::int32_t>::max();
  return is_wide ? static_cast<std::time_t>(begin) : static_cast<std::int32_t>(begin);
}

/// Writes a date or time. What does not fit the buffer is left out.
void print_time(DumpContext& context, const std::string& format, const std::tm& fields) {
  std::array<char, 128> text;
  if (std::strftime(text.data(), text.size(), format.c_str(), &fields) != 0) {
    std::fputs(text.data(), context.out);
  }
}

void print_sample(DumpContext& context, const CParamProperties& param, const CSample& sample) {
  const auto print_field = [&](bool has_column, double value) {
    if (!has_column) return;
    std::fputc(',', context.out);
    if (has_value(value)) print_value(context, value);
  };
  print_field(param.has_min, sample.min);
  print_field(param.has_max, sample.max);
  print_field(param.has_avg, sample.avg);
  print_field(param.has_actual, sample.actual);
  print_field(param.has_sum, sample.sum);
}

}  // namespace

int print_row(DumpContext& context, const DumpOptions& options, const CSnapshot& snapshot) {
  const std::time_t time = options.interval_begin ? begin_of(snapshot) : snapshot.timestamp;
  std::tm fields = {};
  if (options.use_utc) {
    gmtime_r(&time, &fields);
  } else {
    localtime_r(&time, &fields);
  }
  print_time(context, options.output_date_format, fields);
  std::fputc(',', context.out);
  print_time(context, options.output_time_format, fields);
  if (options.percent_valid) std::fprintf(context.out, ",%.2f", snapshot.valid_ratio * 100);
  for (std::size_t i = 0; i < snapshot.samples.size(); ++i) {
    print_sample(context, context.device_params.params[i], snapshot.samples[i]);
  }
  return std::fputc('\n', context.out);
}

int print_value(DumpContext& context, double v) {
  std::array<char, MAX_VALUE_TEXT> text;
  const auto size = static_cast<std::size_t>(format_value(v, text.data()) - text.data());
  return std::fwrite(text.data(), 1, size, context.out) == size ? static_cast<int>(size) : -1;
}

bool has_value(const double& v) { return !std::isnan(v); }
