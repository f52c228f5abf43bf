// Values and times as text.
#pragma once

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstring>
#include <ctime>
#include <string_view>

#include "text/number.h"
#include "trendtool/common/iso_time.h"
#include "trendtool/export/options.h"

/// Writes the text `from` at `to`. Returns its end.
inline char* write_text(std::string_view from, char* to) {
  std::memcpy(to, from.data(), from.size());
  return to + from.size();
}

/// Writes an infinity as a number that is too large for a double: a reader of numbers takes it for
/// an infinity. Returns the end of the text.
inline char* write_infinity(double value, char* to) {
  return write_text(value < 0 ? "-1E999" : "1E999", to);
}

/// Writes values as the options say.
class ValueText {
 public:
  ValueText(const ExportOptions& options, char decimal)
      : exact_(options.exact), decimal_(decimal) {}

  /// Writes `value`, which is not a NaN, at `to`, where there is room for MAX_VALUE_TEXT bytes.
  /// Returns the end of the text.
  char* write(double value, char* to) const {
    if (std::isinf(value)) return write_infinity(value, to);
    char* end =
        exact_ ? std::to_chars(to, to + MAX_VALUE_TEXT, value).ptr : format_value(value, to);
    if (decimal_ != '.') std::replace(to, end, '.', decimal_);
    return end;
  }

 private:
  bool exact_;
  char decimal_;
};

/// Writes times as the options say.
class TimeText {
 public:
  explicit TimeText(const ExportOptions& options)
      : use_epoch_(options.use_epoch), clock_(options.use_utc) {}

  /// Writes `time` at `to`, where there is room for MAX_TIME_TEXT bytes. Returns the end of the
  /// text.
  char* write(std::time_t time, char* to) {
    return use_epoch_ ? std::to_chars(to, to + MAX_TIME_TEXT, time).ptr : clock_.write(time, to);
  }
  /// Whether the texts are numbers.
  [[nodiscard]] bool writes_numbers() const { return use_epoch_; }

 private:
  bool use_epoch_;
  IsoClock clock_;
};

/// Writes the share of valid data as a percentage with two digits after the point, like trendcsv,
/// or `missing` for a NaN. Returns the end of the text; there must be room for MAX_VALUE_TEXT + 4
/// bytes.
char* write_percent(double ratio, char decimal, std::string_view missing, char* to);
