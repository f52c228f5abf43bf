#include "trendlog/dump_context.h"

#include "trendlog/database_files.h"

DumpContext::~DumpContext() { close_output(*this); }

int open_output(DumpContext& context, const DumpOptions& options) {
  if (options.output_path.empty()) {
    context.out = stdout;
    return 0;
  }
  // Deliberate: a file of the database counts as one that can't be opened. To open it would empty
  // it, and to lose a log is worse than to refuse a dump.
  if (!is_database_file(options.output_path, options.db_path)) {
    context.out = std::fopen(options.output_path.c_str(), "wt");
  }
  if (context.out != nullptr) return 0;
  std::fprintf(stderr, "Error: can't open '%s' for writing\n", options.output_path.c_str());
  return 1;
}

void close_output(DumpContext& context) {
  if (context.out == nullptr) return;
  std::fclose(context.out);
  context.out = nullptr;
}
