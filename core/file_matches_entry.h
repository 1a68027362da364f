// Whether a file on disk already is what a manifest lists.
#pragma once

#include <cstdint>
#include <string_view>

namespace ve {

/// Whether the file at `path` has this size in bytes and this MD5 digest. Compares the sizes first,
/// so it does not read a file of another size; reads a file of the right size whole. False if there
/// is nothing at the path. The digest of 4 GiB or more is that of `Md5`. `digest` is compared byte by
/// byte with 32 lowercase hexadecimal characters: one in uppercase never matches. Throws what
/// `file::Exists`, `file::FileSize` and `file::LoadFile` throw.
[[nodiscard]] bool FileMatchesEntry(std::wstring_view path, std::uint64_t size,
                                    std::string_view digest);

}  // namespace ve
