// What a server says the length of a response is.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace ve::publish {

/// The Content-Length of the answer to the request that `Download` makes, whose result does not
/// tell it: the URL is asked for once more, and the body is not read. None if there is none, or no
/// answer with status 200. Not while anything is downloaded.
[[nodiscard]] std::optional<std::uint64_t> ContentLength(std::wstring_view url);

}  // namespace ve::publish
