#include <future>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "core/format.h"
#include "core/md5.h"
#include "net/download.h"
#include "publisher/channel/published_tree.h"
#include "support/loopback_server.h"

namespace ve::publish {
namespace {

using test::LoopbackServer;
using test::Ok;
using test::Reply;
using testing::IsEmpty;

constexpr unsigned kTimeout = 120;  // Seconds; only a hang takes this long.

test::Answer Announcing(const std::string& length, const std::string& body) {
  return {"HTTP/1.1 200 OK\r\nConnection: close\r\nContent-Length: " + length + "\r\n\r\n" + body};
}

TEST(Fetcher, ABodyIsKeptWithItsSizeAndDigest) {
  LoopbackServer server;
  const std::string body(300'000, 'x');  // More than is read at once.
  server.Script("/file", Ok(body));
  const FileContent content = Fetcher(kTimeout).Get(server.Url("/file"), Keep::kBody);
  EXPECT_THAT(content.error, IsEmpty());
  EXPECT_EQ(content.body, body);
  EXPECT_EQ(content.size, body.size());
  EXPECT_EQ(content.contentLength, body.size());
  EXPECT_EQ(content.md5, Md5Hex(body));
}

TEST(Fetcher, ADigestIsMadeWithoutKeepingTheBody) {
  LoopbackServer server;
  server.Script("/file", Ok("the content"));
  const FileContent content = Fetcher(kTimeout).Get(server.Url("/file"), Keep::kDigest);
  EXPECT_THAT(content.body, IsEmpty());
  EXPECT_EQ(content.size, 11U);
  EXPECT_EQ(content.md5, Md5Hex(std::string("the content")));
}

TEST(Fetcher, ABodyOfAnotherLengthThanAnnouncedHasBoth) {
  LoopbackServer server;
  server.Script("/less", Announcing("70000", "less"));
  const FileContent content = Fetcher(kTimeout).Get(server.Url("/less"), Keep::kBody);
  EXPECT_EQ(content.body, "less");
  EXPECT_EQ(content.size, 4U);
  EXPECT_EQ(content.contentLength, 70000U);
}

TEST(Fetcher, FailuresHaveTheTextsOfTheLaunchersDownload) {
  LoopbackServer server;
  server.Script("/401", Reply("401 Unauthorized", ""));
  server.Script("/500", Reply("500 Internal Server Error", ""));
  server.Script("/503", Reply("503 Service Unavailable", ""));
  server.Script("/open", {"HTTP/1.1 200 OK\r\nConnection: close\r\n\r\nthe content"});
  std::vector<std::wstring> urls{L"no URL at all", L"http://127.0.0.1:1/"};
  for (const char* path : {"/401", "/404", "/500", "/503", "/open"}) {
    urls.push_back(server.Url(path));
  }
  const Fetcher fetcher(kTimeout);
  for (const std::wstring& url : urls) {
    std::wstring expected = Download(url).Error();
    expected.erase(expected.find_last_not_of(L"\r\n") + 1);
    EXPECT_EQ(fetcher.Get(url, Keep::kBody).error, expected) << url;
  }
}

TEST(Fetcher, OneFetcherServesSeveralThreads) {
  LoopbackServer server;
  constexpr unsigned kFiles = 40;
  const auto body = [](unsigned index) { return std::string(1000 + index, 'b'); };
  for (unsigned index = 0; index < kFiles; ++index) {
    server.Script(Format("/{}", index), Ok(body(index)));
  }
  const Fetcher fetcher(kTimeout);
  std::vector<std::future<FileContent>> fetched;
  for (unsigned index = 0; index < kFiles; ++index) {
    fetched.push_back(std::async(std::launch::async, [&, index] {
      return fetcher.Get(server.Url(Format("/{}", index)), Keep::kBody);
    }));
  }
  for (unsigned index = 0; index < kFiles; ++index) {
    EXPECT_EQ(fetched[index].get().body, body(index)) << index;
  }
  EXPECT_EQ(server.Requests().size(), kFiles);
}

}  // namespace
}  // namespace ve::publish
