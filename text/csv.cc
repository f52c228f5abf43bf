#include "text/csv.h"

#include <array>
#include <charconv>
#include <cmath>
#include <limits>
#include <system_error>

#include "text/number.h"

namespace {

bool parse_number(std::string_view text, double& value) {
  const char* end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, value);
  return error == std::errc() && stop == end && !std::isnan(value);
}

bool prints_as(double value, std::string_view text) {
  std::array<char, MAX_VALUE_TEXT> printed;
  const char* end = format_value(value, printed.data());
  return std::string_view(printed.data(), static_cast<std::size_t>(end - printed.data())) == text;
}

/// Returns a number that prints as `text`. `value` is the number nearest to `text`, but does not
/// always print as it. If no number is found that does, returns `value`.
double find_printed(double value, std::string_view text) {
  if (prints_as(value, text)) return value;
  // Just below a power of ten, from a million on, a value prints as that power in exponent form.
  // The power itself does not print in this form, but the power less a half does.
  const double below = value - std::copysign(0.5, value);
  if (prints_as(below, text)) return below;
  // A number a few steps further from zero may have another number of digits. This is so near
  // 1E+14, where the logarithm is rounded up before the number is, and for the numbers closest to
  // zero, which have few digits.
  constexpr int STEPS = 4;
  double further = value;
  for (int i = 0; i < STEPS; ++i) {
    further = std::nextafter(further, std::copysign(INFINITY, value));
    if (prints_as(further, text)) return further;
  }
  return value;
}

}  // namespace

std::string quote(std::string_view text) {
  constexpr std::size_t MOST_BYTES = 4096;
  const bool is_whole = text.size() <= MOST_BYTES;
  return std::string("'").append(text.substr(0, MOST_BYTES)).append(is_whole ? "'" : "...'");
}

std::vector<std::string_view> split_fields(std::string_view line) {
  std::vector<std::string_view> fields;
  split_fields(line, ',', fields);
  return fields;
}

void split_fields(std::string_view line, char separator, std::vector<std::string_view>& fields) {
  fields.clear();
  for (std::size_t end = line.find(separator); end != line.npos && fields.size() < MOST_FIELDS;
       end = line.find(separator)) {
    fields.push_back(line.substr(0, end));
    line.remove_prefix(end + 1);
  }
  fields.push_back(line);
}

bool read_value(std::string_view field, double& value) {
  if (field.empty()) {
    value = std::numeric_limits<double>::quiet_NaN();
    return true;
  }
  if (!parse_number(field, value)) return false;
  const bool is_large = std::fabs(value) >= 1e6;
  if (is_large || std::fpclassify(value) == FP_SUBNORMAL) value = find_printed(value, field);
  return true;
}

bool read_percent(std::string_view field, double& ratio) {
  double percent = 0;
  if (!parse_number(field, percent) || percent < 0 || percent > 100) return false;
  ratio = percent / 100;
  return true;
}
