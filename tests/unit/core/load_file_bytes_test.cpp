#include <gtest/gtest.h>
#include <string>
#include <string_view>

#include "core/errors.h"
#include "core/files.h"
#include "support/temp_folder.h"

namespace ve::file {
namespace {

using LoadFileBytesTest = test::TempFolder;

std::string Text(const FileBytes& bytes) {
  std::string text;
  for (const std::byte byte : bytes.Get()) text += static_cast<char>(byte);
  return text;
}

TEST_F(LoadFileBytesTest, TheContentIsTheFilesNulsAndAll) {
  constexpr std::string_view kContent("one\0two\r\n\xFF", 10);
  test::WriteWhole(L"a", kContent);
  EXPECT_EQ(Text(LoadFileBytes(L"a")), kContent);
}

TEST_F(LoadFileBytesTest, AnEmptyFileHasNoBytes) {
  test::WriteWhole(L"a", "");
  EXPECT_TRUE(LoadFileBytes(L"a").Get().empty());
}

TEST_F(LoadFileBytesTest, AMissingFileFailsAsItDoesForLoadFile) {
  std::string message;
  try {
    (void)LoadFile(std::wstring_view(L"missing"));
  } catch (const FileException& error) {
    message = error.what();
  }
  EXPECT_FALSE(message.empty());
  try {
    (void)LoadFileBytes(L"missing");
    ADD_FAILURE() << "no exception";
  } catch (const FileException& error) {
    EXPECT_EQ(error.what(), message);
  }
}

TEST_F(LoadFileBytesTest, KeptMemoryIsUsedAgainAndHoldsOneContentAtATime) {
  test::WriteWhole(L"long", std::string(100'000, 'l'));
  test::WriteWhole(L"short", "short");
  const std::byte* memory = nullptr;
  {
    const FileBytes first = LoadFileBytes(L"long");
    memory = first.Get().data();
  }
  const FileBytes again = LoadFileBytes(L"short");
  EXPECT_EQ(again.Get().data(), memory);
  EXPECT_EQ(Text(again), "short");
  const FileBytes other = LoadFileBytes(L"short");
  EXPECT_NE(other.Get().data(), memory);
  EXPECT_EQ(Text(other) + Text(again), "shortshort");
}

}  // namespace
}  // namespace ve::file
