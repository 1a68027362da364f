// Whole files of the studio, with paths of any length. Errors are thrown as `PublishError`.
#pragma once

#include <string>
#include <string_view>

namespace ve::publish {

/// What the name of a file ends with while it is written beside its place.
inline constexpr std::wstring_view kBesideSuffix = L".publishing";

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
