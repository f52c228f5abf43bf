#include "trendtool/backup/backup.h"

#include <cstdint>

#include "libtrend/log.h"
#include "text/csv.h"
#include "trendtool/common/interrupts.h"
#include "trendtool/common/messages.h"
#include "trendtool/common/progress.h"
#include "trendtool/common/selection.h"

using toolkit::trend::CLog;

int run_backup(const BackupOptions& options) {
  CLog log;
  if (const std::string wrong = open_log(log, options.db_path); !wrong.empty()) return fail(wrong);
  note_interrupts();
  int status = 0;
  {
    Progress progress;
    status = log.backup(options.copy_path, [&](std::uint64_t pages, std::uint64_t total) {
      progress.show(pages, static_cast<double>(pages) / static_cast<double>(total), "pages");
      return !is_interrupted();
    });
  }
  if (status == 0) return SUCCESS;
  end_if_interrupted();
  return fail("can't copy the database to " + quote(options.copy_path) + ": " + log.error());
}
