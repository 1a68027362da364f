#include "launcher/game_root.h"

#include "core/windows.h"

#include <array>
#include <cstdint>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

#include "core/format.h"
#include "core/handle.h"
#include "support/private_registry.h"
#include "support/replaced_call.h"
#include "support/sink_recorder.h"
#include "support/temp_folder.h"

extern "C" {
extern void* VE_IMPORTED(CommandLineToArgvW);
extern void* VE_IMPORTED(FindFirstFileExW);
extern void* VE_IMPORTED(FindNextFileW);
extern void* VE_IMPORTED(GetCommandLineW);
extern void* VE_IMPORTED(GetFileAttributesExW);
}

namespace ve {
namespace {

using testing::HasSubstr;
using testing::IsEmpty;
using testing::Pair;

constexpr std::uint64_t kTicksPerSecond = 10'000'000;
constexpr std::uint64_t k1970 = 116'444'736'000'000'000;
constexpr std::uint64_t k2020 = k1970 + 1'577'836'800 * kTicksPerSecond;

std::wstring commandLine;

/// The root for these arguments, none of which holds a quote.
std::optional<std::wstring> RootFor(const std::vector<std::wstring_view>& arguments) {
  commandLine = L"Launcher.exe";
  for (const std::wstring_view argument : arguments) {
    // A backslash before the closing quote is doubled: alone it would escape the quote.
    commandLine += Format(argument.ends_with(L'\\') ? L" \"{}\\\"" : L" \"{}\"", argument);
  }
  const test::ReplacedCall given(
      VE_IMPORTED(GetCommandLineW), +[]() -> wchar_t* { return commandLine.data(); });
  return ResolveGameRoot();
}

class GameRoot : public test::TempFolder {
 protected:
  static void MakeFolder(const wchar_t* path) { ASSERT_TRUE(CreateDirectoryW(path, nullptr)); }

  /// Last written at that many ticks since 1601.
  static void MakeFile(const wchar_t* path, std::uint64_t ticks) {
    test::WriteWhole(path, "x");
    const UniqueFileHandle file(
        CreateFileW(path, FILE_WRITE_ATTRIBUTES, 0, nullptr, OPEN_EXISTING, 0, nullptr));
    const FILETIME time{static_cast<DWORD>(ticks), static_cast<DWORD>(ticks >> 32)};
    EXPECT_TRUE(SetFileTime(file.Get(), nullptr, nullptr, &time));
  }
};

TEST_F(GameRoot, WithoutAnArgumentThereIsNone) { EXPECT_EQ(RootFor({}), std::nullopt); }

TEST_F(GameRoot, WithTwoArgumentsThereIsNone) {
  MakeFile(L"x.vegame", k2020);
  EXPECT_EQ(RootFor({L"FROM_SOLUTION", L"x"}), std::nullopt);
  EXPECT_EQ(RootFor({L".", L"."}), std::nullopt);
}

TEST_F(GameRoot, TheFolderOfTheNewestProjectIsTheRoot) {
  MakeFolder(L"tree");
  MakeFolder(L"tree\\a");
  MakeFolder(L"tree\\b");
  MakeFile(L"tree\\a\\x.vegame", k2020);
  MakeFile(L"tree\\b\\y.vegame", k2020 + kTicksPerSecond);
  EXPECT_EQ(RootFor({L"tree"}), L"tree\\b");
  MakeFile(L"tree\\a\\x.vegame", k2020 + 2 * kTicksPerSecond);
  EXPECT_EQ(RootFor({L"tree"}), L"tree\\a");
}

TEST_F(GameRoot, PartsOfASecondDecideToo) {
  constexpr std::uint64_t k150Milliseconds = kTicksPerSecond * 150 / 1000;
  MakeFolder(L"tree");
  MakeFolder(L"tree\\a");
  MakeFolder(L"tree\\b");
  MakeFile(L"tree\\a\\x.vegame", k2020 + k150Milliseconds);
  MakeFile(L"tree\\b\\y.vegame", k2020 + 2 * k150Milliseconds);
  EXPECT_EQ(RootFor({L"tree"}), L"tree\\b");
  MakeFile(L"tree\\a\\x.vegame", k2020 + 3 * k150Milliseconds);
  EXPECT_EQ(RootFor({L"tree"}), L"tree\\a");
}

TEST_F(GameRoot, AmongEqualTimesTheFirstOneMetWins) {
  MakeFolder(L"tree");
  MakeFolder(L"tree\\a");
  MakeFolder(L"tree\\b");
  MakeFile(L"tree\\a\\x.vegame", k2020);
  MakeFile(L"tree\\b\\y.vegame", k2020);
  WIN32_FIND_DATAW found{};
  const UniqueFindHandle search(FindFirstFileW(L"tree\\*", &found));
  ASSERT_TRUE(search);
  // The two entries with dots come at any place of the file system's order.
  while (found.cFileName[0] == L'.') ASSERT_TRUE(FindNextFileW(search.Get(), &found));
  EXPECT_EQ(RootFor({L"tree"}), std::wstring(L"tree\\") + found.cFileName);
}

TEST_F(GameRoot, AProjectNotWrittenAfter1970IsIgnored) {
  MakeFolder(L"tree");
  MakeFile(L"tree\\x.vegame", k1970);
  EXPECT_EQ(RootFor({L"tree"}), std::nullopt);
  MakeFile(L"tree\\x.vegame", k1970 - 365 * 86400 * kTicksPerSecond);
  EXPECT_EQ(RootFor({L"tree"}), std::nullopt);
  MakeFile(L"tree\\x.vegame", k1970 + kTicksPerSecond);
  EXPECT_EQ(RootFor({L"tree"}), L"tree");
}

TEST_F(GameRoot, ATreeWithoutAProjectHasNone) {
  MakeFolder(L"tree");
  EXPECT_EQ(RootFor({L"tree"}), std::nullopt);
  MakeFile(L"tree\\game.vegames", k2020);
  MakeFile(L"tree\\vegame", k2020);
  EXPECT_EQ(RootFor({L"tree"}), std::nullopt);
}

TEST_F(GameRoot, TheExtensionIsCaseSensitive) {
  MakeFolder(L"tree");
  MakeFile(L"tree\\x.VEGAME", k2020);
  EXPECT_EQ(RootFor({L"tree"}), std::nullopt);
}

TEST_F(GameRoot, AFileNamedLikeTheExtensionIsNotAProject) {
  MakeFolder(L"tree");
  MakeFile(L"tree\\.vegame", k2020);
  EXPECT_EQ(RootFor({L"tree"}), std::nullopt);
}

TEST_F(GameRoot, AFolderIsNotAProjectButIsSearched) {
  MakeFolder(L"tree");
  MakeFolder(L"tree\\x.vegame");
  EXPECT_EQ(RootFor({L"tree"}), std::nullopt);
  MakeFile(L"tree\\x.vegame\\y.vegame", k2020);
  EXPECT_EQ(RootFor({L"tree"}), L"tree\\x.vegame");
}

TEST_F(GameRoot, TheRootHasNoSeparatorAtItsEnd) {
  MakeFolder(L"tree");
  MakeFolder(L"tree\\a");
  MakeFile(L"tree\\x.vegame", k2020);
  EXPECT_EQ(RootFor({L"tree"}), L"tree");
  EXPECT_EQ(RootFor({L"tree/"}), L"tree");
  EXPECT_EQ(RootFor({L"tree\\"}), L"tree");
  EXPECT_EQ(RootFor({L"."}), L".\\tree");
  EXPECT_EQ(RootFor({(Folder() + L"\\tree").c_str()}), Folder() + L"\\tree");
  MakeFile(L"tree\\a\\x.vegame", k2020 + kTicksPerSecond);
  EXPECT_EQ(RootFor({L"tree/"}), L"tree/a");
}

/// The code of the filesystem error that the argument raises. Its operation must be the walk's, its
/// path `directory`.
int WalkErrorFor(const wchar_t* argument, const wchar_t* directory) {
  try {
    static_cast<void>(RootFor({argument}));
  } catch (const std::filesystem::filesystem_error& error) {
    EXPECT_THAT(error.what(), HasSubstr("directory_entry::status"));
    EXPECT_EQ(error.code().category(), std::system_category());
    EXPECT_EQ(error.path1().native(), directory);
    return error.code().value();
  }
  ADD_FAILURE() << "nothing was thrown";
  return 0;
}

TEST_F(GameRoot, AFolderThatCannotBeReadRaisesAnError) {
  EXPECT_EQ(WalkErrorFor(L"missing", L"missing"), ERROR_PATH_NOT_FOUND);
  EXPECT_EQ(WalkErrorFor(L"", L""), ERROR_PATH_NOT_FOUND);
}

TEST_F(GameRoot, AnArgumentThatNamesAFileRaisesAnError) {
  MakeFile(L"x.vegame", k2020);
  EXPECT_NE(WalkErrorFor(L"x.vegame", L"x.vegame"), 0);
}

TEST_F(GameRoot, ASubfolderThatCannotBeReadRaisesAnErrorAlsoAfterAProject) {
  MakeFolder(L"tree");
  MakeFolder(L"tree\\a");
  MakeFile(L"tree\\x.vegame", k2020);
  static void* const real = VE_IMPORTED(FindFirstFileExW);
  const test::ReplacedCall failing(
      VE_IMPORTED(FindFirstFileExW),
      +[](const wchar_t* path, FINDEX_INFO_LEVELS level, void* data, FINDEX_SEARCH_OPS search,
          void* filter, DWORD flags) -> HANDLE {
        if (std::wstring_view(path) == L"tree\\a\\*") {
          SetLastError(ERROR_ACCESS_DENIED);
          return INVALID_HANDLE_VALUE;
        }
        return reinterpret_cast<decltype(&FindFirstFileExW)>(real)(path, level, data, search,
                                                                   filter, flags);
      });
  EXPECT_EQ(WalkErrorFor(L"tree", L"tree\\a"), ERROR_ACCESS_DENIED);
}

TEST_F(GameRoot, AFolderThatCannotBeReadToItsEndRaisesAnError) {
  MakeFolder(L"tree");
  MakeFile(L"tree\\x.vegame", k2020);
  static void* const real = VE_IMPORTED(FindNextFileW);
  const test::ReplacedCall failing(
      VE_IMPORTED(FindNextFileW), +[](HANDLE search, WIN32_FIND_DATAW* found) -> BOOL {
        const BOOL next = reinterpret_cast<decltype(&FindNextFileW)>(real)(search, found);
        if (next == FALSE) SetLastError(ERROR_NOT_READY);
        return next;
      });
  EXPECT_EQ(WalkErrorFor(L"tree", L"tree"), ERROR_NOT_READY);
}

TEST_F(GameRoot, AProjectWhoseWriteTimeCannotBeReadRaisesAnError) {
  MakeFolder(L"tree");
  MakeFile(L"tree\\x.vegame", k2020);
  const test::ReplacedCall failing(
      VE_IMPORTED(GetFileAttributesExW),
      +[](const wchar_t*, GET_FILEEX_INFO_LEVELS, void*) -> BOOL {
        SetLastError(ERROR_ACCESS_DENIED);
        return FALSE;
      });
  try {
    static_cast<void>(RootFor({L"tree"}));
    ADD_FAILURE() << "nothing was thrown";
  } catch (const std::filesystem::filesystem_error& error) {
    EXPECT_THAT(error.what(), HasSubstr("last_write_time"));
    EXPECT_EQ(error.code(), std::error_code(ERROR_ACCESS_DENIED, std::system_category()));
    EXPECT_EQ(error.path1().native(), L"tree\\x.vegame");
  }
}

TEST_F(GameRoot, TheMarkerIsCaseSensitive) {
  EXPECT_EQ(WalkErrorFor(L"from_solution", L"from_solution"), ERROR_PATH_NOT_FOUND);
  EXPECT_EQ(WalkErrorFor(L"FROM_SOLUTION ", L"FROM_SOLUTION "), ERROR_PATH_NOT_FOUND);
  MakeFolder(L"from_solution");
  MakeFile(L"from_solution\\x.vegame", k2020);
  EXPECT_EQ(RootFor({L"from_solution"}), L"from_solution");
}

class GameRootFromRegistry : public GameRoot {
 protected:
  static void RecordLastBuild(std::wstring_view directory) {
    const std::wstring text(directory);
    ASSERT_EQ(
        RegSetKeyValueW(HKEY_CURRENT_USER, L"SOFTWARE\\Velmorant\\Player", L"LastBuild", REG_SZ,
                        text.c_str(), static_cast<DWORD>((text.size() + 1) * sizeof(wchar_t))),
        ERROR_SUCCESS);
  }

 private:
  test::PrivateRegistry registry_;
};

TEST_F(GameRootFromRegistry, TheMarkerTakesTheLastBuild) {
  const test::SinkRecorder sink;
  RecordLastBuild(L"C:\\builds\\last \x00E9");
  EXPECT_EQ(RootFor({L"FROM_SOLUTION"}), L"C:\\builds\\last \x00E9");
  EXPECT_THAT(sink.Messages(), IsEmpty());
}

TEST_F(GameRootFromRegistry, WithoutALastBuildTheRootIsFoundAndEmpty) {
  const test::SinkRecorder sink;
  const std::optional<std::wstring> root = RootFor({L"FROM_SOLUTION"});
  ASSERT_TRUE(root.has_value());
  EXPECT_EQ(*root, L"");
  // What the program does with it next.
  EXPECT_FALSE(SetWorkingDirectory(*root, false));
  ASSERT_EQ(sink.Messages().size(), 2U);
  EXPECT_THAT(sink.Messages()[0],
              Pair("Failed to retrieve value of registry key 'SOFTWARE\\Velmorant\\Player' (error: "
                   "2).",
                   1U));
  EXPECT_EQ(sink.Messages()[1].first, "Failed to set current working directory to '': " +
                                          std::system_category().message(ERROR_INVALID_NAME));
  EXPECT_EQ(sink.Messages()[1].second, 0U);
  EXPECT_EQ(WorkingDirectory(), Folder());
}

TEST_F(GameRoot, IsReadFromTheCommandLineOfTheProcess) {
  MakeFolder(L"a tree");
  MakeFile(L"a tree\\x.vegame", k2020);
  const test::ReplacedCall given(
      VE_IMPORTED(GetCommandLineW), +[]() -> wchar_t* { return commandLine.data(); });
  commandLine = L"\"C:\\a game\\Launcher.exe\" \"a tree\"";
  EXPECT_EQ(ResolveGameRoot(), L"a tree");
  commandLine = L"\"C:\\a game\\Launcher.exe\" a tree";
  EXPECT_EQ(ResolveGameRoot(), std::nullopt);
  commandLine = L"\"C:\\a game\\Launcher.exe\"";
  EXPECT_EQ(ResolveGameRoot(), std::nullopt);
}

TEST_F(GameRoot, ACommandLineThatCannotBeSplitNamesNone) {
  const test::ReplacedCall failing(
      VE_IMPORTED(CommandLineToArgvW), +[](const wchar_t*, int*) -> wchar_t** { return nullptr; });
  EXPECT_EQ(ResolveGameRoot(), std::nullopt);
}

}  // namespace
}  // namespace ve
