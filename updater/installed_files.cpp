#include "updater/installed_files.h"

#include "core/windows.h"

#include <algorithm>
#include <string>

#include "core/file_matches_entry.h"
#include "core/handle.h"
#include "core/truncated_string.h"

namespace ve::sdk {
namespace {

// What is read ahead in all. A larger file is read alone, by `FileMatchesEntry`.
constexpr std::size_t kMaxMemory = std::size_t{64} << 20;

/// Whether the file was read whole and fills the buffer exactly. Where it does not,
/// `FileMatchesEntry` finds out why.
bool ReadExactly(const std::wstring& path, std::span<std::byte> buffer) {
  if (path.size() > WidePath::kMaxCharacters)
    return false;  // `file::LoadFile` opens none of these.
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
  if (next_ == answered_) ReadAhead();
  const FileEntry& entry = entries_[next_];
  const std::optional<bool> answer = answers_[next_ - begin_];
  ++next_;
  if (answer == true) return true;
  // What follows needs the memory itself: for this file alone, for its staged one or its download.
  memory_.reset();
  memorySize_ = 0;
  return answer ? *answer : FileMatchesEntry(entry.name, entry.size, entry.digest);
}

/// Ends before the first file that does not fit or cannot be read as listed, but for the first
/// entry, which then has no answer.
void InstalledFiles::ReadAhead() {
  begin_ = next_;
  answers_.fill(std::nullopt);
  std::size_t fitting = 0;
  std::size_t size = 0;
  for (const FileEntry& entry : entries_.subspan(begin_)) {
    if (fitting == kMd5Lanes || entry.size > kMaxMemory - size) break;
    size += static_cast<std::size_t>(entry.size);
    ++fitting;
  }
  if (size > memorySize_) {
    memory_ = std::make_unique_for_overwrite<std::byte[]>(size);
    memorySize_ = size;
  }

  std::array<std::span<const std::byte>, kMd5Lanes> contents;
  std::byte* at = memory_.get();
  std::size_t read = 0;
  for (; read < fitting; ++read) {
    const FileEntry& entry = entries_[begin_ + read];
    const std::span buffer(at, static_cast<std::size_t>(entry.size));
    if (!ReadExactly(entry.name, buffer)) break;
    contents[read] = buffer;
    at += buffer.size();
  }
  answered_ = begin_ + std::max<std::size_t>(read, 1);
  if (read == 0) return;
  const std::array<std::string, kMd5Lanes> digests = Md5HexOfFour(contents);
  for (std::size_t index = 0; index < read; ++index) {
    answers_[index] = digests[index] == entries_[begin_ + index].digest;
  }
}

}  // namespace ve::sdk
