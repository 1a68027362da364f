#include "net/download.h"

#include "core/windows.h"

#include <wininet.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <new>
#include <string>
#include <vector>

#include "core/unicode.h"
#include "support/loopback_server.h"
#include "support/replaced_call.h"
#include "support/wininet_text.h"

extern "C" {
extern void* VE_IMPORTED(CoInitialize);
extern void* VE_IMPORTED(CoUninitialize);
extern void* VE_IMPORTED(InternetOpenW);
extern void* VE_IMPORTED(InternetOpenUrlW);
extern void* VE_IMPORTED(HttpQueryInfoW);
extern void* VE_IMPORTED(InternetReadFile);
extern void* VE_IMPORTED(InternetCloseHandle);
extern void* VE_IMPORTED(malloc);
}

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

/// The result of a download that gets this answer.
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

TEST(Download, AnEmptyBodyIsASuccess) {
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

TEST(Download, ThreeStatusesHaveTheirOwnTexts) {
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

TEST(Download, ABodyThatEndsEarlyIsReturnedOrFailsTheRead) {
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

TEST(Download, AnUnreachableServerFailsWithTheTextOfWinINet) {
  std::wstring url;
  {
    const LoopbackServer gone;
    url = gone.Url("/file");
  }
  const DownloadResult result = Download(url);
  ASSERT_FALSE(result.Succeeded());
  EXPECT_EQ(result.Error(), WinINetWords(12029));
}

TEST(Download, InvalidUrlsFailWithTheTextOfWinINet) {
  // Wine refuses the empty URL as a parameter, Windows as a URL without a scheme.
  EXPECT_THAT(Download(L"").Error(), AnyOf(WinINetWords(ERROR_INVALID_PARAMETER),
                                           WinINetWords(ERROR_INTERNET_UNRECOGNIZED_SCHEME)));
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

TEST(Download, EveryDownloadAsksTheServerAgain) {
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

/// Records the calls of a download in their order, with their arguments. They reach no network: the
/// response has the status 200, the given length and one piece, "piece".
class Calls {
 public:
  explicit Calls(DWORD contentLength) {
    com_ = 0;
    calls_.clear();
    contentLength_ = contentLength;
  }

  [[nodiscard]] static const std::vector<std::string>& Made() { return calls_; }

  /// How often COM was initialised and not uninitialised again.
  [[nodiscard]] static int ComInitializations() { return com_; }

  /// Makes the call that Made() shows like this fail.
  static void Fail(const std::string& call) { failing_ = call; }
  ~Calls() { failing_.clear(); }
  Calls(const Calls&) = delete;
  Calls& operator=(const Calls&) = delete;

 private:
  static constexpr ULONG_PTR kRoot = 1;
  static constexpr ULONG_PTR kRequest = 2;

  static const char* Null(const void* pointer) { return pointer == nullptr ? "null" : "given"; }
  static const char* Name(HINTERNET handle) {
    return reinterpret_cast<ULONG_PTR>(handle) == kRoot ? "root" : "request";
  }
  static bool Record(const std::string& call) {
    calls_.push_back(call);
    SetLastError(ERROR_INTERNET_TIMEOUT);
    return call != failing_;
  }

  static HINTERNET WINAPI Open(const wchar_t* agent, DWORD type, const wchar_t* proxy,
                               const wchar_t* bypass, DWORD flags) {
    const bool succeeds =
        Record(Format("open {} {} {} {} ", Null(agent), type, Null(proxy), Null(bypass)) +
               std::to_string(flags));
    return reinterpret_cast<HINTERNET>(succeeds ? kRoot : 0);
  }
  static HINTERNET WINAPI OpenUrl(HINTERNET root, const wchar_t* url, const wchar_t* headers,
                                  DWORD headersLength, DWORD flags, DWORD_PTR context) {
    const bool succeeds =
        Record(Format("url {} {} {} {} ", Name(root), ToUtf8(url), Null(headers), headersLength) +
               Format("{} {}", flags, std::uint64_t{context}));
    return reinterpret_cast<HINTERNET>(succeeds ? kRequest : 0);
  }
  static BOOL WINAPI Query(HINTERNET request, DWORD what, void* value, DWORD* size, DWORD* index) {
    const bool isStatus = what == 0x20000013;
    std::memcpy(value, isStatus ? &kStatus : &contentLength_, sizeof(DWORD));
    return Record(Format("query {} {} {} {}", Name(request), what, *size, Null(index))) ? TRUE
                                                                                        : FALSE;
  }
  static BOOL WINAPI Read(HINTERNET request, void* buffer, DWORD size, DWORD* length) {
    const std::string call = Format("read {} {}", Name(request), size);
    const bool isFirst = calls_.empty() || calls_.back() != call;
    *length = isFirst ? 5 : 0;
    std::memcpy(buffer, "piece", *length);
    return Record(call) ? TRUE : FALSE;
  }
  static BOOL WINAPI Close(HINTERNET handle) {
    Record(Format("close {}, COM {}", Name(handle), com_));
    SetLastError(ERROR_INVALID_HANDLE);
    return TRUE;
  }

  static HRESULT WINAPI Initialize(void*) {
    ++com_;
    return S_OK;
  }
  static void WINAPI Uninitialize() { --com_; }

  static constexpr DWORD kStatus = 200;
  inline static int com_ = 0;
  inline static std::vector<std::string> calls_;
  inline static std::string failing_;
  inline static DWORD contentLength_ = 0;
  test::ReplacedCall initialize_{VE_IMPORTED(CoInitialize), &Initialize};
  test::ReplacedCall uninitialize_{VE_IMPORTED(CoUninitialize), &Uninitialize};
  test::ReplacedCall open_{VE_IMPORTED(InternetOpenW), &Open};
  test::ReplacedCall openUrl_{VE_IMPORTED(InternetOpenUrlW), &OpenUrl};
  test::ReplacedCall query_{VE_IMPORTED(HttpQueryInfoW), &Query};
  test::ReplacedCall read_{VE_IMPORTED(InternetReadFile), &Read};
  test::ReplacedCall close_{VE_IMPORTED(InternetCloseHandle), &Close};
};

constexpr const char* kOpen = "open null 1 null null 0";
constexpr const char* kOpenUrl = "url root http://server/ null 0 2214854656 0";  // 0x84040000
constexpr const char* kQueryStatus = "query request 536870931 4 null";           // 0x20000013
constexpr const char* kQueryLength = "query request 536870917 4 null";           // 0x20000005
constexpr const char* kRead = "read request 1024";
constexpr const char* kCloseRequest = "close request, COM 1";
constexpr const char* kCloseRoot = "close root, COM 1";

TEST(Download, CallsWinINetInOrderAndClosesTheRequestBeforeItsRoot) {
  const Calls calls(5);
  DownloadResult result = Download(L"http://server/");
  ASSERT_TRUE(result.Succeeded());
  EXPECT_EQ(result.Body(), "piece");
  EXPECT_THAT(Calls::Made(), ElementsAre(kOpen, kOpenUrl, kQueryStatus, kQueryLength, kRead, kRead,
                                         kCloseRequest, kCloseRoot));
  EXPECT_EQ(Calls::ComInitializations(), 0);
}

TEST(Download, AFailedCallReturnsItsErrorAfterClosingWhatIsOpen) {
  const std::vector<std::string> all = {kOpen, kOpenUrl, kQueryStatus, kQueryLength, kRead};
  for (std::size_t failing = 0; failing < all.size(); ++failing) {
    const Calls calls(5);
    Calls::Fail(all[failing]);
    const DownloadResult result = Download(L"http://server/");
    ASSERT_FALSE(result.Succeeded()) << all[failing];
    // Closing sets another last error, which must not replace the reported one.
    EXPECT_EQ(result.Error(), WinINetWords(ERROR_INTERNET_TIMEOUT)) << all[failing];
    std::vector<std::string> expected(all.begin(), all.begin() + static_cast<int>(failing) + 1);
    if (failing > 1) expected.emplace_back(kCloseRequest);
    if (failing > 0) expected.emplace_back(kCloseRoot);
    EXPECT_EQ(Calls::Made(), expected) << all[failing];
    EXPECT_EQ(Calls::ComInitializations(), 0) << all[failing];
  }
}

TEST(Download, WithTooLittleMemoryForTheLengthItThrowsAfterClosing) {
  constexpr DWORD kTooMuch = 50'000'000;
  static void* const realMalloc = VE_IMPORTED(malloc);
  const Calls calls(kTooMuch);
  const test::ReplacedCall little(
      VE_IMPORTED(malloc), +[](std::size_t size) -> void* {
        return size < kTooMuch ? reinterpret_cast<decltype(&std::malloc)>(realMalloc)(size)
                               : nullptr;
      });
  EXPECT_THROW((void)Download(L"http://server/"), std::bad_alloc);
  EXPECT_THAT(Calls::Made(),
              ElementsAre(kOpen, kOpenUrl, kQueryStatus, kQueryLength, kCloseRequest, kCloseRoot));
  EXPECT_EQ(Calls::ComInitializations(), 0);
}

}  // namespace
}  // namespace ve
