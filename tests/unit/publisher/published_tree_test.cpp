#include "publisher/channel/published_tree.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace ve::publish {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

std::vector<std::string> WarningsOfBaseUrl(std::string_view url) {
  Diagnostics diagnostics;
  WarnOfBaseUrl(url, "where", diagnostics);
  EXPECT_FALSE(diagnostics.HasErrors());
  std::vector<std::string> messages;
  for (const Diagnostic& warning : diagnostics.warnings) {
    EXPECT_EQ(warning.subject, "where");
    messages.push_back(warning.message);
  }
  return messages;
}

TEST(WarnOfBaseUrl, HttpsWithASlashPasses) {
  EXPECT_THAT(WarningsOfBaseUrl("https://updates.example/"), IsEmpty());
}

TEST(WarnOfBaseUrl, PlainHttpIsWarnedOfInAnyCaseAndForThisComputerToo) {
  for (const std::string url : {"http://updates.example/", "HTTP://x/", "http://127.0.0.1:80/"}) {
    EXPECT_THAT(
        WarningsOfBaseUrl(url),
        ElementsAre(url + " is plain http: anyone between server and player can replace files"));
  }
}

TEST(WarnOfBaseUrl, AMissingSlashIsWarnedOf) {
  EXPECT_THAT(WarningsOfBaseUrl("https://x"), ElementsAre("https://x does not end with a slash"));
}

TEST(CheckContentLength, OnlyAnotherLengthIsAnError) {
  FileContent content;
  content.size = content.contentLength = 11;
  Diagnostics diagnostics;
  CheckContentLength(content, "place", diagnostics);
  EXPECT_THAT(diagnostics.errors, IsEmpty());
  content.size = 3;
  CheckContentLength(content, "place", diagnostics);
  ASSERT_EQ(diagnostics.errors.size(), 1U);
  EXPECT_EQ(diagnostics.errors[0].message, "the body has 3 bytes, but its Content-Length is 11");
}

}  // namespace
}  // namespace ve::publish
