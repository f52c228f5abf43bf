#include "libcds/reply.h"

#include <gmock/gmock.h>

#include "libcds/cds.h"

using testing::ElementsAre;
using testing::Optional;
using toolkit::LONGEST_TEXT;
using toolkit::LONGEST_TEXTS;

namespace {

std::string bulk(const std::string& text) {
  return "$" + std::to_string(text.size()) + "\r\n" + text + "\r\n";
}

TEST(FormatRequest, CountsWordsAndBytes) {
  EXPECT_EQ(format_request({"MGET", "a\r\n", ""}), "*3\r\n$4\r\nMGET\r\n$3\r\na\r\n\r\n$0\r\n\r\n");
}

TEST(TextsReader, ReadsAReplyThatComesInAnyPieces) {
  const std::string reply = "*4\r\n" + bulk("a\r\n$-1\r\n") + "$-1\r\n" + bulk("") + bulk("z");
  for (std::size_t piece = 1; piece <= reply.size(); ++piece) {
    TextsReader reader(4);
    for (std::size_t start = 0; start < reply.size(); start += piece) {
      EXPECT_EQ(reader.read(reply.substr(start, piece)),
                start + piece < reply.size() ? ReplyState::INCOMPLETE : ReplyState::COMPLETE);
    }
    EXPECT_THAT(reader.texts(), ElementsAre(Optional(std::string("a\r\n$-1\r\n")), std::nullopt,
                                            Optional(std::string()), Optional(std::string("z"))));
  }
}

TEST(TextsReader, PassesOverTextsThatAreTooLong) {
  const std::string longest(LONGEST_TEXT, 'x');
  TextsReader reader(3);
  EXPECT_EQ(reader.read("*3\r\n" + bulk(longest) + bulk(longest + "x") + bulk("z")),
            ReplyState::COMPLETE);
  EXPECT_THAT(reader.texts(),
              ElementsAre(Optional(longest), std::nullopt, Optional(std::string("z"))));
}

TEST(TextsReader, RefusesMoreTextsThanOneRequestReads) {
  const std::string text = bulk(std::string(LONGEST_TEXT, 'x'));
  const std::size_t most = LONGEST_TEXTS / LONGEST_TEXT;
  TextsReader reader(most + 1);
  EXPECT_EQ(reader.read("*" + std::to_string(most + 1) + "\r\n"), ReplyState::INCOMPLETE);
  for (std::size_t i = 0; i < most; ++i) ASSERT_EQ(reader.read(text), ReplyState::INCOMPLETE);
  EXPECT_EQ(reader.read("$1\r\n"), ReplyState::WRONG);
}

TEST(TextsReader, RefusesWhatIsNotAListOfTexts) {
  for (const char* reply :
       {"+OK\r\n", "$1\r\nx\r\n", "*1\r\n", "*3\r\n", "*-1\r\n", "*+2\r\n", "* 2\r\n", "*2 \r\n",
        "*\r\n", "*99999999999999999999999\r\n", "*2\r\n:1\r\n", "*2\r\n$-2\r\n", "*2\r\n$\r\n",
        "*2\r\n$1\r\nxy\r\n", "*2\r\n$0\r\nx\r\n", "*2\r\n$99999999999999999999999\r\n", "\r\n",
        "*2\r\n$-1\r\n$-1\r\nx",
        "garbage that has no end and is longer than any line of a reply"}) {
    EXPECT_EQ(TextsReader(2).read(reply), ReplyState::WRONG) << reply;
  }
}

}  // namespace
