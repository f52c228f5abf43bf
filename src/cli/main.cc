#include <cstdio>
#include <exception>

#include "cli/run.h"
#include "cli/standard_streams.h"

int main(int argc, char** argv) {
  fill_closed_standard_streams();
  try {
    return run_program(argc, argv);
  } catch (const std::exception&) {
    // Only a failed allocation throws. Everything that the run held is released by now.
    std::fputs("Error: out of memory\n", stderr);
    return 1;
  }
}
