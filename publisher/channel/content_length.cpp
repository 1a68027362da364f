#include "publisher/channel/content_length.h"

#include <string>

#include "net/com_scope.h"
#include "net/internet_request.h"

namespace ve::publish {

std::optional<std::uint64_t> ContentLength(std::wstring_view url) {
  const ComScope com;
  // Declared in the order of their making, so that the request closes before its root.
  const UniqueInternetHandle root(
      InternetOpenW(nullptr, INTERNET_OPEN_TYPE_DIRECT, nullptr, nullptr, 0));
  if (!root) return {};
  const UniqueInternetHandle request(
      InternetOpenUrlW(root.Get(), std::wstring(url).c_str(), nullptr, 0, kRequestFlags, 0));
  if (!request || QueryNumber(request.Get(), HTTP_QUERY_STATUS_CODE) != HTTP_STATUS_OK) return {};
  return QueryNumber(request.Get(), HTTP_QUERY_CONTENT_LENGTH);
}

}  // namespace ve::publish
