// Archives in files.
#pragma once

#include <string_view>

#include "archive/archive_reader.h"

namespace ve::file {

/// Maps the file and reads the archive's header from it. The reader owns the mapping; while it
/// lives nobody can write the file. Throws `MappedFileException` if the file cannot be mapped and
/// `FileException` if the header is rejected; the file is closed then.
[[nodiscard]] ArchiveReader OpenArchiveFile(std::wstring_view path);

}  // namespace ve::file
