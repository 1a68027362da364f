#include "net/download.h"

#include "core/windows.h"

#include <wininet.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>

#include "support/loopback_server.h"
#include "support/wininet_text.h"

namespace ve {
namespace {

using test::Answer;
using test::Ending;
using test::LoopbackServer;
using test::Ok;
using test::Reply;
using test::WinINetWords;
using testing::AnyOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

constexpr DWORD kHeaderNotFound = 12150;
constexpr DWORD kConnectionReset = 10054;
constexpr DWORD kConnectionAborted = 12030;
constexpr DWORD kConnectionWasReset = 12031;

/// What a download of the one scripted answer says.
DownloadResult DownloadOf(Answer answer) {
  LoopbackServer server;
  server.Script("/file", std::move(answer));
  return Download(server.Url("/file"));
}

/// Every byte value, at places that do not fit the size of the pieces it is read in.
std::string LargeBody(std::size_t size) {
  std::string body(size, '\0');
  for (std::size_t at = 0; at < size; ++at) body[at] = static_cast<char>(at * 7 + at / 251);
  return body;
}

TEST(Download, AnOkResponseYieldsItsBody) {
  DownloadResult result = DownloadOf(Ok("the content"));
  ASSERT_TRUE(result.Succeeded());
  EXPECT_EQ(result.Body(), "the content");
}

TEST(Download, AnEmptyBodyIsASuccessToo) {
  DownloadResult result = DownloadOf(Ok(""));
  ASSERT_TRUE(result.Succeeded());
  EXPECT_EQ(result.Body(), "");
}

TEST(Download, BodiesOfAllSizesArriveByteForByte) {
  for (const std::size_t size : {1U, 1023U, 1024U, 1025U, 65536U, 65537U, 3'000'001U}) {
    const std::string body = LargeBody(size);
    DownloadResult result = DownloadOf(Ok(body));
    ASSERT_TRUE(result.Succeeded()) << size;
    EXPECT_TRUE(result.Body() == body) << size;
  }
}

TEST(Download, NulBytesAndLineBreaksAreKept) {
  const std::string body("\0a\r\nb\n\xFF\0", 8);
  DownloadResult result = DownloadOf(Ok(body));
  ASSERT_TRUE(result.Succeeded());
  EXPECT_EQ(result.Body(), body);
}

TEST(Download, WithoutAContentLengthItFails) {
  const DownloadResult result =
      DownloadOf({"HTTP/1.1 200 OK\r\nConnection: close\r\n\r\nthe content"});
  ASSERT_FALSE(result.Succeeded());
  EXPECT_EQ(result.Error(), WinINetWords(kHeaderNotFound));
}

TEST(Download, AChunkedBodyIsRefused) {
  const DownloadResult result =
      DownloadOf({"HTTP/1.1 200 OK\r\nConnection: close\r\nTransfer-Encoding: chunked\r\n\r\n"
                  "3\r\nabc\r\n0\r\n\r\n"});
  ASSERT_FALSE(result.Succeeded());
  EXPECT_EQ(result.Error(), WinINetWords(kHeaderNotFound));
}

TEST(Download, ThreeStatusesHaveWordsOfTheirOwn) {
  EXPECT_EQ(DownloadOf(Reply("401 Unauthorized", "x")).Error(), L"401 - unauthorized.");
  EXPECT_EQ(DownloadOf(Reply("404 Not Found", "x")).Error(), L"404 - no such file.");
  EXPECT_EQ(DownloadOf(Reply("500 Internal Server Error", "x")).Error(),
            L"500 - internal server error.");
}

TEST(Download, EveryOtherStatusIsAnUnknownError) {
  EXPECT_EQ(DownloadOf(Reply("403 Forbidden", "x")).Error(), L"403 - unknown error code.");
  EXPECT_EQ(DownloadOf(Reply("503 Service Unavailable", "x")).Error(),
            L"503 - unknown error code.");
  EXPECT_EQ(DownloadOf(Reply("201 Created", "x")).Error(), L"201 - unknown error code.");
  EXPECT_EQ(DownloadOf({"HTTP/1.1 204 No Content\r\nConnection: close\r\n\r\n"}).Error(),
            L"204 - unknown error code.");
  EXPECT_EQ(DownloadOf(Reply("302 Found", "x")).Error(), L"302 - unknown error code.");
}

TEST(Download, AChallengeIsNotAnsweredNotEvenWithTheCredentialsOfTheUrl) {
  LoopbackServer server;
  server.Script("/file", Reply("401 Unauthorized", "x", "WWW-Authenticate: Basic realm=\"r\"\r\n"));
  std::wstring url = server.Url("/file");
  url.insert(url.find(L"127"), L"user:password@");
  EXPECT_EQ(Download(url).Error(), L"401 - unauthorized.");
  EXPECT_THAT(server.RequestedPaths(), ElementsAre("/file"));
}

TEST(Download, ARedirectIsFollowed) {
  LoopbackServer server;
  server.Script("/old", Reply("301 Moved Permanently", "", "Location: /new\r\n"));
  server.Script("/new", Ok("moved here"));
  DownloadResult result = Download(server.Url("/old"));
  ASSERT_TRUE(result.Succeeded());
  EXPECT_EQ(result.Body(), "moved here");
  EXPECT_THAT(server.RequestedPaths(), ElementsAre("/old", "/new"));
}

/// The system either reports the early end of a body as a failed read or as the body's end.
void ExpectShortBodyOrFailedRead(DownloadResult result) {
  if (result.Succeeded()) {
    EXPECT_EQ(result.Body(), "short");
  } else {
    EXPECT_THAT(result.Error(),
                AnyOf(WinINetWords(kConnectionAborted), WinINetWords(kConnectionWasReset),
                      WinINetWords(kConnectionReset)));
  }
}

TEST(Download, ABodyThatEndsEarlyIsNotWaitedFor) {
  const std::string bytes =
      "HTTP/1.1 200 OK\r\nConnection: close\r\nContent-Length: 100\r\n\r\nshort";
  ExpectShortBodyOrFailedRead(DownloadOf({bytes, Ending::kClose}));
  ExpectShortBodyOrFailedRead(DownloadOf({bytes, Ending::kReset}));
}

TEST(Download, AFailureIsNotTriedAgain) {
  LoopbackServer server;
  server.Script("/file", Reply("503 Service Unavailable", "x"));
  server.Script("/file", Ok("now it works"));
  EXPECT_FALSE(Download(server.Url("/file")).Succeeded());
  EXPECT_THAT(server.RequestedPaths(), ElementsAre("/file"));
}

TEST(Download, AnUnreachableServerFailsWithTheWordsOfWinINet) {
  std::wstring url;
  {
    const LoopbackServer gone;
    url = gone.Url("/file");
  }
  const DownloadResult result = Download(url);
  ASSERT_FALSE(result.Succeeded());
  EXPECT_EQ(result.Error(), WinINetWords(12029));
}

TEST(Download, UrlsThatAreNoneFailWithTheWordsOfWinINet) {
  EXPECT_EQ(Download(L"").Error(), WinINetWords(ERROR_INVALID_PARAMETER));
  EXPECT_EQ(Download(L"updates/release/file").Error(), WinINetWords(12006));
}

TEST(Download, TheRequestNamesNoProgramAndAsksPastAllCaches) {
  LoopbackServer server;
  server.Script("/file", Ok("x"));
  ASSERT_TRUE(Download(server.Url("/file")).Succeeded());
  ASSERT_EQ(server.Requests().size(), 1U);
  const std::string head = server.Requests()[0].head;
  EXPECT_TRUE(head.starts_with("GET /file HTTP/1.1\r\n")) << head;
  EXPECT_THAT(head, Not(HasSubstr("User-Agent")));
  EXPECT_THAT(head, Not(HasSubstr("Authorization")));
  EXPECT_THAT(head, Not(HasSubstr("If-Modified-Since")));
}

TEST(Download, EveryDownloadAsksTheServerAnew) {
  LoopbackServer server;
  constexpr const char* kCacheable = "Cache-Control: max-age=86400, public\r\n";
  server.Script("/file", Reply("200 OK", "first", kCacheable));
  server.Script("/file", Reply("200 OK", "second", kCacheable));
  EXPECT_EQ(Download(server.Url("/file")).Body(), "first");
  EXPECT_EQ(Download(server.Url("/file")).Body(), "second");
  EXPECT_EQ(server.Requests().size(), 2U);
}

TEST(Download, NothingIsLeftInTheSystemsCache) {
  LoopbackServer server;
  server.Script("/file", Reply("200 OK", "x", "Cache-Control: max-age=86400, public\r\n"));
  ASSERT_TRUE(Download(server.Url("/file")).Succeeded());
  DWORD size = 0;
  EXPECT_FALSE(GetUrlCacheEntryInfoW(server.Url("/file").c_str(), nullptr, &size));
  EXPECT_EQ(GetLastError(), DWORD{ERROR_FILE_NOT_FOUND});
}

}  // namespace
}  // namespace ve
