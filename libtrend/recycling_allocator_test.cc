#include "libtrend/recycling_allocator.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <thread>
#include <vector>

namespace toolkit::trend {
namespace {

struct Pair {
  double first;
  double second;
};
using List = std::vector<Pair, RecyclingAllocator<Pair>>;

TEST(RecyclingAllocator, HandsOutABlockThatWasGivenBack) {
  RecyclingAllocator<Pair> allocator;
  Pair* first = allocator.allocate(3);
  Pair* second = allocator.allocate(3);
  EXPECT_NE(first, second);
  allocator.deallocate(first, 3);
  EXPECT_EQ(allocator.allocate(3), first);
  allocator.deallocate(first, 3);
  allocator.deallocate(second, 3);
}

TEST(RecyclingAllocator, KeepsListsOfDifferentSizesApart) {
  for (int round = 0; round < 50; ++round) {
    std::vector<List> lists;
    for (std::size_t size = 1; size < 60; ++size) {
      lists.emplace_back(size, Pair{static_cast<double>(size), 0.5});
      if (size % 3 == 0) lists.erase(lists.begin());
    }
    for (const List& list : lists) {
      for (const Pair& pair : list) {
        ASSERT_EQ(pair.first, static_cast<double>(list.size()));
        ASSERT_EQ(pair.second, 0.5);
      }
    }
  }
}

TEST(RecyclingAllocator, LetsListsMoveBetweenThreads) {
  List list(5, Pair{1, 2});
  std::thread other([list = std::move(list)]() mutable {
    List second(5, Pair{3, 4});
    list = std::move(second);
    EXPECT_EQ(list.at(4).second, 4);
  });
  other.join();
  const List again(5, Pair{5, 6});
  EXPECT_EQ(again.at(0).first, 5);
}

}  // namespace
}  // namespace toolkit::trend
