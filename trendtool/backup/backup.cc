#include "trendtool/backup/backup.h"

#include <csignal>
#include <cstdint>

#include "libtrend/log.h"
#include "text/csv.h"
#include "trendtool/common/messages.h"
#include "trendtool/common/progress.h"
#include "trendtool/common/selection.h"

using toolkit::trend::CLog;

namespace {

/// The signal that came, 0 for none.
volatile std::sig_atomic_t signal_number = 0;

void note_signal(int number) { signal_number = number; }

void handle_signals() {
  for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
    // A signal that is ignored, for example under nohup, stays so.
    if (std::signal(number, note_signal) == SIG_IGN) std::signal(number, SIG_IGN);
  }
}

}  // namespace

int run_backup(const BackupOptions& options) {
  CLog log;
  if (const std::string wrong = open_log(log, options.db_path); !wrong.empty()) return fail(wrong);
  handle_signals();
  int status = 0;
  {
    Progress progress;
    status = log.backup(options.copy_path, [&](std::uint64_t pages, std::uint64_t total) {
      progress.show(pages, static_cast<double>(pages) / static_cast<double>(total), "pages");
      return signal_number == 0;
    });
  }
  if (status == 0) return SUCCESS;
  if (signal_number != 0) {
    const int number = signal_number;
    std::signal(number, SIG_DFL);
    std::raise(number);
  }
  return fail("can't copy the database to " + quote(options.copy_path) + ": " + log.error());
}
