#include "libtrend/sqlite/file_header.h"

#include <gtest/gtest.h>

#include <array>
#include <cstring>

namespace toolkit::trend {
namespace {

/// The header of a trend database of three pages of 4096 bytes in WAL mode.
struct Header : testing::Test {
  Header() {
    std::memcpy(bytes.data(), "SQLite format 3", 16);
    bytes[16] = 0x10;
    bytes[18] = 2;
    bytes[19] = 2;
    bytes[27] = 7;
    bytes[31] = 3;
    bytes[63] = 1;
    std::memcpy(bytes.data() + 68, "TRND", 4);
    bytes[95] = 7;
  }

  FileHeader of_file(std::int64_t size) const { return {bytes, size}; }

  std::array<unsigned char, FileHeader::SIZE> bytes = {};
};

TEST_F(Header, OfATrendDatabaseIsSound) {
  EXPECT_TRUE(of_file(3 * 4096).is_sound());
  EXPECT_TRUE(of_file(3 * 4096).has_whole_pages());
  EXPECT_TRUE(of_file(3 * 4096).asks_for_write_ahead_log());
}

TEST_F(Header, OfEachVersionIsSound) {
  bytes[63] = 2;
  EXPECT_TRUE(of_file(3 * 4096).is_sound());
}

TEST_F(Header, IsSoundForALongerFileButNotForATruncatedOne) {
  EXPECT_TRUE(of_file(4 * 4096).is_sound());
  EXPECT_FALSE(of_file(2 * 4096).is_sound());
  EXPECT_TRUE(of_file(2 * 4096).has_whole_pages());
  EXPECT_FALSE(of_file(3 * 4096 - 1).is_sound());
  EXPECT_FALSE(of_file(3 * 4096 - 1).has_whole_pages());
}

TEST_F(Header, IgnoresAPageCountThatIsOutOfDate) {
  bytes[95] = 6;
  EXPECT_TRUE(of_file(2 * 4096).is_sound());
}

TEST_F(Header, ReadsTheSmallestAndTheLargestPageSize) {
  bytes[31] = 2;
  bytes[16] = 2;
  EXPECT_TRUE(of_file(1024).is_sound());
  EXPECT_FALSE(of_file(512).is_sound());
  bytes[16] = 0;
  bytes[17] = 1;
  EXPECT_TRUE(of_file(2 * 65536).is_sound());
  EXPECT_FALSE(of_file(65536).is_sound());
  EXPECT_FALSE(of_file(65536 + 4096).has_whole_pages());
}

TEST_F(Header, WithoutAPageSizeIsNotSound) {
  bytes[16] = 0;
  EXPECT_FALSE(of_file(3 * 4096).has_whole_pages());
  EXPECT_FALSE(of_file(3 * 4096).is_sound());
}

TEST_F(Header, OfAnotherApplicationOrVersionIsNotSound) {
  bytes[63] = 3;
  EXPECT_FALSE(of_file(3 * 4096).is_sound());
  bytes[63] = 1;
  bytes[68] = 't';
  EXPECT_FALSE(of_file(3 * 4096).is_sound());
}

TEST_F(Header, SaysWhetherThereIsAWriteAheadLog) {
  bytes[19] = 1;
  EXPECT_FALSE(of_file(3 * 4096).asks_for_write_ahead_log());
  EXPECT_TRUE(of_file(3 * 4096).is_sound());
}

TEST_F(Header, OfAnotherKindOfFileIsNotSound) {
  bytes[0] = 's';
  EXPECT_FALSE(of_file(3 * 4096).has_whole_pages());
  EXPECT_FALSE(of_file(3 * 4096).asks_for_write_ahead_log());
  EXPECT_FALSE(of_file(3 * 4096).is_sound());
}

TEST_F(Header, IsIgnoredIfTheFileIsTooShort) {
  EXPECT_FALSE(of_file(0).asks_for_write_ahead_log());
  EXPECT_FALSE(of_file(99).asks_for_write_ahead_log());
}

}  // namespace
}  // namespace toolkit::trend
