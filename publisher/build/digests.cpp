#include "publisher/build/digests.h"

#include "core/windows.h"

#include <algorithm>
#include <array>
#include <memory>
#include <span>

#include "core/handle.h"
#include "core/md5.h"
#include "core/md5_lanes.h"
#include "publisher/build/parallel.h"
#include "publisher/files/whole_file.h"
#include "publisher/files/windows_errors.h"

namespace ve::publish {
namespace {

constexpr std::size_t kPiece = std::size_t{1} << 20;
// Files that one thread reads before it digests them side by side.
constexpr std::size_t kGroup = 8;

using Bytes = std::span<const std::byte>;

/// Each thread's memory, for a piece and the contents of a group. It is kept for the next files: new
/// memory costs as much time as reading into it.
std::span<std::byte> Memory() {
  constexpr std::size_t kSize = kPiece + (std::size_t{16} << 20);
  thread_local const auto memory = std::make_unique_for_overwrite<std::byte[]>(kSize);
  return {memory.get(), kSize};
}

/// Digests what is left of the file, in pieces.
FileDigest DigestPieces(InputFile& file, Counter& bytesDone,
                        const std::function<void(Bytes)>& take = {}) {
  FileDigest digest{{}, 0, file.FinalPath()};
  Md5 md5;
  while (true) {
    const Bytes piece = file.Read(Memory().first(kPiece));
    if (piece.empty()) break;
    md5.Update(piece);
    if (take) take(piece);
    digest.size += piece.size();
    bytesDone += piece.size();
  }
  md5.Finalize();
  digest.md5 = md5.Hex();
  return digest;
}

/// Some files that one thread reads, one after the other, and then digests side by side.
struct SideBySide {
  std::array<FileDigest, kGroup> digests;
  std::array<Bytes, kGroup> contents;
  std::span<std::byte> room = Memory().subspan(kPiece);

  void Read(std::size_t place, const std::wstring& path, Counter& bytesDone) try {
    InputFile file(path);
    const std::uint64_t size = file.Size();
    if (size > room.size()) {
      digests[place] = DigestPieces(file, bytesDone);
      return;
    }
    contents[place] = file.Read(room.first(static_cast<std::size_t>(size)));
    room = room.subspan(contents[place].size());
    digests[place] = {{}, contents[place].size(), file.FinalPath()};
    bytesDone += contents[place].size();
  } catch (const PublishError& error) {
    digests[place].error = error.GetDiagnostic();
  }
};

}  // namespace

FileDigest DigestOf(const std::wstring& path, Counter& bytesDone) {
  InputFile file(path);
  return DigestPieces(file, bytesDone);
}

void DigestFiles(const std::vector<std::wstring>& paths, Counter& bytesDone,
                 const std::function<void(std::size_t index, const FileDigest& digest)>& take,
                 const std::function<void()>& watch) {
  const auto digestGroup = [&](std::size_t group) {
    const std::size_t begin = group * kGroup;
    const std::size_t count = std::min(kGroup, paths.size() - begin);
    SideBySide files;
    for (std::size_t place = 0; place < count; ++place) {
      files.Read(place, paths[begin + place], bytesDone);
    }
    const std::vector<std::string> digests = Md5HexOfEach(files.contents);
    for (std::size_t place = 0; place < count; ++place) {
      FileDigest& digest = files.digests[place];
      if (digest.md5.empty()) digest.md5 = digests[place];
      take(begin + place, digest);
    }
  };
  ForEachInParallel((paths.size() + kGroup - 1) / kGroup, 0, digestGroup, watch);
}

FileDigest CopyWithDigest(const std::wstring& source, const std::wstring& path,
                          Counter& bytesDone) {
  UniqueFileHandle copy(CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW,
                                    FILE_ATTRIBUTE_NORMAL, nullptr));
  if (!copy) ThrowWindowsError("written", path, GetLastError());
  InputFile file(source);
  FileDigest digest = DigestPieces(file, bytesDone, [&](Bytes piece) {
    DWORD written = 0;
    if (WriteFile(copy.Get(), piece.data(), static_cast<DWORD>(piece.size()), &written, nullptr) ==
            FALSE ||
        written != piece.size()) {
      ThrowWindowsError("written", path, GetLastError());
    }
  });
  if (FlushFileBuffers(copy.Get()) == FALSE || !copy.Close()) {
    ThrowWindowsError("written", path, GetLastError());
  }
  return digest;
}

}  // namespace ve::publish
