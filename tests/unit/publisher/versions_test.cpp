#include "publisher/channel/versions.h"

#include <gtest/gtest.h>

namespace ve::publish {
namespace {

TEST(ParseVersion, TakesTheMostSignificantNumberFirst) {
  EXPECT_EQ(ParseVersion("1.4.0.2"), (sdk::VersionNumber{{2, 0, 4, 1}}));
  EXPECT_EQ(ParseVersion("0.0.0.0"), sdk::VersionNumber{});
  EXPECT_EQ(ParseVersion("2147483647.1.02.3"), (sdk::VersionNumber{{3, 2, 1, 2147483647}}));
}

TEST(ParseVersion, TakesNoOtherText) {
  for (const char* const text :
       {"", "1", "1.4.0", "1.4.0.", "1.4.0.2.", "1.4.0.2.1", ".4.0.2", "1..0.2", "1.4.0.-2",
        "-1.4.0.2", "+1.4.0.2", "1.4.0.2 ", " 1.4.0.2", "1.4.0.x", "1,4,0,2", "1.4.0.2147483648"}) {
    EXPECT_EQ(ParseVersion(text), std::nullopt) << text;
  }
}

TEST(VersionText, IsWhatWasParsed) {
  EXPECT_EQ(VersionText({{2, 0, 4, 1}}), "1.4.0.2");
  EXPECT_EQ(VersionText({{-1, 0, 0, -2147483647 - 1}}), "-2147483648.0.0.-1");
}

}  // namespace
}  // namespace ve::publish
