#include "trendtool/check/check.h"

#include <cstdint>
#include <string>
#include <vector>

#include "libtrend/log.h"
#include "text/csv.h"
#include "text/utf8.h"
#include "trendtool/check/left_files.h"
#include "trendtool/common/damage_text.h"
#include "trendtool/common/messages.h"
#include "trendtool/common/output_file.h"
#include "trendtool/common/progress.h"
#include "trendtool/common/selection.h"

using toolkit::trend::CDamage;
using toolkit::trend::CLog;

int run_check(const CheckOptions& options) {
  // To be looked for first: a database that is open is in use.
  const std::vector<std::string> left_files = find_left_files(options.db_path);
  CLog log;
  std::vector<CDamage> damage;
  const std::string wrong = open_damaged_log(log, options.db_path);
  if (!wrong.empty()) return fail(wrong);
  {
    Progress progress;
    const auto show = [&](std::uint64_t rows, std::uint64_t total) {
      const auto share = static_cast<double>(rows) / static_cast<double>(total);
      progress.show(rows, total == 0 ? -1 : share);
      return true;
    };
    if (log.check(damage, show) != 0) return fail("can't check the database: " + log.error());
  }
  std::string text;
  for (const std::string& file : left_files) {
    text += show_controls(quote(file)) + " was left by a program that died\n";
  }
  for (const CDamage& part : damage) {
    text += show_controls(describe_damage(part, options.use_utc)) + "\n";
  }
  const int status = print_result(text);
  return text.empty() ? status : FAILURE;
}
