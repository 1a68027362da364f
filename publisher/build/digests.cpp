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
// Larger files are digested alone: four of these for each processor have to fit into memory.
constexpr std::size_t kMaxSideBySide = std::size_t{16} << 20;

using Bytes = std::span<const std::byte>;

/// Digests what is left of the file, in pieces.
FileDigest DigestPieces(InputFile& file, Counter& bytesDone,
                        const std::function<void(Bytes)>& take = {}) {
  const auto buffer = std::make_unique_for_overwrite<std::byte[]>(kPiece);
  FileDigest digest{{}, 0, file.FinalPath()};
  Md5 md5;
  for (Bytes piece = file.Read({buffer.get(), kPiece}); !piece.empty();
       piece = file.Read({buffer.get(), kPiece})) {
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
  std::array<FileDigest, kMd5Lanes> digests;
  std::array<std::unique_ptr<std::byte[]>, kMd5Lanes> memory;
  std::array<Bytes, kMd5Lanes> contents;

  void Read(std::size_t lane, const std::wstring& path, Counter& bytesDone) try {
    InputFile file(path);
    const std::uint64_t size = file.Size();
    if (size > kMaxSideBySide) {
      digests[lane] = DigestPieces(file, bytesDone);
      return;
    }
    memory[lane] = std::make_unique_for_overwrite<std::byte[]>(static_cast<std::size_t>(size));
    contents[lane] = file.Read({memory[lane].get(), static_cast<std::size_t>(size)});
    digests[lane] = {{}, contents[lane].size(), file.FinalPath()};
    bytesDone += contents[lane].size();
  } catch (const PublishError& error) {
    digests[lane].error = error.GetDiagnostic();
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
  const auto digestFour = [&](std::size_t group) {
    const std::size_t begin = group * kMd5Lanes;
    const std::size_t count = std::min(kMd5Lanes, paths.size() - begin);
    SideBySide files;
    for (std::size_t lane = 0; lane < count; ++lane) {
      files.Read(lane, paths[begin + lane], bytesDone);
    }
    const std::array<std::string, kMd5Lanes> digests = Md5HexOfFour(files.contents);
    for (std::size_t lane = 0; lane < count; ++lane) {
      FileDigest& digest = files.digests[lane];
      if (digest.md5.empty()) digest.md5 = digests[lane];
      take(begin + lane, digest);
    }
  };
  ForEachInParallel((paths.size() + kMd5Lanes - 1) / kMd5Lanes, 0, digestFour, watch);
}

FileDigest CopyWithDigest(const std::wstring& source, const std::wstring& path,
                          Counter& bytesDone) {
  UniqueFileHandle copy(CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW,
                                    FILE_ATTRIBUTE_NORMAL, nullptr));
  if (!copy) ThrowWindowsError("written", path, GetLastError());
  InputFile file(source);
  const FileDigest digest = DigestPieces(file, bytesDone, [&](Bytes piece) {
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
