#include "publisher/build/digests.h"

#include <cstdint>
#include <filesystem>
#include <gtest/gtest.h>
#include <string>
#include <utility>
#include <vector>

#include "core/format.h"
#include "core/md5.h"
#include "support/temp_folder.h"

namespace ve::publish {
namespace {

class Digests : public test::TempFolder {
 protected:
  std::wstring Write(std::wstring_view name, std::string_view content) {
    const std::wstring path = Format(L"{}\\{}", Folder(), name);
    test::WriteWhole(path, content);
    return path;
  }
};

void Ignore(std::uint64_t, std::uint64_t) {}

/// A content that differs at every place where a buffer might be mixed up.
std::string Content(std::size_t size) {
  std::string content(size, '\0');
  std::uint32_t state = 1;
  for (char& byte : content) {
    state = state * 1664525U + 1013904223U;
    byte = static_cast<char>(state >> 24);
  }
  return content;
}

TEST_F(Digests, OfTheRfcsTestSuite) {
  const std::vector<std::wstring> paths{Write(L"empty", ""), Write(L"abc", "abc")};
  const std::vector<FileDigest> digests = FileDigests(paths, Ignore);
  ASSERT_EQ(digests.size(), 2U);
  EXPECT_EQ(digests[0].md5, "d41d8cd98f00b204e9800998ecf8427e");
  EXPECT_EQ(digests[0].size, 0U);
  EXPECT_EQ(digests[1].md5, "900150983cd24fb0d6963f7d28e17f72");
  EXPECT_EQ(digests[1].size, 3U);
}

TEST_F(Digests, AroundTheSizeOfTheBuffer) {
  std::vector<std::wstring> paths;
  std::vector<std::string> expected;
  for (const std::size_t size : {kDigestBuffer - 1, kDigestBuffer, kDigestBuffer + 1,
                                 2 * kDigestBuffer, 2 * kDigestBuffer + 65, std::size_t{1}}) {
    const std::string content = Content(size);
    paths.push_back(Write(Format(L"{}", size), content));
    expected.push_back(Md5Hex(content));  // In one piece.
  }
  const std::vector<FileDigest> digests = FileDigests(paths, Ignore);
  for (std::size_t index = 0; index < paths.size(); ++index) {
    EXPECT_EQ(digests[index].md5, expected[index]) << index;
    EXPECT_EQ(DigestOf(paths[index]).md5, expected[index]) << index;
  }
}

TEST_F(Digests, StandInTheOrderOfTheFiles) {
  std::vector<std::wstring> paths;
  for (int index = 0; index < 200; ++index) {
    paths.push_back(Write(Format(L"{}", index), Format("content {}", index)));
  }
  std::pair<std::uint64_t, std::uint64_t> last;
  const auto digests = FileDigests(paths, [&last](std::uint64_t files, std::uint64_t bytes) {
    last = {files, bytes};
  });
  for (std::size_t index = 0; index < paths.size(); ++index) {
    ASSERT_EQ(digests[index].md5, Md5Hex(Format("content {}", index)));
  }
  EXPECT_EQ(last, std::pair(std::uint64_t{200}, std::uint64_t{200 * 8 + 10 + 180 + 300}));
}

TEST_F(Digests, NoFilesGiveNone) { EXPECT_TRUE(FileDigests({}, Ignore).empty()); }

TEST_F(Digests, AFileThatCannotBeReadIsNamed) {
  const std::vector<std::wstring> paths{Write(L"a", "a"), Folder() + L"\\missing",
                                        Write(L"b", "b")};
  try {
    static_cast<void>(FileDigests(paths, Ignore));
    FAIL();
  } catch (const std::filesystem::filesystem_error& error) {
    EXPECT_EQ(error.path1().filename(), "missing");
    EXPECT_EQ(error.code().value(), ERROR_FILE_NOT_FOUND);
  }
}

}  // namespace
}  // namespace ve::publish
