// HTTP downloads into memory.
//
//   ve::DownloadResult result = ve::Download(url);
//   if (!result.Succeeded()) ThrowUpdaterException("... '{}'", result.Error());
//   Use(std::move(result.Body()));
#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <variant>

namespace ve {

/// The outcome of a download: the response's body exactly as received, which may be empty, or an
/// error text.
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
  /// The body. Call it only if the download succeeded.
  [[nodiscard]] std::string& Body() { return std::get<std::string>(bodyOrError_); }
  /// The error text. Call it only if the download failed.
  [[nodiscard]] const std::wstring& Error() const { return std::get<std::wstring>(bodyOrError_); }

 private:
  template <class Kind, class Text>
  DownloadResult(std::in_place_type_t<Kind> kind, Text&& text)
      : bodyOrError_(kind, std::forward<Text>(text)) {}

  std::variant<std::string, std::wstring> bodyOrError_;
};

/// Fetches an http or https URL with one GET and waits for the whole body. Bypasses caches and
/// proxies, sends no credentials and follows redirects as WinINet does. Succeeds only with status
/// 200 and a Content-Length; does not compare that length with the body's. Reserves the announced
/// length, of at most 4 GiB, before it reads. No retry; the time-outs are WinINet's. Returns
/// network and server errors; throws only when memory runs out. Downloads must not overlap.
[[nodiscard]] DownloadResult Download(std::wstring_view url);

}  // namespace ve
