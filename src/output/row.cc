#include "output/row.h"

#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <ctime>
#include <limits>
#include <string>

#include "libtrend/statistics.h"
#include "text/number.h"
#include "text/time_text.h"

using toolkit::trend::CParamProperties;
using toolkit::trend::CSample;
using toolkit::trend::CSnapshot;
using toolkit::trend::Statistic;
using toolkit::trend::STATISTICS;

namespace {

/// The begin of a row's interval. Deliberate: lengths and times are 32-bit numbers that wrap, so
/// that every platform gives the same; only times beyond these stay as they are.
std::time_t begin_of(const CSnapshot& snapshot) {
  const auto length = static_cast<std::int32_t>(60U * snapshot.interval_minutes);
  const std::int64_t begin = std::int64_t{snapshot.timestamp} - length;
  const bool is_wide = snapshot.timestamp > std::numeric_limits<std::int32_t>::max();
  return is_wide ? static_cast<std::time_t>(begin) : static_cast<std::int32_t>(begin);
}

/// Collects the text of a row, so that it takes few writes to the stream.
class RowText {
 public:
  explicit RowText(std::FILE* out) : out_(out) {}

  void add(char c) { *end_++ = c; }
  void add_time(const std::string& format, const std::tm& fields) {
    end_ = format_time(format, fields, end_);
  }
  void add_percent(double percent) {
    // The largest double has 309 digits before the point.
    constexpr std::size_t MAX_PERCENT_TEXT = 320;
    end_ += std::snprintf(end_, MAX_PERCENT_TEXT, "%.2f", percent);
  }
  /// Adds the field of a value, with the separator before it.
  void add_field(double value) {
    if (end_ > text_.data() + text_.size() - MAX_FIELD_TEXT) write();
    add(',');
    if (has_value(value)) end_ = format_value(value, end_);
  }
  /// Writes what was collected to the stream. Returns the last character, or EOF on failure.
  int write() {
    const auto size = static_cast<std::size_t>(end_ - text_.data());
    const char last = end_[-1];
    end_ = text_.data();
    return fwrite_unlocked(text_.data(), 1, size, out_) == size ? last : EOF;
  }

 private:
  static constexpr std::size_t MAX_FIELD_TEXT = MAX_VALUE_TEXT + 2;  // separator and line feed

  std::FILE* out_;
  std::array<char, 4096> text_;
  char* end_ = text_.data();
};

void add_sample(RowText& text, const CParamProperties& param, const CSample& sample) {
  for (const Statistic& statistic : STATISTICS) {
    if (param.*statistic.flag) text.add_field(sample.*statistic.member);
  }
}

}  // namespace

int print_row(DumpContext& context, const DumpOptions& options, const CSnapshot& snapshot) {
  const std::time_t time = options.interval_begin ? begin_of(snapshot) : snapshot.timestamp;
  const std::tm fields = context.calendar.fields_at(time, options.use_utc);
  RowText text(context.out);
  text.add_time(options.output_date_format, fields);
  text.add(',');
  text.add_time(options.output_time_format, fields);
  if (options.percent_valid) {
    text.add(',');
    text.add_percent(snapshot.valid_ratio * 100);
  }
  for (std::size_t i = 0; i < snapshot.samples.size(); ++i) {
    add_sample(text, context.device_params.params[i], snapshot.samples[i]);
  }
  text.add('\n');
  return text.write();
}

int print_value(DumpContext& context, double v) {
  std::array<char, MAX_VALUE_TEXT> text;
  const auto size = static_cast<std::size_t>(format_value(v, text.data()) - text.data());
  return std::fwrite(text.data(), 1, size, context.out) == size ? static_cast<int>(size) : -1;
}

bool has_value(const double& v) { return !std::isnan(v); }
