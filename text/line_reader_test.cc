#include "text/line_reader.h"

#include <gtest/gtest.h>

#include <memory>
#include <vector>

namespace {

struct FileCloser {
  void operator()(std::FILE* file) const { std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, FileCloser>;

/// A file with this content, to be read from its start.
File make_file(const std::string& content) {
  File file(std::tmpfile());
  EXPECT_NE(file, nullptr);
  EXPECT_EQ(std::fwrite(content.data(), 1, content.size(), file.get()), content.size());
  std::rewind(file.get());
  return file;
}

using Lines = std::vector<std::string>;

Lines read_all(LineReader& reader) {
  Lines lines;
  std::string_view line;
  while (reader.next(line)) lines.emplace_back(line);
  return lines;
}

Lines lines_of(const std::string& content) {
  const File file = make_file(content);
  LineReader reader(file.get());
  const Lines lines = read_all(reader);
  EXPECT_EQ(reader.number(), lines.size());
  EXPECT_EQ(reader.bytes(), content.size());
  EXPECT_FALSE(reader.has_failed());
  return lines;
}

TEST(LineReader, ReadsLinesWithoutTheirEnds) {
  EXPECT_EQ(lines_of("one\ntwo\n"), (Lines{"one", "two"}));
  EXPECT_EQ(lines_of("one\r\ntwo\r\n"), (Lines{"one", "two"}));
  EXPECT_EQ(lines_of("one\r\ntwo\n"), (Lines{"one", "two"}));
}

TEST(LineReader, ReadsALastLineWithoutLineFeed) {
  EXPECT_EQ(lines_of("one\ntwo"), (Lines{"one", "two"}));
  EXPECT_EQ(lines_of("one\ntwo\r"), (Lines{"one", "two"}));
}

TEST(LineReader, KeepsEmptyLines) {
  EXPECT_EQ(lines_of(""), Lines());
  EXPECT_EQ(lines_of("\n"), Lines{""});
  EXPECT_EQ(lines_of("\n\r\n\nx"), (Lines{"", "", "", "x"}));
}

TEST(LineReader, RemovesOnlyOneLineEnd) {
  EXPECT_EQ(lines_of("one\r\r\n"), Lines{"one\r"});
  EXPECT_EQ(lines_of("a\rb\n"), Lines{"a\rb"});
}

TEST(LineReader, ReadsZeroBytesAndLongLines) {
  const std::string zero("a\0b", 3);
  const std::string longest(100'000, 'x');
  EXPECT_EQ(lines_of(zero + "\n" + longest + "\n" + zero), (Lines{zero, longest, zero}));
}

TEST(LineReader, CountsTheLinesThatNextReturned) {
  const File file = make_file("one\ntwo\nthree\n");
  LineReader reader(file.get());
  std::string_view line;
  EXPECT_EQ(reader.number(), 0U);
  ASSERT_TRUE(reader.look_ahead(line));
  EXPECT_EQ(reader.number(), 0U);
  ASSERT_TRUE(reader.next(line));
  EXPECT_EQ(reader.number(), 1U);
  ASSERT_TRUE(reader.next(line));
  EXPECT_EQ(reader.number(), 2U);
}

TEST(LineReader, ReturnsLinesThatWereLookedAtBefore) {
  const File file = make_file("one\ntwo\nthree\nfour\n");
  LineReader reader(file.get());
  std::string_view line;
  ASSERT_TRUE(reader.look_ahead(line));
  EXPECT_EQ(line, "one");
  ASSERT_TRUE(reader.look_ahead(line));
  EXPECT_EQ(line, "two");
  ASSERT_TRUE(reader.next(line));
  EXPECT_EQ(line, "one");
  ASSERT_TRUE(reader.look_ahead(line));
  EXPECT_EQ(line, "three");
  EXPECT_EQ(read_all(reader), (Lines{"two", "three", "four"}));
}

TEST(LineReader, LooksAheadToTheEnd) {
  const File file = make_file("one\n");
  LineReader reader(file.get());
  std::string_view line;
  EXPECT_TRUE(reader.look_ahead(line));
  EXPECT_FALSE(reader.look_ahead(line));
  EXPECT_FALSE(reader.has_failed());
  EXPECT_EQ(read_all(reader), Lines{"one"});
}

TEST(LineReader, DistinguishesAFailureFromTheEnd) {
  // A folder can be opened, but not read.
  const File folder(std::fopen("/", "r"));
  ASSERT_NE(folder, nullptr);
  LineReader reader(folder.get());
  std::string_view line;
  EXPECT_FALSE(reader.next(line));
  EXPECT_TRUE(reader.has_failed());
  EXPECT_FALSE(reader.look_ahead(line));
  EXPECT_EQ(reader.number(), 0U);
}

}  // namespace
