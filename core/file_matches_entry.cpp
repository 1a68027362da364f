#include "core/file_matches_entry.h"

#include "core/files.h"
#include "core/md5.h"

namespace ve {

bool FileMatchesEntry(std::wstring_view path, std::uint64_t size, std::string_view digest) {
  if (!file::Exists(path)) return false;
  if (file::FileSize(path) != size) return false;
  return Md5Hex(file::LoadFile(path)) == digest;
}

}  // namespace ve
