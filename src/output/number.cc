#include "output/number.h"

#include <cmath>
#include <cstdio>

char* format_value(double v, char* text) {
  constexpr int LEAST_PRECISION = 6;
  int precision = LEAST_PRECISION;
  if (v != 0 && !std::isinf(v)) {
    const int digits = static_cast<int>(std::log10(std::fabs(v))) + 1;
    // Deliberate: the value before rounding decides, so 999999.5 prints as 1E+06.
    if (digits > LEAST_PRECISION) precision = digits;
  }
  char terminated[MAX_VALUE_TEXT + 1];
  const int size = std::snprintf(terminated, sizeof terminated, "%.*G", precision, v);
  for (int i = 0; i < size; ++i) *text++ = terminated[i];
  return text;
}
