#include "libtrend/postgres/slot_runs.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <limits>

#include "tests/support/made_result.h"

namespace toolkit::trend {
namespace {

using testing::HasSubstr;

constexpr std::uint64_t IS_NULL = 0xFFFFFFFF;
constexpr std::uint64_t TYPE = 701;
constexpr double MISSING = std::numeric_limits<double>::quiet_NaN();

/// What comes before the values of an array.
struct Head {
  std::uint64_t dimensions = 1;
  std::uint64_t type = TYPE;
  std::uint64_t lowest_index = 1;
};

/// An array as the server sends it; NaN becomes NULL.
std::string make_array(const std::vector<double>& values, const Head& head = {}) {
  std::string bytes;
  append_number(head.dimensions, 4, bytes);
  append_number(1, 4, bytes);
  append_number(head.type, 4, bytes);
  if (head.dimensions > 0) {
    append_number(values.size(), 4, bytes);
    append_number(head.lowest_index, 4, bytes);
  }
  for (const double value : values) {
    append_number(std::isnan(value) ? IS_NULL : sizeof value, 4, bytes);
    if (!std::isnan(value)) append_number(std::bit_cast<std::uint64_t>(value), 8, bytes);
  }
  return bytes;
}

/// A parameter with a minimum and a maximum.
CParamProperties make_param(std::uint32_t first_slot) {
  return {.path = "p", .aux_1 = first_slot, .has_min = true, .has_max = true};
}

/// The samples in a row of these arrays; none where they can't be read.
std::vector<CSample> unpack(const std::vector<CParamProperties>& params,
                            const std::vector<std::string>& columns) {
  SlotRuns runs(params);
  std::vector<CSample> samples;
  if (!runs.unpack(make_result(columns), 0, 0, samples)) samples.clear();
  return samples;
}

/// The same for one array of the parameter in the slots 0 and 1.
std::vector<CSample> unpack(const std::string& column) { return unpack({make_param(0)}, {column}); }

TEST(SlotRuns, AreOneColumnForSlotsNextToEachOther) {
  const SlotRuns runs({make_param(9), make_param(4), make_param(2)});
  EXPECT_EQ(runs.columns(), ", samples[3:6], samples[10:11]");
  EXPECT_EQ(runs.slots(), 6U);
  EXPECT_EQ(SlotRuns({make_param(5), make_param(4)}).columns(), ", samples[5:7]");
}

TEST(SlotRuns, AskForAShortArrayAsItIs) {
  EXPECT_EQ(SlotRuns({make_param(0)}).columns(),
            ", CASE WHEN pg_column_size(samples) <= 40 THEN samples ELSE samples[1:2] END");
}

TEST(SlotRuns, HaveNothingOfAParameterWithoutStatistics) {
  const CParamProperties empty{.path = "empty", .aux_1 = 3};
  EXPECT_EQ(SlotRuns({empty}).columns(), "");
  const std::vector<CSample> samples = unpack({empty, make_param(5)}, {make_array({1, 2})});
  ASSERT_EQ(samples.size(), 2U);
  EXPECT_TRUE(std::isnan(samples[0].min));
  EXPECT_EQ(samples[1].max, 2);
}

TEST(SlotRuns, AreJoinedIfTheyAreMany) {
  std::vector<CParamProperties> params;
  for (std::uint32_t i = 1; i <= 32; ++i) params.push_back(make_param(10 * i));
  EXPECT_THAT(SlotRuns(params).columns(), HasSubstr(", samples[11:12], samples[21:22], "));
  EXPECT_EQ(SlotRuns(params).slots(), 64U);
  params.push_back(make_param(330));
  EXPECT_EQ(SlotRuns(params).columns(), ", samples[11:332]");

  std::vector<double> values(322, MISSING);
  values[0] = 1;
  values[320] = 2;
  values[321] = 3;
  const std::vector<CSample> samples = unpack(params, {make_array(values)});
  ASSERT_EQ(samples.size(), 33U);
  EXPECT_EQ(samples[0].min, 1);
  EXPECT_TRUE(std::isnan(samples[1].min));
  EXPECT_EQ(samples[32].min, 2);
  EXPECT_EQ(samples[32].max, 3);
}

TEST(SlotRuns, TakeAPlaceAfterTheEndOfAnArrayForMissing) {
  for (const std::string& column : {make_array({}, {.dimensions = 0}), make_array({}),
                                    make_array({MISSING}), make_array({MISSING, MISSING})}) {
    const std::vector<CSample> samples = unpack(column);
    ASSERT_EQ(samples.size(), 1U);
    EXPECT_TRUE(std::isnan(samples[0].min) && std::isnan(samples[0].max));
  }
  EXPECT_EQ(unpack(make_array({1, 2, 3, 4})).at(0).max, 2) << "what comes later is not read";
}

TEST(SlotRuns, AreNotReadFromAnArrayThatIsCut) {
  const std::string whole = make_array({1, 2});
  EXPECT_EQ(unpack(whole).at(0).max, 2);
  for (std::size_t size = 0; size < whole.size(); ++size) {
    EXPECT_TRUE(unpack(whole.substr(0, size)).empty()) << size;
  }
}

TEST(SlotRuns, AreNotReadFromAnotherKindOfArray) {
  for (const Head& head :
       {Head{.type = TYPE - 1}, Head{.dimensions = 2}, Head{.lowest_index = 0}}) {
    EXPECT_TRUE(unpack(make_array({1, 2}, head)).empty());
  }
  std::string short_value = make_array({MISSING, MISSING});
  short_value.replace(20, 4, std::string("\0\0\0\4", 4));
  EXPECT_TRUE(unpack(short_value).empty());
}

}  // namespace
}  // namespace toolkit::trend
