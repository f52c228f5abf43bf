#include "trendtool/export/value_text.h"

#include <cstdio>

char* write_percent(double ratio, char decimal, std::string_view missing, char* to) {
  if (std::isnan(ratio)) return write_text(missing, to);
  if (std::isinf(ratio)) return write_infinity(ratio, to);
  // The digits of the largest double, a sign, a point, two more digits, and the end of the text.
  char* end = to + std::snprintf(to, MAX_VALUE_TEXT + 4, "%.2f", ratio * 100);
  if (decimal != '.') std::replace(to, end, '.', decimal);
  return end;
}
