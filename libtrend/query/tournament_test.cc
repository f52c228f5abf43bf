#include "libtrend/query/tournament.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>

namespace toolkit::trend {
namespace {

TEST(Tournament, FindsTheSameAsALookAtAllNumbers) {
  std::mt19937 random(5);
  for (const std::size_t count : {1U, 2U, 3U, 7U, 8U, 9U, 100U}) {
    Tournament tournament;
    tournament.start(count);
    std::vector<std::int64_t> numbers(count, Tournament::LEAST);
    for (int round = 0; round < 200; ++round) {
      const std::size_t place = random() % count;
      numbers[place] = static_cast<std::int64_t>(random() % 20) - 10;
      if (random() % 5 == 0) numbers[place] = Tournament::LEAST;
      tournament.set(place, numbers[place]);
      const auto largest = std::max_element(numbers.begin(), numbers.end());
      ASSERT_EQ(tournament.largest(), *largest);
      ASSERT_EQ(tournament.first_largest(), static_cast<std::size_t>(largest - numbers.begin()));
      std::int64_t before = Tournament::LEAST;
      for (std::size_t i = 0; i < count; ++i) {
        ASSERT_EQ(tournament.largest_before(i), before);
        before = std::max(before, numbers[i]);
      }
    }
  }
}

}  // namespace
}  // namespace toolkit::trend
