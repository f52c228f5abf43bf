#include "trendtool/list/list.h"

#include <vector>

#include "libtrend/log.h"
#include "trendtool/common/messages.h"
#include "trendtool/common/output_file.h"
#include "trendtool/common/selection.h"

using toolkit::trend::CDeviceProperties;
using toolkit::trend::CLog;

int run_list(const ListOptions& options) {
  CLog log;
  if (const std::string wrong = open_log(log, options.db_path); !wrong.empty()) return fail(wrong);
  std::vector<CDeviceProperties> devices;
  if (const std::string wrong = select_devices(log, {}, devices); !wrong.empty())
    return fail(wrong);
  OutputFile out;
  if (!out.open(options.output_path, options.db_path)) return fail(out.error());
  for (const CDeviceProperties& device : devices) {
    if (!out.write(device.path + "\n")) return fail(out.error());
  }
  return out.finish() ? SUCCESS : fail(out.error());
}
