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

// For the contents of all files that are read ahead together.
constexpr std::size_t kMemorySize = std::size_t{64} << 20;
// Up to four files are read ahead, one for each lane. More, to take the lanes of those that end
// first, only as long as all of them are still in the processor's cache when they are digested.
constexpr std::size_t kMaxSizeBeyondFour = std::size_t{4} << 20;

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
  if (answers_.empty() && currentInARow_ > 0) ReadAhead();
  const FileEntry& entry = entries_.front();
  entries_ = entries_.subspan(1);
  bool isCurrent = false;
  if (answers_.empty()) {
    memory_.reset();  // The file may be large.
    isCurrent = FileMatchesEntry(entry.name, entry.size, entry.digest);
  } else {
    isCurrent = answers_.front();
    answers_.pop_front();
  }
  if (isCurrent) {
    currentInARow_ = std::min(currentInARow_ + 1, kMaxFiles);
  } else {
    currentInARow_ = 0;
    answers_.clear();
    memory_.reset();  // The staged file or the download may be large, too.
  }
  return isCurrent;
}

/// Adds answers up to the first file that does not fit or has no answer yet: it is missing, has
/// another size or cannot be read, which `FileMatchesEntry` finds out at its entry. Reads no more
/// files than were current in a row: where many are not, little is read for nothing.
void InstalledFiles::ReadAhead() {
  if (!memory_) memory_.reset(new (std::nothrow) std::byte[kMemorySize]);
  const std::span memory(memory_.get(), memory_ ? kMemorySize : 0);
  std::vector<std::span<const std::byte>> contents;
  std::size_t used = 0;
  for (const FileEntry& entry : entries_.first(std::min(currentInARow_, entries_.size()))) {
    if (entry.size > memory.size() - used) break;
    const auto content = memory.subspan(used, static_cast<std::size_t>(entry.size));
    used += content.size();
    if (contents.size() >= kMd5Lanes && used > kMaxSizeBeyondFour) break;
    if (!ReadExactly(entry.name, content)) break;
    contents.emplace_back(content);
  }
  for (const std::string& digest : Md5HexOfEach(contents)) {
    answers_.emplace_back(digest == entries_[answers_.size()].digest);
  }
}

}  // namespace ve::sdk
