#include "publisher/channel/published_tree.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "core/unicode.h"
#include "publisher/channel/content_length.h"
#include "support/loopback_server.h"

namespace ve::publish {
namespace {

using test::LoopbackServer;
using test::Ok;
using test::Reply;
using testing::ElementsAre;
using testing::IsEmpty;

std::vector<std::string> Told(const Diagnostics& diagnostics) {
  EXPECT_THAT(diagnostics.warnings, IsEmpty());
  std::vector<std::string> told;
  for (const Diagnostic& diagnostic : diagnostics.errors) {
    told.push_back(diagnostic.subject + ": " + diagnostic.message);
  }
  return told;
}

test::Answer Announcing(const std::string& length, const std::string& body) {
  return {"HTTP/1.1 200 OK\r\nConnection: close\r\nContent-Length: " + length + "\r\n\r\n" + body};
}

TEST(ContentLength, IsThatOfTheHead) {
  LoopbackServer server;
  server.Script("/file", Ok("the content"));
  EXPECT_EQ(ContentLength(server.Url("/file")), 11U);
  server.Script("/less", Announcing("70000", "less"));
  EXPECT_EQ(ContentLength(server.Url("/less")), 70000U);
  server.Script("/empty", Ok(""));
  EXPECT_EQ(ContentLength(server.Url("/empty")), 0U);
}

TEST(ContentLength, ThereIsNoneWithoutAnAnswerThatHasOne) {
  LoopbackServer server;
  server.Script("/missing", Reply("404 Not Found", "nothing"));
  EXPECT_EQ(ContentLength(server.Url("/missing")), std::nullopt);
  server.Script("/open", {"HTTP/1.1 200 OK\r\nConnection: close\r\n\r\nthe content"});
  EXPECT_EQ(ContentLength(server.Url("/open")), std::nullopt);
  EXPECT_EQ(ContentLength(L"no URL at all"), std::nullopt);
}

TEST(DownloadChecked, OfTheRightLengthThereIsNothingToSay) {
  LoopbackServer server;
  server.Script("/file", Ok("the content"));
  server.Script("/file", Ok("the content"));
  Diagnostics diagnostics;
  DownloadResult download = DownloadChecked(server.Url("/file"), "place", diagnostics);
  ASSERT_TRUE(download.Succeeded());
  EXPECT_EQ(download.Body(), "the content");
  EXPECT_THAT(Told(diagnostics), IsEmpty());
}

TEST(DownloadChecked, AnotherLengthIsRefusedAndTheBodyIsThere) {
  LoopbackServer server;
  server.Script("/file", Announcing("11", "the"));
  server.Script("/file", Announcing("11", "the"));
  Diagnostics diagnostics;
  DownloadResult download = DownloadChecked(server.Url("/file"), "place", diagnostics);
  ASSERT_TRUE(download.Succeeded());
  EXPECT_EQ(download.Body(), "the");
  EXPECT_THAT(Told(diagnostics),
              ElementsAre("place: came with 3 bytes, but its Content-Length is 11"));
}

TEST(DownloadChecked, AFileThatComesOnlyOnceIsRefused) {
  LoopbackServer server;
  server.Script("/file", Ok("the content"));
  server.Script("/file", Reply("503 Service Unavailable", "busy"));
  Diagnostics diagnostics;
  EXPECT_TRUE(DownloadChecked(server.Url("/file"), "place", diagnostics).Succeeded());
  EXPECT_THAT(Told(diagnostics),
              ElementsAre("place: came once, but not when it was asked for again"));
}

TEST(DownloadChecked, WhatDoesNotComeIsAskedForOnce) {
  LoopbackServer server;
  server.Script("/file", Reply("404 Not Found", "nothing"));
  Diagnostics diagnostics;
  const DownloadResult download = DownloadChecked(server.Url("/file"), "place", diagnostics);
  ASSERT_FALSE(download.Succeeded());
  EXPECT_EQ(download.Error(), kNotFound);
  EXPECT_THAT(Told(diagnostics), IsEmpty());
  EXPECT_EQ(server.Requests().size(), 1U);
}

}  // namespace
}  // namespace ve::publish
