#include "updater/own_executable.h"

#include "core/windows.h"

#include <gtest/gtest.h>
#include <string>
#include <string_view>

#include "support/temp_folder.h"

namespace ve::sdk {
namespace {

TEST(OwnExecutable, IsTheRunningFilesNameWithoutItsFolder) {
  wchar_t path[MAX_PATH];
  const DWORD length = GetModuleFileNameW(nullptr, path, MAX_PATH);
  ASSERT_GT(length, 0U);
  const std::wstring_view name = OwnExecutableName();
  EXPECT_FALSE(name.empty());
  EXPECT_EQ(name.find_first_of(L"\\/"), std::wstring_view::npos);
  ASSERT_GT(length, name.size());
  EXPECT_TRUE(std::wstring_view(path, length).substr(length - name.size()) == name);
  const wchar_t before = path[length - name.size() - 1];
  EXPECT_TRUE(before == L'\\' || before == L'/');
}

TEST(OwnExecutable, IsLookedUpOnce) {
  EXPECT_EQ(OwnExecutableName().data(), OwnExecutableName().data());
}

using OwnExecutableElsewhere = test::TempFolder;

TEST_F(OwnExecutableElsewhere, DoesNotDependOnTheCurrentDirectory) {
  EXPECT_TRUE(OwnExecutableName() == L"updater_tests.exe");
}

}  // namespace
}  // namespace ve::sdk
