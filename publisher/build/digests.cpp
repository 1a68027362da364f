#include "publisher/build/digests.h"

#include "core/windows.h"

#include <cstddef>
#include <functional>
#include <memory>
#include <span>

#include "core/handle.h"
#include "core/md5.h"
#include "publisher/files/paths.h"
#include "publisher/files/windows_errors.h"

namespace ve::publish {
namespace {

constexpr std::size_t kBufferSize = std::size_t{1} << 20;

/// Hands the content over in pieces.
FileDigest ReadPieces(const std::wstring& path, std::atomic<std::uint64_t>& bytesDone,
                      const std::function<void(std::span<const std::byte>)>& take) {
  const UniqueFileHandle file(CreateFileW(
      path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
      OPEN_EXISTING, FILE_FLAG_SEQUENTIAL_SCAN, nullptr));
  if (!file) ThrowWindowsError("read", path, GetLastError());
  const auto buffer = std::make_unique_for_overwrite<std::byte[]>(kBufferSize);
  Md5 md5;
  FileDigest digest{{}, 0, FinalPath(file.Get())};
  while (true) {
    DWORD read = 0;
    if (ReadFile(file.Get(), buffer.get(), kBufferSize, &read, nullptr) == FALSE) {
      ThrowWindowsError("read", path, GetLastError());
    }
    if (read == 0) break;
    const std::span piece(buffer.get(), read);
    md5.Update(piece);
    take(piece);
    digest.size += read;
    bytesDone += read;
  }
  md5.Finalize();
  digest.md5 = md5.Hex();
  return digest;
}

}  // namespace

FileDigest DigestOf(const std::wstring& path, std::atomic<std::uint64_t>& bytesDone) {
  return ReadPieces(path, bytesDone, [](std::span<const std::byte>) {});
}

FileDigest CopyWithDigest(const std::wstring& source, const std::wstring& path,
                          std::atomic<std::uint64_t>& bytesDone) {
  UniqueFileHandle copy(CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW,
                                    FILE_ATTRIBUTE_NORMAL, nullptr));
  if (!copy) ThrowWindowsError("written", path, GetLastError());
  const FileDigest digest = ReadPieces(source, bytesDone, [&](std::span<const std::byte> piece) {
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
