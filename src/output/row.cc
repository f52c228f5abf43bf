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

/// The start of a row's interval. Deliberate: the length in seconds and the result are 32-bit
/// numbers that wrap, so that all platforms print the same. Only the result for a row whose
/// timestamp needs more than 32 bits does not wrap.
std::time_t begin_of(const CSnapshot& snapshot) {
  const auto length = static_cast<std::int32_t>(60U * snapshot.interval_minutes);
  const std::int64_t begin = std::int64_t{snapshot.timestamp} - length;
  const bool is_wide = snapshot.timestamp > std::numeric_limits<std::int32_t>::max();
  return is_wide ? static_cast<std::time_t>(begin) : static_cast<std::int32_t>(begin);
}

/// Collects the text of a row, so that the row is written to the stream with few calls.
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
  /// Adds a separator and the value. A NaN is an empty field.
  void add_field(double value) {
    if (end_ > text_.data() + text_.size() - MAX_FIELD_TEXT) write();
    add(',');
    if (has_value(value)) end_ = format_value(value, end_);
  }
  /// Writes the collected text to the stream and starts again with an empty one. Returns the last
  /// character written, or EOF on failure.
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
  // Deliberate: for "%s" strftime takes the fields for local standard time. With "-u" they are
  // those of UTC, so the seconds printed are off by the difference between the two.
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
