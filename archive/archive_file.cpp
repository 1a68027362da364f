#include "archive/archive_file.h"

#include "core/mapped_file.h"

namespace ve::file {

ArchiveReader OpenArchiveFile(std::wstring_view path) {
  return ArchiveReader(MappedFile::Open(path));
}

}  // namespace ve::file
