// HTTP downloads into memory.
#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>

namespace ve {

/// What a download yielded: the response's body exactly as received, which may be empty, or the
/// reason why there is none.
class DownloadResult {
 public:
  [[nodiscard]] static DownloadResult Success(std::string body) {
    return DownloadResult(std::in_place_type<std::string>, std::move(body));
  }
  [[nodiscard]] static DownloadResult Failure(std::wstring error) {
    return DownloadResult(std::in_place_type<std::wstring>, std::move(error));
  }

  /// True if there is a body.
  [[nodiscard]] bool Succeeded() const noexcept {
    return std::holds_alternative<std::string>(bodyOrError_);
  }
  /// The body; only of a download that succeeded.
  [[nodiscard]] std::string& Body() { return std::get<std::string>(bodyOrError_); }
  /// The reason; only of a download that failed.
  [[nodiscard]] const std::wstring& Error() const { return std::get<std::wstring>(bodyOrError_); }

 private:
  template <class Kind, class Text>
  DownloadResult(std::in_place_type_t<Kind> kind, Text&& text)
      : bodyOrError_(kind, std::forward<Text>(text)) {}

  std::variant<std::string, std::wstring> bodyOrError_;
};

/// Fetches an http or https URL with one GET and waits for the whole body: straight from the
/// server, past any cache and proxy, without credentials, following redirects as WinINet does. Only
/// status 200 with a Content-Length succeeds; the length received is not compared with it. There is
/// no retry and no time-out of our own. Network and server errors are returned; only memory
/// exhaustion throws. Downloads must not overlap.
[[nodiscard]] DownloadResult Download(std::wstring_view url);

/// `Download`, or what stands for it where a run is only foretold.
using Downloader = std::function<DownloadResult(std::wstring_view url)>;

}  // namespace ve
