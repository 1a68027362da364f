#include "core/file_matches_entry.h"

#include "core/windows.h"

#include <cstdint>
#include <filesystem>
#include <gtest/gtest.h>
#include <string>
#include <string_view>

#include "core/errors.h"
#include "core/handle.h"
#include "support/temp_folder.h"

namespace ve {
namespace {

using FileMatches = test::TempFolder;
constexpr std::string_view kAbc = "900150983cd24fb0d6963f7d28e17f72";

TEST_F(FileMatches, ASizeAndDigestThatAreRight) {
  test::WriteWhole(L"file", "abc");
  EXPECT_TRUE(FileMatchesEntry(L"file", 3, kAbc));
}

TEST_F(FileMatches, AnEmptyFile) {
  test::WriteWhole(L"file", "");
  EXPECT_TRUE(FileMatchesEntry(L"file", 0, "d41d8cd98f00b204e9800998ecf8427e"));
}

TEST_F(FileMatches, NotOneDifferentByte) {
  test::WriteWhole(L"file", "abd");
  EXPECT_FALSE(FileMatchesEntry(L"file", 3, kAbc));
}

TEST_F(FileMatches, NotAnUppercaseDigest) {
  test::WriteWhole(L"file", "abc");
  EXPECT_FALSE(FileMatchesEntry(L"file", 3, "900150983CD24FB0D6963F7D28E17F72"));
}

TEST_F(FileMatches, NotADigestOfAnotherLength) {
  test::WriteWhole(L"file", "abc");
  EXPECT_FALSE(FileMatchesEntry(L"file", 3, kAbc.substr(0, 31)));
  EXPECT_FALSE(FileMatchesEntry(L"file", 3, std::string(kAbc) + "0"));
  EXPECT_FALSE(FileMatchesEntry(L"file", 3, ""));
}

TEST_F(FileMatches, NotAMissingFile) {
  EXPECT_FALSE(FileMatchesEntry(L"missing", 0, "d41d8cd98f00b204e9800998ecf8427e"));
  EXPECT_FALSE(FileMatchesEntry(L"missing\\file", 3, kAbc));
}

TEST_F(FileMatches, SizesAreComparedBeforeAnythingIsRead) {
  test::WriteWhole(L"file", "abc");
  const UniqueFileHandle locked(
      CreateFileW(L"file", GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr));
  ASSERT_TRUE(locked);
  EXPECT_FALSE(FileMatchesEntry(L"file", 4, kAbc));
  EXPECT_FALSE(FileMatchesEntry(L"file", 2, kAbc));
  EXPECT_FALSE(FileMatchesEntry(L"file", (std::uint64_t{1} << 32) + 3, kAbc));
  EXPECT_THROW(static_cast<void>(FileMatchesEntry(L"file", 3, kAbc)), file::FileException);
}

TEST_F(FileMatches, ASizeThatCannotBeQueriedIsAnError) {
  ASSERT_TRUE(CreateDirectoryW(L"folder", nullptr));
  EXPECT_THROW(static_cast<void>(FileMatchesEntry(L"folder", 0, kAbc)),
               std::filesystem::filesystem_error);
}

}  // namespace
}  // namespace ve
