#include "publisher/build/digests.h"

#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "core/files.h"
#include "core/format.h"
#include "core/md5.h"
#include "publisher/report/diagnostics.h"
#include "support/temp_folder.h"

namespace ve::publish {
namespace {

constexpr std::size_t kPiece = std::size_t{1} << 20;

class Digests : public test::TempFolder {
 protected:
  [[nodiscard]] std::wstring Path(std::wstring_view name) const {
    return Format(L"{}\\{}", Folder(), name);
  }
  Counter bytesDone_ = 0;
};

/// A content that differs at every place where a piece might be mixed up.
std::string Content(std::size_t size) {
  std::string content(size, '\0');
  std::uint32_t state = 1;
  for (char& byte : content) {
    state = state * 1664525U + 1013904223U;
    byte = static_cast<char>(state >> 24);
  }
  return content;
}

TEST_F(Digests, AroundTheSizeOfAPiece) {
  std::uint64_t bytes = 0;
  for (const std::size_t size : {std::size_t{0}, std::size_t{1}, kPiece - 1, kPiece, kPiece + 1,
                                 2 * kPiece, 2 * kPiece + 65}) {
    const std::string content = Content(size);
    const std::string expected = Md5Hex(content);  // In one piece.
    const std::wstring source = Path(Format(L"{}", size));
    const std::wstring copy = source + L".copy";
    test::WriteWhole(source, content);
    for (const FileDigest& digest :
         {DigestOf(source, bytesDone_), CopyWithDigest(source, copy, bytesDone_)}) {
      EXPECT_EQ(digest.md5, expected) << size;
      EXPECT_EQ(digest.size, size);
    }
    EXPECT_EQ(test::ReadWhole(copy), content) << size;
    bytes += 2 * size;
    EXPECT_EQ(bytesDone_, bytes);
  }
}

TEST_F(Digests, OfManyFilesAreThoseOfEach) {
  constexpr std::size_t kSideBySide = std::size_t{16} << 20;
  const std::vector<std::size_t> sizes{0, 1, 63, 200, 3000, kSideBySide, 64, kSideBySide + 1, 70};
  std::vector<std::wstring> paths;
  std::uint64_t bytes = 0;
  for (const std::size_t size : sizes) {
    paths.push_back(Path(Format(L"{}", size)));
    test::WriteWhole(paths.back(), Content(size));
    bytes += size;
  }
  std::vector<FileDigest> digests(sizes.size());
  DigestFiles(
      paths, bytesDone_,
      [&](std::size_t index, const FileDigest& digest) { digests[index] = digest; }, [] {});
  for (std::size_t index = 0; index < sizes.size(); ++index) {
    EXPECT_EQ(digests[index].md5, Md5Hex(Content(sizes[index]))) << sizes[index];
    EXPECT_EQ(digests[index].size, sizes[index]);
    EXPECT_FALSE(digests[index].error);
  }
  EXPECT_EQ(bytesDone_, bytes);
}

TEST_F(Digests, OneOfManyThatCannotBeReadHasTheErrorAlone) {
  test::WriteWhole(Path(L"first"), "1");
  test::WriteWhole(Path(L"last"), "3");
  std::vector<FileDigest> digests(3);
  DigestFiles(
      {Path(L"first"), Path(L"missing"), Path(L"last")}, bytesDone_,
      [&](std::size_t index, const FileDigest& digest) { digests[index] = digest; }, [] {});
  EXPECT_EQ(digests[0].md5, Md5Hex(std::string("1")));
  ASSERT_TRUE(digests[1].error);
  EXPECT_TRUE(digests[1].error->subject.ends_with("\\missing"));
  EXPECT_EQ(digests[2].md5, Md5Hex(std::string("3")));
}

TEST_F(Digests, AFileThatCannotBeReadIsNamed) {
  try {
    static_cast<void>(DigestOf(Path(L"missing"), bytesDone_));
    FAIL();
  } catch (const PublishError& error) {
    EXPECT_TRUE(error.GetDiagnostic().subject.ends_with("\\missing"));
    EXPECT_TRUE(error.GetDiagnostic().message.starts_with("cannot be read: "));
    EXPECT_NE(error.GetDiagnostic().hint, "");
  }
}

TEST_F(Digests, ACopyReplacesNothing) {
  test::WriteWhole(Path(L"source"), "source");
  test::WriteWhole(Path(L"copy"), "there already");
  EXPECT_THROW(CopyWithDigest(Path(L"source"), Path(L"copy"), bytesDone_), PublishError);
  EXPECT_EQ(test::ReadWhole(Path(L"copy")), "there already");
}

}  // namespace
}  // namespace ve::publish
