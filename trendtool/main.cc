#include <cstdio>
#include <exception>

#include "cli/standard_streams.h"
#include "trendtool/common/messages.h"
#include "trendtool/run.h"

int main(int argc, char** argv) {
  // The other name stands for what the program was before.
  if (!is_trendload(argc, argv)) fill_closed_standard_streams();
  try {
    return run_trendtool(argc, argv);
  } catch (const std::exception&) {
    // Only a failed allocation throws.
    std::fputs(
        is_trendload(argc, argv) ? "trendload: out of memory\n" : "trendtool: out of memory\n",
        stderr);
    return FAILURE;
  }
}
