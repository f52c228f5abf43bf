#include "libtrend/sqlite/block.h"

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <limits>
#include <random>

#include "libtrend/query/engine.h"

namespace toolkit::trend {
namespace {

using Bytes = std::vector<unsigned char>;

constexpr double NONE = std::numeric_limits<double>::quiet_NaN();

BlockRows make_rows(std::size_t rows, std::size_t slots, std::uint64_t seed) {
  std::mt19937_64 random(seed);
  BlockRows block;
  block.slots = slots;
  std::int64_t time = 1'000'000'000;
  for (std::size_t i = 0; i < rows; ++i) {
    time += seed % 2 == 0 ? 300 : 1 + static_cast<std::int64_t>(random() % 1000);
    block.times.push_back(time);
    block.valid_ratios.push_back(seed % 3 == 0 ? 1 : static_cast<double>(random() % 101) / 100);
  }
  for (std::size_t slot = 0; slot < slots; ++slot) {
    for (std::size_t i = 0; i < rows; ++i) {
      const auto tenths = static_cast<double>(random() % 300) / 10;
      block.values.push_back(slot % 5 == 4 ? NONE : slot % 2 == 0 ? tenths : std::sqrt(tenths));
    }
  }
  return block;
}

struct Encoded {
  BlockHead head;
  Bytes columns;

  explicit Encoded(const BlockRows& rows) {
    head.series_id = 7;
    head.number = 42;
    head.previous = 300;
    head.segment_size = 4056;
    encode_block(rows, head, columns);
  }

  [[nodiscard]] std::span<const unsigned char> column(const BlockLayout& layout,
                                                      std::size_t slot) const {
    return std::span(columns).subspan(layout.offsets[slot],
                                      layout.offsets[slot + 1] - layout.offsets[slot]);
  }
};

void expect_back(const BlockRows& rows) {
  const Encoded encoded(rows);
  BlockLayout layout;
  ASSERT_TRUE(decode_layout(encoded.head, layout));
  EXPECT_EQ(layout.times, rows.times);
  EXPECT_EQ(layout.valid_ratios, rows.valid_ratios);
  ASSERT_EQ(layout.slots(), rows.slots);
  for (std::size_t slot = 0; slot < rows.slots; ++slot) {
    std::vector<double> values(rows.times.size());
    ASSERT_TRUE(decode_block_column(encoded.head, slot, encoded.column(layout, slot), values));
    for (std::size_t i = 0; i < values.size(); ++i) {
      const double expected = rows.column(slot)[i];
      ASSERT_TRUE(std::isnan(expected) ? std::isnan(values[i]) : values[i] == expected);
    }
  }
}

TEST(Block, GivesBackWhatItWasMadeOf) {
  for (const std::size_t rows : {1U, 2U, 3U, 511U, 512U}) {
    for (const std::size_t slots : {0U, 1U, 3U, 60U}) {
      for (std::uint64_t seed = 0; seed < 6; ++seed) {
        ASSERT_NO_FATAL_FAILURE(expect_back(make_rows(rows, slots, seed)));
      }
    }
  }
}

TEST(Block, TellsWhatItHoldsInItsHead) {
  const BlockRows rows = make_rows(512, 3, 2);
  const Encoded encoded(rows);
  EXPECT_EQ(encoded.head.first_time, rows.times.front());
  EXPECT_EQ(encoded.head.last_time, rows.times.back());
  EXPECT_EQ(encoded.head.rows, 512);
  EXPECT_EQ(encoded.head.bytes, static_cast<std::int64_t>(encoded.columns.size()));
  EXPECT_LT(encoded.head.content.size(), 600U);
}

TEST(Block, HasFewerRowsWhereTheDeviceIsWide) {
  EXPECT_EQ(get_block_rows(0), 512U);
  EXPECT_EQ(get_block_rows(256), 512U);
  EXPECT_EQ(get_block_rows(257), 510U);
  EXPECT_EQ(get_block_rows(900), 145U);
  EXPECT_EQ(get_block_rows(MAX_DEVICE_SLOTS), 2U);
  EXPECT_EQ(get_block_rows(1'000'000), 1U);
}

TEST(Block, HasAChecksumOverItsHead) {
  const Encoded encoded(make_rows(20, 3, 1));
  const std::uint32_t checksum = get_checksum(encoded.head);
  for (std::int64_t BlockHead::*const member :
       {&BlockHead::series_id, &BlockHead::last_time, &BlockHead::number, &BlockHead::first_time,
        &BlockHead::previous, &BlockHead::rows, &BlockHead::bytes, &BlockHead::segment_size,
        &BlockHead::change}) {
    BlockHead other = encoded.head;
    other.*member += 1;
    EXPECT_NE(get_checksum(other), checksum);
  }
  for (std::size_t i = 0; i < encoded.head.content.size(); ++i) {
    BlockHead other = encoded.head;
    other.content[i] ^= 1;
    EXPECT_NE(get_checksum(other), checksum);
  }
}

TEST(Block, RefusesAColumnInAnotherPlace) {
  const Encoded encoded(make_rows(20, 3, 1));
  BlockLayout layout;
  ASSERT_TRUE(decode_layout(encoded.head, layout));
  std::vector<double> values(20);
  const std::span<const unsigned char> column = encoded.column(layout, 1);
  EXPECT_TRUE(decode_block_column(encoded.head, 1, column, values));
  EXPECT_FALSE(decode_block_column(encoded.head, 2, column, values));
  BlockHead other = encoded.head;
  other.number += 1;
  EXPECT_FALSE(decode_block_column(other, 1, column, values));
  other = encoded.head;
  other.series_id += 1;
  EXPECT_FALSE(decode_block_column(other, 1, column, values));
}

TEST(Block, RefusesEveryChangedBitOfAColumn) {
  const Encoded encoded(make_rows(20, 2, 1));
  BlockLayout layout;
  ASSERT_TRUE(decode_layout(encoded.head, layout));
  std::vector<double> values(20);
  const std::span<const unsigned char> column = encoded.column(layout, 1);
  Bytes bytes(column.begin(), column.end());
  for (std::size_t bit = 0; bit < 8 * bytes.size(); ++bit) {
    bytes[bit / 8] = static_cast<unsigned char>(bytes[bit / 8] ^ 1U << bit % 8);
    EXPECT_FALSE(decode_block_column(encoded.head, 1, bytes, values)) << bit;
    bytes[bit / 8] = static_cast<unsigned char>(bytes[bit / 8] ^ 1U << bit % 8);
  }
  for (std::size_t size = 1; size < bytes.size(); ++size) {
    EXPECT_FALSE(decode_block_column(encoded.head, 1, std::span(bytes).first(size), values));
  }
}

TEST(Block, RefusesAHeadThatMakesNoSense) {
  const Encoded encoded(make_rows(20, 3, 1));
  BlockLayout layout;
  ASSERT_TRUE(decode_layout(encoded.head, layout));
  const auto expect_refused = [&](std::int64_t BlockHead::*member, std::int64_t value) {
    BlockHead other = encoded.head;
    other.*member = value;
    EXPECT_FALSE(decode_layout(other, layout)) << value;
  };
  for (const std::int64_t rows : {0, -1, 19, 21, 513}) expect_refused(&BlockHead::rows, rows);
  expect_refused(&BlockHead::rows, std::numeric_limits<std::int64_t>::max());
  expect_refused(&BlockHead::previous, -1);
  expect_refused(&BlockHead::previous, encoded.head.first_time);
  expect_refused(&BlockHead::first_time, encoded.head.first_time - 1);
  expect_refused(&BlockHead::last_time, encoded.head.last_time + 1);
  expect_refused(&BlockHead::last_time, std::int64_t{1} << 40);
  expect_refused(&BlockHead::bytes, encoded.head.bytes - 1);
  expect_refused(&BlockHead::segment_size, 0);
  for (std::size_t size = 0; size < encoded.head.content.size(); ++size) {
    BlockHead other = encoded.head;
    other.content.resize(size);
    EXPECT_FALSE(decode_layout(other, layout)) << size;
  }
}

}  // namespace
}  // namespace toolkit::trend
