// A temporary file of the tool.
#pragma once

#include <string>
#include <string_view>

namespace ve::publish {

/// A file in the account's temporary folder, with a path of less than 260 characters. Removed with
/// its owner.
class TemporaryFile {
 public:
  /// Throws `PublishError`.
  explicit TemporaryFile(std::string_view content);
  TemporaryFile(const TemporaryFile&) = delete;
  TemporaryFile& operator=(const TemporaryFile&) = delete;
  ~TemporaryFile();

  [[nodiscard]] const std::wstring& Path() const noexcept { return path_; }

 private:
  std::wstring path_;
};

}  // namespace ve::publish
