// Archives in files.
#pragma once

#include <string_view>

#include "archive/archive_reader.h"

namespace ve::file {

/// Maps the file and reads the archive's header. The reader owns the mapping; while it lives, the
/// file cannot be written. Throws `MappedFileException` if the file cannot be mapped, and
/// `FileException`, with the file closed again, if the header is not valid.
[[nodiscard]] ArchiveReader OpenArchiveFile(std::wstring_view path);

}  // namespace ve::file
