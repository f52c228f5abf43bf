#include "libtrend/postgres/catalogue.h"

#include "libtrend/query/engine.h"
#include "libtrend/statistics.h"

namespace toolkit::trend {

bool read_param(const Result& result, std::size_t row, CParamProperties& param) {
  bool is_valid = result.read(row, 0, param.path) && read_number(result, row, 1, param.aux_1);
  for (std::size_t i = 0; i < STATISTICS.size(); ++i) {
    is_valid = is_valid && result.read(row, 2 + i, param.*STATISTICS[i].flag);
  }
  return is_valid && get_slot(param, STATISTICS.size()) <= MAX_DEVICE_SLOTS;
}

}  // namespace toolkit::trend
