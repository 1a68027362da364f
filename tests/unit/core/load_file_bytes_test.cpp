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
  for (std::size_t i = 0; i < bytes.size; ++i) text += static_cast<char>(bytes.data[i]);
  return text;
}

TEST_F(LoadFileBytesTest, TheContentIsTheFilesNulsAndAll) {
  constexpr std::string_view kContent("one\0two\r\n\xFF", 10);
  test::WriteWhole(L"a", kContent);
  EXPECT_EQ(Text(LoadFileBytes(L"a")), kContent);
}

TEST_F(LoadFileBytesTest, AnEmptyFileHasNoBytes) {
  test::WriteWhole(L"a", "");
  EXPECT_EQ(LoadFileBytes(L"a").size, 0U);
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

}  // namespace
}  // namespace ve::file
