// A temporary folder for each test: the current directory while the test runs, then removed with
// everything in it.
#pragma once

#include "core/windows.h"

#include <exception>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <string>
#include <string_view>

#include "core/directory_walk.h"
#include "core/format.h"
#include "core/working_directory.h"

namespace ve::test {

class TempFolder : public testing::Test {
 protected:
  TempFolder() {
    wchar_t base[MAX_PATH];
    GetTempPathW(MAX_PATH, base);
    LARGE_INTEGER now;
    QueryPerformanceCounter(&now);
    folder_ = Format(L"{}ve-{}-{}", std::wstring_view(base), GetCurrentProcessId(), now.QuadPart);
    EXPECT_TRUE(CreateDirectoryW(folder_.c_str(), nullptr));
    before_ = WorkingDirectory();
    EXPECT_TRUE(SetWorkingDirectory(folder_, true));
  }
  ~TempFolder() override {
    EXPECT_TRUE(SetWorkingDirectory(before_, true));
    try {
      file::RemoveTree(folder_);
    } catch (const std::exception& error) {
      ADD_FAILURE() << "the test leaves a file or folder open: " << error.what();
    }
  }

  /// The folder's absolute path, without a trailing separator.
  [[nodiscard]] const std::wstring& Folder() const { return folder_; }

 private:
  std::wstring folder_;
  std::wstring before_;
};

/// Write and read whole files by the standard library, independently of the code under test.
inline void WriteWhole(const std::wstring& path, std::string_view content) {
  std::ofstream out(std::filesystem::path(path), std::ios::binary | std::ios::trunc);
  out.write(content.data(), static_cast<std::streamsize>(content.size()));
  ASSERT_TRUE(out.good());
}
[[nodiscard]] inline std::string ReadWhole(const std::wstring& path) {
  std::ifstream in(std::filesystem::path(path), std::ios::binary);
  EXPECT_TRUE(in.good());
  return {std::istreambuf_iterator<char>(in), {}};
}

}  // namespace ve::test
