#include "trendtool/init/init.h"

#include <filesystem>
#include <system_error>

#include "libtrend/recorder.h"
#include "text/csv.h"
#include "trendtool/common/messages.h"

namespace {

/// Makes a file. Returns what is wrong, or an empty text.
std::string create_file(const std::string& path) {
  std::error_code ignored;
  if (std::filesystem::exists(path, ignored)) return "there is such a file already";
  toolkit::trend::CRecorder recorder;
  return recorder.open(path) == 0 ? "" : recorder.error();
}

}  // namespace

int run_init(const InitOptions& options) {
  const bool is_archive =
      options.db_path.starts_with("postgresql://") || options.db_path.starts_with("postgres://");
  const bool has_options = options.archive.partitions > 0 || options.archive.retention_months > 0;
  if (!is_archive && has_options) {
    return refuse_usage("--partitions and --retention are for an archive, not for a file");
  }
  std::string wrong;
  if (!is_archive) {
    wrong = create_file(options.db_path);
  } else if (toolkit::trend::create_archive(options.db_path, options.archive, wrong) == 0) {
    wrong.clear();
  }
  return wrong.empty() ? SUCCESS
                       : fail("can't make the database " + quote(options.db_path) + ": " + wrong);
}
