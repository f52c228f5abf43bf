#include <malloc.h>

#include <cstdio>
#include <exception>

#include "cli/run.h"

int main(int argc, char** argv) {
  // Each chunk of rows frees and allocates the same memory again. Keep it in between, rather than
  // return it to the system: that takes a third of the time of a dump of wide rows.
  constexpr int MAX_UNUSED = 64 * 1024 * 1024;
  mallopt(M_TRIM_THRESHOLD, MAX_UNUSED);
  try {
    return run_program(argc, argv);
  } catch (const std::exception&) {
    // Only a failed allocation gets this far; the run has released everything by now.
    std::fputs("Error: out of memory\n", stderr);
    return 1;
  }
}
