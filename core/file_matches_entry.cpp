#include "core/files.h"
#include "core/md5.h"

namespace ve {

bool FileMatchesEntry(std::wstring_view path, std::uint64_t size, std::string_view digest) {
  if (!file::Exists(path)) return false;
  if (file::FileSize(path) != size) return false;
  const file::FileBytes content = file::LoadFileBytes(path);
  return Md5Hex(std::span(content.data.get(), content.size)) == digest;
}

}  // namespace ve
