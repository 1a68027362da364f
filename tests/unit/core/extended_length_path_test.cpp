#include "core/extended_length_path.h"

#include <gtest/gtest.h>
#include <string>

#include "support/temp_folder.h"

namespace ve::file {
namespace {

using ExtendedLengthPathTest = test::TempFolder;

TEST_F(ExtendedLengthPathTest, ARelativePathIsBelowTheCurrentDirectory) {
  EXPECT_EQ(ExtendedLengthPath(L"."), L"\\\\?\\" + Folder());
  EXPECT_EQ(ExtendedLengthPath(L"a/b\\..\\c"), L"\\\\?\\" + Folder() + L"\\a\\c");
}

TEST_F(ExtendedLengthPathTest, ATrailingSeparatorIsDroppedButThatOfADrivesRoot) {
  EXPECT_EQ(ExtendedLengthPath(L"C:\\game\\"), L"\\\\?\\C:\\game");
  EXPECT_EQ(ExtendedLengthPath(L"C:/game/"), L"\\\\?\\C:\\game");
  EXPECT_EQ(ExtendedLengthPath(L"C:\\"), L"\\\\?\\C:\\");
}

TEST_F(ExtendedLengthPathTest, AShareHasItsOwnPrefix) {
  EXPECT_EQ(ExtendedLengthPath(L"\\\\server\\share\\game"), L"\\\\?\\UNC\\server\\share\\game");
}

TEST_F(ExtendedLengthPathTest, APathWithThePrefixStaysAsItIs) {
  EXPECT_EQ(ExtendedLengthPath(L"\\\\?\\C:\\game"), L"\\\\?\\C:\\game");
}

TEST_F(ExtendedLengthPathTest, APathBeyond259CharactersKeepsItsWholeLength) {
  const std::wstring name(300, L'x');
  EXPECT_EQ(ExtendedLengthPath(L"C:\\" + name), L"\\\\?\\C:\\" + name);
}

}  // namespace
}  // namespace ve::file
