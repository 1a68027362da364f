#include "publisher/published_tree.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "core/unicode.h"
#include "publisher/announced_length.h"
#include "support/loopback_server.h"

namespace ve::publish {
namespace {

using test::LoopbackServer;
using test::Ok;
using test::Reply;
using testing::ElementsAre;
using testing::IsEmpty;

std::vector<std::string> Told(const Findings& findings) {
  EXPECT_THAT(findings.warnings, IsEmpty());
  std::vector<std::string> told;
  for (const Finding& finding : findings.refusals) {
    told.push_back(finding.subject + ": " + finding.rule);
  }
  return told;
}

test::Answer Announcing(const std::string& length, const std::string& body) {
  return {"HTTP/1.1 200 OK\r\nConnection: close\r\nContent-Length: " + length + "\r\n\r\n" + body};
}

TEST(AnnouncedLength, IsThatOfTheHead) {
  LoopbackServer server;
  server.Script("/file", Ok("the content"));
  EXPECT_EQ(AnnouncedLength(server.Url("/file")), 11U);
  server.Script("/less", Announcing("70000", "less"));
  EXPECT_EQ(AnnouncedLength(server.Url("/less")), 70000U);
  server.Script("/empty", Ok(""));
  EXPECT_EQ(AnnouncedLength(server.Url("/empty")), 0U);
}

TEST(AnnouncedLength, ThereIsNoneWithoutAnAnswerThatHasOne) {
  LoopbackServer server;
  server.Script("/missing", Reply("404 Not Found", "nothing"));
  EXPECT_EQ(AnnouncedLength(server.Url("/missing")), std::nullopt);
  server.Script("/open", {"HTTP/1.1 200 OK\r\nConnection: close\r\n\r\nthe content"});
  EXPECT_EQ(AnnouncedLength(server.Url("/open")), std::nullopt);
  EXPECT_EQ(AnnouncedLength(L"no URL at all"), std::nullopt);
}

TEST(DownloadChecked, OfTheRightLengthThereIsNothingToSay) {
  LoopbackServer server;
  server.Script("/file", Ok("the content"));
  server.Script("/file", Ok("the content"));
  Findings findings;
  DownloadResult download = DownloadChecked(server.Url("/file"), "place", findings);
  ASSERT_TRUE(download.Succeeded());
  EXPECT_EQ(download.Body(), "the content");
  EXPECT_THAT(Told(findings), IsEmpty());
}

TEST(DownloadChecked, AnotherLengthIsRefusedAndTheBodyIsThere) {
  LoopbackServer server;
  server.Script("/file", Announcing("11", "the"));
  server.Script("/file", Announcing("11", "the"));
  Findings findings;
  DownloadResult download = DownloadChecked(server.Url("/file"), "place", findings);
  ASSERT_TRUE(download.Succeeded());
  EXPECT_EQ(download.Body(), "the");
  EXPECT_THAT(Told(findings),
              ElementsAre("place: came with 3 bytes, but its Content-Length is 11"));
}

TEST(DownloadChecked, AFileThatComesOnlyOnceIsRefused) {
  LoopbackServer server;
  server.Script("/file", Ok("the content"));
  server.Script("/file", Reply("503 Service Unavailable", "busy"));
  Findings findings;
  EXPECT_TRUE(DownloadChecked(server.Url("/file"), "place", findings).Succeeded());
  EXPECT_THAT(Told(findings), ElementsAre("place: came once, but not when it was asked for again"));
}

TEST(DownloadChecked, WhatDoesNotComeIsAskedForOnce) {
  LoopbackServer server;
  server.Script("/file", Reply("404 Not Found", "nothing"));
  Findings findings;
  const DownloadResult download = DownloadChecked(server.Url("/file"), "place", findings);
  ASSERT_FALSE(download.Succeeded());
  EXPECT_EQ(download.Error(), kNotFound);
  EXPECT_THAT(Told(findings), IsEmpty());
  EXPECT_EQ(server.Requests().size(), 1U);
}

}  // namespace
}  // namespace ve::publish
