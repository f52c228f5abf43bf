#include "text/line_reader.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdio>
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
  LineReader reader(fileno(file.get()));
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
  LineReader reader(fileno(file.get()));
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
  LineReader reader(fileno(file.get()));
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
  LineReader reader(fileno(file.get()));
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
  LineReader reader(fileno(folder.get()));
  std::string_view line;
  EXPECT_FALSE(reader.next(line));
  EXPECT_TRUE(reader.has_failed());
  EXPECT_EQ(reader.error(), EISDIR);
  EXPECT_FALSE(reader.look_ahead(line));
  EXPECT_EQ(reader.number(), 0U);
}

TEST(LineReader, RefusesALineThatIsTooLong) {
  const std::string longest(LONGEST_LINE, 'x');
  EXPECT_EQ(lines_of("one\n" + longest + "\ntwo\n"), (Lines{"one", longest, "two"}));
  for (const char* end : {"x", "x\n", "x\r\ntwo\n"}) {
    const File file = make_file("one\n" + longest + end);
    LineReader reader(fileno(file.get()));
    EXPECT_EQ(read_all(reader), Lines{"one"});
    EXPECT_TRUE(reader.has_failed());
    EXPECT_EQ(reader.error(), EMSGSIZE);
    std::string_view line;
    EXPECT_FALSE(reader.look_ahead(line));
  }
}

TEST(LineReader, KeepsOnlySoManyLinesAhead) {
  const auto count_ahead = [](LineReader& reader) {
    std::size_t lines = 0;
    std::string_view line;
    while (reader.look_ahead(line)) ++lines;
    return lines;
  };
  std::string many;
  for (int i = 0; i < 20'000; ++i) many += "x\n";
  const File many_file = make_file(many);
  LineReader many_reader(fileno(many_file.get()));
  EXPECT_EQ(count_ahead(many_reader), 10'000U);
  EXPECT_EQ(read_all(many_reader).size(), 20'000U);

  std::string large;
  for (int i = 0; i < 20; ++i) large += std::string(1'000'000, 'x') + "\n";
  const File large_file = make_file(large);
  LineReader large_reader(fileno(large_file.get()));
  EXPECT_EQ(count_ahead(large_reader), 17U);
  EXPECT_EQ(read_all(large_reader).size(), 20U);
  EXPECT_EQ(large_reader.bytes(), large.size());
}

}  // namespace
