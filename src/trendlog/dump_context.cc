#include "trendlog/dump_context.h"

DumpContext::~DumpContext() { close_output(*this); }

int open_output(DumpContext& context, const DumpOptions& options) {
  if (options.output_path.empty()) {
    context.out = stdout;
    return 0;
  }
  context.out = std::fopen(options.output_path.c_str(), "wt");
  if (context.out != nullptr) return 0;
  std::fprintf(stderr, "Error: can't open '%s' for writing\n", options.output_path.c_str());
  return 1;
}

void close_output(DumpContext& context) {
  if (context.out == nullptr) return;
  std::fclose(context.out);
  context.out = nullptr;
}
