#include "updater/installed_files.h"

#include "core/windows.h"

#include <algorithm>
#include <cstdint>
#include <new>
#include <string>
#include <vector>

#include "core/file_matches_entry.h"
#include "core/handle.h"
#include "core/md5_lanes.h"
#include "core/truncated_string.h"

namespace ve::sdk {
namespace {

// More keep the lanes of a digest filled for longer; fewer are read in vain before a download.
constexpr std::size_t kFilesAhead = 8;
// For the contents of all files that are read ahead together.
constexpr std::size_t kMemorySize = std::size_t{64} << 20;

/// Reads a file of exactly the buffer's size. Returns false on any failure.
bool ReadExactly(const std::wstring& path, std::span<std::byte> buffer) {
  // `file::LoadFile` refuses such a path.
  if (path.size() > WidePath::kMaxCharacters) return false;
  const UniqueFileHandle file(CreateFileW(path.c_str(), GENERIC_READ,
                                          FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                          OPEN_EXISTING, FILE_FLAG_SEQUENTIAL_SCAN, nullptr));
  LARGE_INTEGER size{};
  if (!file || GetFileSizeEx(file.Get(), &size) == FALSE) return false;
  if (static_cast<std::uint64_t>(size.QuadPart) != buffer.size()) return false;
  DWORD read = 0;
  return ReadFile(file.Get(), buffer.data(), static_cast<DWORD>(buffer.size()), &read, nullptr) !=
             FALSE &&
         read == buffer.size();
}

}  // namespace

bool InstalledFiles::NextIsCurrent() {
  // After a file that is not current, the next one often is not either, and reading ahead would be
  // in vain: its download drops the answers.
  if (answers_.empty() && current_) ReadAhead();
  const FileEntry& entry = entries_.front();
  entries_ = entries_.subspan(1);
  if (answers_.empty()) {
    memory_.reset();  // The file may be large.
    current_ = FileMatchesEntry(entry.name, entry.size, entry.digest);
  } else {
    current_ = answers_.front();
    answers_.pop_front();
  }
  if (!current_) memory_.reset();  // So may its staged file or its download.
  return current_;
}

/// Adds answers up to the first file that does not fit or has no answer yet: it is missing, has
/// another size or cannot be read, which `FileMatchesEntry` finds out at its entry.
void InstalledFiles::ReadAhead() {
  if (!memory_) memory_.reset(new (std::nothrow) std::byte[kMemorySize]);
  std::span<std::byte> room(memory_.get(), memory_ ? kMemorySize : 0);
  std::vector<std::span<const std::byte>> contents;
  for (const FileEntry& entry : entries_.first(std::min(kFilesAhead, entries_.size()))) {
    if (entry.size > room.size()) break;
    const auto content = room.first(static_cast<std::size_t>(entry.size));
    if (!ReadExactly(entry.name, content)) break;
    contents.push_back(content);
    room = room.subspan(content.size());
  }
  for (const std::string& digest : Md5HexOfEach(contents)) {
    answers_.push_back(digest == entries_[answers_.size()].digest);
  }
}

}  // namespace ve::sdk
