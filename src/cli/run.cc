#include "cli/run.h"

#include <cstdio>

#include "cli/options.h"
#include "cli/usage.h"
#include "columns/header.h"
#include "output/retrieval.h"
#include "trendlog/selection.h"

namespace {

int open_log(DumpContext& context, const DumpOptions& options) {
  constexpr bool READ_ONLY = true;
  constexpr bool CREATE = false;
  constexpr unsigned BUSY_TIMEOUT = 40;
  constexpr bool EXCLUSIVE = false;
  constexpr bool TRADITIONAL_JOURNAL = false;
  const int status = context.log.open(
      options.db_path, READ_ONLY, CREATE, BUSY_TIMEOUT, EXCLUSIVE,
      static_cast<unsigned>(options.page_size), static_cast<unsigned>(options.cache_size),
      static_cast<unsigned>(options.heap_limit), TRADITIONAL_JOURNAL);
  if (status == 0) return 0;
  std::fprintf(stderr, "Error opening trend db: '%s'\n", options.db_path.c_str());
  return 1;
}

}  // namespace

int run_dump(DumpContext& context, const DumpOptions& options) {
  // Deliberate: a run that fails does not close the log and the output. The context does that at
  // its end.
  if (open_output(context, options) != 0) return 1;
  if (open_log(context, options) != 0) return 1;
  if (select_catalogue(context, options) != 0) return 1;
  if (context.device_params.params.empty()) {
    std::fputs("The specified device has no trendable parameters [yet].\n", stderr);
  } else {
    if (print_header_row(context, options) != 0) return 1;
    // Deliberate: reaching the end of the data counts as a failure, although all rows were written.
    if (dump_rows(context, options) != 0) return 1;
  }
  context.log.close();
  close_output(context);
  return 0;
}

int run_program(int argc, const char* const* argv) {
  DumpOptions options;
  const int result = parse_args(options, argc, argv);
  if (result < 0) {
    print_usage(options, argv[0]);
    return 1;
  }
  if (result > 0) {
    print_version(argv[0]);
    return 0;
  }
  DumpContext context;
  return run_dump(context, options) == 0 ? 0 : 1;
}
