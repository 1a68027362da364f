// Whole files of the studio, with paths of any length. Errors are thrown as `PublishError`.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "core/handle.h"
#include "publisher/files/paths.h"

namespace ve::publish {

/// What the name of a file ends with while it is written beside its place.
inline constexpr std::wstring_view kBesideSuffix = L".publishing";

/// A file that is read once, from its beginning to its end.
class InputFile {
 public:
  /// `path` must outlive this.
  explicit InputFile(const std::wstring& path);

  [[nodiscard]] std::uint64_t Size() const;
  /// At the end of all links; empty if the file system cannot tell.
  [[nodiscard]] std::wstring FinalPath() const { return publish::FinalPath(file_.Get()); }
  /// Reads the next bytes. Returns what was read: less than the buffer only at the file's end.
  std::span<const std::byte> Read(std::span<std::byte> buffer);

 private:
  const std::wstring& path_;
  UniqueFileHandle file_;
};

/// A file that is written once. Finished, it is on the disk; otherwise its content may be lost.
class OutputFile {
 public:
  /// `path` must outlive this; `disposition` is that of CreateFileW.
  OutputFile(const std::wstring& path, DWORD disposition);

  void Write(std::span<const std::byte> bytes);
  void Finish();

 private:
  const std::wstring& path_;
  UniqueFileHandle file_;
};

/// The content of a file below 4 GiB.
[[nodiscard]] std::string ReadWholeFile(const std::wstring& path);

/// Writes a file beside its place and renames it into it: others see the old content or the new,
/// never a part. The next write overwrites what an interrupted one left beside it.
void WriteFileAtomically(const std::wstring& path, std::string_view content);

/// A file in the account's temporary folder, with a path of less than 260 characters. Removed with
/// its owner.
class TemporaryFile {
 public:
  explicit TemporaryFile(std::string_view content);
  TemporaryFile(const TemporaryFile&) = delete;
  TemporaryFile& operator=(const TemporaryFile&) = delete;
  ~TemporaryFile();

  [[nodiscard]] const std::wstring& Path() const noexcept { return path_; }

 private:
  std::wstring path_;
};

}  // namespace ve::publish
