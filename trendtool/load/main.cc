// trendload: records CSV in the layout that trendcsv prints into a trend database.
#include <cstdio>
#include <exception>

#include "trendtool/load/loader.h"
#include "trendtool/load/options.h"

int main(int argc, char** argv) {
  try {
    LoadOptions options;
    if (!parse_load_options(argc, argv, options)) return 1;
    if (!options.wants_help) return run_load(options);
    print_load_usage();
    return 0;
  } catch (const std::exception&) {
    // Only a failed allocation can be the reason.
    std::fputs("trendload: out of memory\n", stderr);
    return 1;
  }
}
