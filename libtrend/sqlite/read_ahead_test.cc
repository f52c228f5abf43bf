#include "libtrend/sqlite/read_ahead.h"

#include <gtest/gtest.h>

namespace toolkit::trend {
namespace {

constexpr std::int64_t PAGE = 4096;
constexpr std::int64_t WINDOW = ReadAhead::WINDOW;
constexpr std::int64_t END = 100 * WINDOW;

/// Reads from `first` down to `last`, in runs of so many pages that each go up. Returns how many
/// bytes were read ahead; checks that every page was read ahead before it was read, except those at
/// the start of the walk and of the first two runs.
std::int64_t walk_down(ReadAhead& ahead, std::int64_t first, std::int64_t last,
                       std::int64_t run_pages) {
  std::int64_t read = 0;
  std::int64_t lowest = first;
  const std::int64_t run = run_pages * PAGE;
  for (std::int64_t start = first - run; start >= last; start -= run) {
    for (std::int64_t page = start; page < start + run; page += PAGE) {
      const FilePart part = ahead.before_read(page, PAGE);
      if (part.size > 0) {
        EXPECT_LE(part.start + part.size, first);
        lowest = part.start;
        read += part.size;
      }
      if (first - start > 2 * run + ReadAhead::LEAST_WALK) {
        EXPECT_LE(lowest, page);
      }
    }
  }
  return read;
}

TEST(ReadAhead, SeesAWalkTowardsTheStart) {
  for (const std::int64_t run : {1, 2, 3, 15, 30}) {
    ReadAhead ahead;
    const std::int64_t read = walk_down(ahead, END, 0, run);
    EXPECT_GT(read, END - 2 * WINDOW) << run;
    EXPECT_LE(read, END) << "nothing is read ahead twice";
  }
}

TEST(ReadAhead, LeavesAWalkTowardsTheEndToTheKernel) {
  ReadAhead ahead;
  for (std::int64_t start = 0; start < END; start += PAGE) {
    EXPECT_EQ(ahead.before_read(start, PAGE).size, 0);
  }
}

TEST(ReadAhead, LeavesAWalkTowardsTheEndAloneThatStepsBackInEachRow) {
  for (const std::int64_t back : {1, 2, 5}) {
    ReadAhead ahead;
    for (std::int64_t row = 10 * PAGE; row < END; row += (back + 1) * PAGE) {
      EXPECT_EQ(ahead.before_read(row, PAGE).size, 0);
      for (std::int64_t i = 1; i <= back; ++i) {
        EXPECT_EQ(ahead.before_read(row - i * PAGE, PAGE).size, 0) << back;
      }
    }
  }
}

TEST(ReadAhead, LeavesJumpsAlone) {
  for (const std::int64_t jump : {4 * PAGE, 30 * PAGE, 65 * PAGE, 130 * PAGE, 1000 * PAGE}) {
    ReadAhead ahead;
    std::int64_t read = 0;
    for (std::int64_t start = END; start > 0; start -= jump) {
      read += ahead.before_read(start, PAGE).size;
    }
    EXPECT_EQ(read, 0) << jump / PAGE;
  }
}

TEST(ReadAhead, GoesOnAfterAJumpToAnotherPlace) {
  ReadAhead ahead;
  EXPECT_GT(walk_down(ahead, END, END - 4 * WINDOW, 2), 0);
  EXPECT_EQ(ahead.before_read(0, PAGE).size, 0);
  EXPECT_GT(walk_down(ahead, END - 4 * WINDOW, END - 8 * WINDOW, 2), 2 * WINDOW);
}

TEST(ReadAhead, StopsAtTheStartOfTheFile) {
  ReadAhead ahead;
  std::int64_t lowest = WINDOW;
  for (std::int64_t start = WINDOW / 2; start >= 0; start -= PAGE) {
    const FilePart part = ahead.before_read(start, PAGE);
    EXPECT_GE(part.start, 0);
    if (part.size > 0) lowest = part.start;
  }
  EXPECT_EQ(lowest, 0);
}

}  // namespace
}  // namespace toolkit::trend
