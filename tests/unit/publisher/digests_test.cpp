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

TEST_F(Digests, OfManyFilesAndOfTheirCopiesAreThoseOfEach) {
  // A file alone is read whole if it has up to 16 pieces; in a group, if it fits beside the others.
  std::vector<std::size_t> sizes{0, 1, 63, 200, 3000, 64, 70};
  for (const std::size_t pieces : {1U, 8U, 16U, 17U}) {
    for (const std::size_t less : {0U, 1U, 2U}) sizes.push_back(pieces * kPiece + 1 - less);
  }
  const std::string all = Content(sizes.back() + 2);
  std::vector<FileToDigest> files;
  std::uint64_t bytes = 0;
  for (const std::size_t size : sizes) {
    const std::wstring path = Path(Format(L"{}", size));
    test::WriteWhole(path, all.substr(0, size));
    EXPECT_EQ(DigestFile({path}).md5, Md5Hex(all.substr(0, size))) << size;
    files.push_back({path});
    files.push_back({path, path + L".copy"});
    bytes += 2 * size;
  }
  std::vector<FileDigest> digests(files.size());
  DigestFiles(
      files, bytesDone_,
      [&](std::size_t index, const FileDigest& digest) { digests[index] = digest; }, [] {});
  for (std::size_t index = 0; index < files.size(); ++index) {
    const std::string content = all.substr(0, sizes[index / 2]);
    EXPECT_FALSE(digests[index].error);
    EXPECT_EQ(digests[index].md5, Md5Hex(content)) << content.size();
    EXPECT_EQ(digests[index].size, content.size());
    EXPECT_TRUE(digests[index].finalPath.ends_with(Format(L"\\{}", content.size())));
    const std::wstring& copy = files[index].copy;
    if (copy.empty()) continue;
    EXPECT_EQ(test::ReadWhole(copy), content) << content.size();
  }
  EXPECT_EQ(bytesDone_, bytes);
}

TEST_F(Digests, OneOfManyThatCannotBeReadHasTheErrorAlone) {
  test::WriteWhole(Path(L"first"), "1");
  test::WriteWhole(Path(L"last"), "3");
  std::vector<FileDigest> digests(3);
  DigestFiles(
      {{Path(L"first")}, {Path(L"missing")}, {Path(L"last")}}, bytesDone_,
      [&](std::size_t index, const FileDigest& digest) { digests[index] = digest; }, [] {});
  EXPECT_EQ(digests[0].md5, Md5Hex(std::string("1")));
  ASSERT_TRUE(digests[1].error);
  EXPECT_TRUE(digests[1].error->subject.ends_with("\\missing"));
  EXPECT_EQ(digests[2].md5, Md5Hex(std::string("3")));
}

TEST_F(Digests, AFileThatCannotBeReadIsNamed) {
  try {
    DigestFile({Path(L"missing")});
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
  DigestFiles(
      {{Path(L"source"), Path(L"copy")}}, bytesDone_,
      [](std::size_t, const FileDigest& digest) {
        ASSERT_TRUE(digest.error);
        EXPECT_TRUE(digest.error->message.starts_with("cannot be written: "));
      },
      [] {});
  EXPECT_EQ(test::ReadWhole(Path(L"copy")), "there already");
}

}  // namespace
}  // namespace ve::publish
