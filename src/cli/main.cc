#include <cstdio>
#include <exception>

#include "cli/run.h"

int main(int argc, char** argv) {
  try {
    return run_program(argc, argv);
  } catch (const std::exception&) {
    // Only a failed allocation gets this far; the run has released everything by now.
    std::fputs("Error: out of memory\n", stderr);
    return 1;
  }
}
