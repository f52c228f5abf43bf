#include "cli/standard_streams.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "tests/support/streams.h"

namespace {

bool is_null_device(int number) {
  struct stat file = {};
  struct stat null = {};
  return fstat(number, &file) == 0 && stat("/dev/null", &null) == 0 && file.st_rdev == null.st_rdev;
}

TEST(StandardStreams, BecomeTheNullDeviceIfTheyAreClosed) {
  for (unsigned closed = 0; closed < 8; ++closed) {
    SCOPED_TRACE(closed);
    const ProcessResult result = run_in_child([closed] {
      // Standard input may be anything where the tests run.
      const int file = open("/dev/zero", O_RDWR);
      const int next = dup(file);
      close(next);
      for (int number = 0; number < 3; ++number) {
        dup2(file, number);
        if ((closed >> number & 1) != 0) close(number);
      }
      fill_closed_standard_streams();
      for (int number = 0; number < 3; ++number) {
        const bool was_closed = (closed >> number & 1) != 0;
        if (is_null_device(number) != was_closed) return 1;
        if ((write(number, "x", 1) == 1) == was_closed) return 2;
      }
      // Nothing else was opened.
      return dup(file) == next ? 0 : 3;
    });
    EXPECT_EQ(result.exit_status, 0);
  }
}

}  // namespace
