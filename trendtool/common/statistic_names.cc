#include "trendtool/common/statistic_names.h"

using toolkit::trend::CParamProperties;
using toolkit::trend::STATISTICS;

std::string join_statistics(const CParamProperties& param) {
  std::string text;
  for (std::size_t i = 0; i < STATISTICS.size(); ++i) {
    if (!(param.*STATISTICS[i].flag)) continue;
    if (!text.empty()) text += ' ';
    text += STATISTIC_NAMES[i];
  }
  return text;
}
