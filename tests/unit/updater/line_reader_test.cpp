#include <gtest/gtest.h>
#include <string>
#include <string_view>
#include <vector>

#include "updater/manifest_text.h"

namespace ve::sdk {
namespace {

std::vector<std::string_view> AllLines(std::string_view text) {
  std::vector<std::string_view> lines;
  LineReader reader(text);
  for (std::string_view line = reader.Next(); !line.empty(); line = reader.Next()) {
    lines.push_back(line);
  }
  return lines;
}

// Sixteen bytes are looked at together: every place in, before and behind such a step.
TEST(FindByte, FindsAByteAtEveryPlaceOfEveryLength) {
  for (std::size_t length = 0; length <= 50; ++length) {
    for (std::size_t place = 0; place <= length; ++place) {
      std::string text(length, '.');
      if (place < length) text[place] = '\n';
      const char* const end = text.data() + length;
      EXPECT_EQ((FindByte<'\r', '\n'>(text.data(), end)) - text.data(),
                static_cast<std::ptrdiff_t>(place))
          << "length " << length;
      EXPECT_EQ(FindByte<'\r'>(text.data(), end), end);
    }
  }
}

TEST(FindByte, StopsAtTheFirstOfSeveral) {
  const std::string text = "................\xFF..\r.\n.\r............";
  EXPECT_EQ((FindByte<'\n', '\r'>(text.data(), text.data() + text.size())) - text.data(), 19);
}

TEST(FindByte, DoesNotLookBehindTheEnd) {
  const std::string text = "0123456789abcdef\n";
  EXPECT_EQ(FindByte<'\n'>(text.data(), text.data() + 16), text.data() + 16);
}

TEST(LineReader, YieldsWhatSplittingYields) {
  for (const std::string_view text : {"", "\n", "A", "A\n", "\n\nA\n\n\nB\n\n", "   \n\tb\t",
                                      "a line of more than sixteen bytes\nB"}) {
    EXPECT_EQ(AllLines(text), SplitLines(text, '\n', EmptyPieces::kDrop)) << text;
  }
}

TEST(StripCarriageReturns, CountsTheLinesThatAreLeft) {
  for (const std::string_view text :
       {"", "\r", "\n", "\r\n\r\n", "A", "A\r", "\rA\n\r", "A\r\nB\r\n", "\r\n\r\nA\r\r\n\r\nB",
        "A\rB\nC\n\r\rD", "a line of more than sixteen bytes\r\nand\ranother\r\n\r\n"}) {
    std::string stripped(text);
    const std::size_t count = StripCarriageReturns(stripped);
    std::string expected(text);
    std::erase(expected, '\r');
    EXPECT_EQ(stripped, expected);
    EXPECT_EQ(count, SplitLines(expected, '\n', EmptyPieces::kDrop).size()) << expected;
  }
}

// The first lines move down by less than is looked at in one step, the later ones by more.
TEST(StripCarriageReturns, LinesOfEveryLengthKeepTheirBytes) {
  std::string text;
  for (std::size_t length = 0; length < 100; ++length) {
    for (std::size_t i = 0; i < length; ++i) text += static_cast<char>('0' + (length + i) % 64);
    text += "\r\n";
  }
  std::string expected = text;
  std::erase(expected, '\r');
  EXPECT_EQ(StripCarriageReturns(text), 99U);
  EXPECT_EQ(text, expected);
}

}  // namespace
}  // namespace ve::sdk
