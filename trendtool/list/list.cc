#include "trendtool/list/list.h"

#include <vector>

#include "libtrend/log.h"
#include "trendtool/common/messages.h"
#include "trendtool/common/output_file.h"
#include "trendtool/common/selection.h"
#include "trendtool/list/contents.h"
#include "trendtool/list/formats.h"

using toolkit::trend::CLog;

namespace {

std::string make_text(const std::vector<DeviceContents>& contents, const ListOptions& options) {
  const bool is_one_device = !options.device.empty();
  if (options.names_only) return list_names(contents, is_one_device);
  if (options.format == ListFormat::CSV) {
    return list_as_csv(contents, is_one_device, options.use_utc);
  }
  if (options.format == ListFormat::JSON) return list_as_json(contents, options.use_utc);
  return list_as_table(contents, is_one_device, options.use_utc);
}

}  // namespace

int run_list(const ListOptions& options) {
  CLog log;
  if (const std::string wrong = open_log(log, options.db_path); !wrong.empty()) return fail(wrong);
  std::vector<std::string> names;
  if (!options.device.empty()) names.push_back(options.device);
  std::vector<DeviceContents> contents;
  const std::string wrong =
      read_contents(log, names, options.use_display_names, !options.names_only, contents);
  if (!wrong.empty()) return fail(wrong);
  OutputFile out;
  if (!out.open(options.output_path, options.db_path)) return fail(out.error());
  out.add(make_text(contents, options));
  return out.finish() ? SUCCESS : fail(out.error());
}
