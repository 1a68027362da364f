#include "core/files.h"

#include "core/windows.h"

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <optional>
#include <string>
#include <system_error>
#include <vector>
#include <winioctl.h>

#include "core/errors.h"
#include "core/format.h"
#include "core/handle.h"
#include "core/unicode.h"
#include "support/host_program.h"
#include "support/replaced_call.h"
#include "support/sink_recorder.h"
#include "support/temp_folder.h"

extern "C" void* VE_IMPORTED(GetFileAttributesExW);

namespace ve::file {
namespace {

namespace fs = std::filesystem;
using test::ReadWhole;
using test::ReplacedCall;
using test::SinkRecorder;
using test::WriteWhole;
using testing::ElementsAre;
using testing::Pair;
using testing::StartsWith;

std::error_code WindowsCode(DWORD code) { return {static_cast<int>(code), std::system_category()}; }

template <class Action>
std::string FileExceptionText(Action action) {
  try {
    action();
  } catch (const FileException& error) {
    return error.what();
  }
  return "nothing was thrown";
}

/// Expects the filesystem error of this operation, path and Windows code.
template <class Action>
void ExpectFilesystemError(const char* operation, const wchar_t* path, DWORD code, Action action) {
  const fs::filesystem_error expected(operation, fs::path(path), WindowsCode(code));
  try {
    action();
    ADD_FAILURE() << "nothing was thrown";
  } catch (const fs::filesystem_error& error) {
    EXPECT_STREQ(error.what(), expected.what());
    EXPECT_EQ(error.code(), expected.code());
    EXPECT_NE(std::string(error.what()).find(operation), std::string::npos);
  }
}

bool IsFolder(const wchar_t* path) {
  const DWORD attributes = GetFileAttributesW(path);
  return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
}

/// Expects that the file can be opened without sharing, so that no handle to it is left.
void ExpectReleased(const wchar_t* path) {
  const UniqueFileHandle alone(
      CreateFileW(path, GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr));
  EXPECT_TRUE(alone);
}

using Files = test::TempFolder;

TEST_F(Files, AnEmptyFileLoadsAsNothing) {
  WriteWhole(L"file", "");
  EXPECT_EQ(LoadFile(L"file"), "");
  EXPECT_EQ(LoadFile("file"), "");
}

TEST_F(Files, EveryByteIsLoadedAsItIs) {
  const std::string content("\0a\r\n\x1A\0z", 7);
  WriteWhole(L"file", content);
  EXPECT_EQ(LoadFile(L"file"), content);
  EXPECT_EQ(LoadFile("file"), content);
}

TEST_F(Files, TheContentHasTheQueriedSizeAlsoAfterAShortRead) {
  WriteWhole(L"file", "abc");
  const ReplacedCall faked(
      VE_IMPORTED(GetFileAttributesExW),
      +[](const wchar_t*, GET_FILEEX_INFO_LEVELS, void* data) -> BOOL {
        auto& attributes = *static_cast<WIN32_FILE_ATTRIBUTE_DATA*>(data);
        attributes = {};
        attributes.nFileSizeLow = 10;
        return TRUE;
      });
  EXPECT_EQ(LoadFile(L"file"), std::string("abc\0\0\0\0\0\0\0", 10));
  EXPECT_EQ(LoadFile("file"), std::string("abc\0\0\0\0\0\0\0", 10));
}

TEST_F(Files, ASizeThatCannotBeQueriedEndsTheLoadingAndReleasesTheFile) {
  WriteWhole(L"\x20AC", "abc");
  const SinkRecorder sink;
  {
    const ReplacedCall failing(
        VE_IMPORTED(GetFileAttributesExW),
        +[](const wchar_t*, GET_FILEEX_INFO_LEVELS, void*) -> BOOL {
          SetLastError(ERROR_ACCESS_DENIED);
          return FALSE;
        });
    ExpectFilesystemError("file_size", L"\x20AC", ERROR_ACCESS_DENIED,
                          [] { static_cast<void>(LoadFile(L"\x20AC")); });
  }
  EXPECT_TRUE(sink.Messages().empty());
  ExpectReleased(L"\x20AC");
}

TEST_F(Files, EveryByteIsSavedAsItIs) {
  const std::string content("\0a\r\n\x1A\0z", 7);
  SaveFile(L"wide", content);
  SaveFile("narrow", content);
  SaveFile(L"wide part", content.data(), 3);
  SaveFile("narrow part", content.data(), 4);
  EXPECT_EQ(ReadWhole(L"wide"), content);
  EXPECT_EQ(ReadWhole(L"narrow"), content);
  EXPECT_EQ(ReadWhole(L"wide part"), content.substr(0, 3));
  EXPECT_EQ(ReadWhole(L"narrow part"), content.substr(0, 4));
}

TEST_F(Files, SavingNothingMakesAnEmptyFile) {
  SaveFile(L"new", "");
  EXPECT_EQ(ReadWhole(L"new"), "");
  WriteWhole(L"old", "content");
  SaveFile(L"old", "");
  EXPECT_EQ(ReadWhole(L"old"), "");
}

TEST_F(Files, SavingReplacesALongerFile) {
  WriteWhole(L"file", "long content");
  SaveFile(L"file", "short");
  EXPECT_EQ(ReadWhole(L"file"), "short");
}

TEST_F(Files, AWriteThatFallsShortIsNotReported) {
  // A disk that is always full, of the system that Wine runs on.
  constexpr const wchar_t* kFull = L"\\\\?\\unix\\dev\\full";
  const std::string large(1'000'000, 'x');
  {
    const UniqueStream full(_wfopen(kFull, L"r+b"));
    if (!full) GTEST_SKIP() << "this system has no disk that is always full";
    ASSERT_LT(std::fwrite(large.data(), 1, large.size(), full.Get()), large.size());
  }
  const SinkRecorder sink;
  // The large content fails as it is written, the small one as the file is closed.
  EXPECT_NO_THROW(SaveFile(kFull, large));
  EXPECT_NO_THROW(SaveFile(kFull, "x"));
  EXPECT_TRUE(sink.Messages().empty());
}

/// A text in the active code page; none if that lacks one of the characters.
std::optional<std::string> InActiveCodePage(const wchar_t* text) {
  char narrow[32] = {};
  BOOL replaced = FALSE;
  const int length = WideCharToMultiByte(CP_ACP, 0, text, -1, narrow, 32, nullptr, &replaced);
  if (length == 0 || replaced != FALSE) return {};
  return narrow;
}

TEST_F(Files, ANarrowPathIsInTheActiveCodePage) {
  // The euro: where a code page has it, its byte is not the character's number.
  const std::optional<std::string> name = InActiveCodePage(L"\x20AC \x00E9");
  if (!name) GTEST_SKIP() << "the active code page has no euro or no e with an acute accent";
  SaveFile(*name, "abc");
  EXPECT_EQ(ReadWhole(L"\x20AC \x00E9"), "abc");
  EXPECT_EQ(LoadFile(*name), "abc");
}

TEST_F(Files, ANarrowPathIsReportedByteForByte) {
  const std::string name = "\x80 \xE9\xFF";
  const std::string rest = " File '" + name + "'. Error: ";
  EXPECT_THAT(FileExceptionText([&] { static_cast<void>(LoadFile(name)); }),
              StartsWith("Failed to open file for loading." + rest));
  EXPECT_THAT(FileExceptionText([&] { SaveFile("missing\\" + name, "x"); }),
              StartsWith("Failed to open file for saving. File 'missing\\" + name + "'. Error: "));
}

TEST_F(Files, TheSizeOfANarrowPathIsQueriedInTheActiveCodePage) {
  const std::optional<std::string> name = InActiveCodePage(L"\x20AC \x00E9");
  if (!name) GTEST_SKIP() << "the active code page has no euro or no e with an acute accent";
  WriteWhole(L"\x20AC \x00E9", "abc");
  static std::vector<std::wstring> queried;
  queried.clear();
  const ReplacedCall recording(
      VE_IMPORTED(GetFileAttributesExW),
      +[](const wchar_t* path, GET_FILEEX_INFO_LEVELS, void*) -> BOOL {
        queried.emplace_back(path);
        SetLastError(ERROR_ACCESS_DENIED);
        return FALSE;
      });
  ExpectFilesystemError("file_size", L"\x20AC \x00E9", ERROR_ACCESS_DENIED,
                        [&] { static_cast<void>(LoadFile(*name)); });
  EXPECT_THAT(queried, ElementsAre(L"\x20AC \x00E9"));
}

TEST_F(Files, APathOf255CharactersOpens) {
  std::wstring path = Folder() + L"\\";
  path += std::wstring(255 - path.size(), L'x');
  SaveFile(path, "abc");
  EXPECT_EQ(LoadFile(path), "abc");
  EXPECT_EQ(LoadFile(ToUtf8(path)), "abc");
}

TEST_F(Files, ALongerPathIsRefusedRatherThanCut) {
  std::wstring path = Folder() + L"\\";
  path += std::wstring(255 - path.size(), L'x');
  WriteWhole(path, "abc");
  const std::string longer = ToUtf8(path) + "y";
  const std::string rest = Format(" File '{}'. Error: {} (38)", longer, strerror(ENAMETOOLONG));
  EXPECT_EQ(FileExceptionText([&] { SaveFile(path + L"y", "x"); }),
            "Failed to open file for saving." + rest);
  EXPECT_EQ(FileExceptionText([&] { SaveFile(longer, "x"); }),
            "Failed to open file for saving." + rest);
  EXPECT_EQ(FileExceptionText([&] { static_cast<void>(LoadFile(path + L"y")); }),
            "Failed to open file for loading." + rest);
  EXPECT_EQ(FileExceptionText([&] { static_cast<void>(LoadFile(longer)); }),
            "Failed to open file for loading." + rest);
  EXPECT_EQ(ReadWhole(path), "abc");
}

TEST_F(Files, AMissingFileCannotBeLoaded) {
  const std::string expected =
      Format("Failed to open file for loading. File 'missing'. Error: {} (2)", strerror(ENOENT));
  EXPECT_EQ(FileExceptionText([] { static_cast<void>(LoadFile(L"missing")); }), expected);
  EXPECT_EQ(FileExceptionText([] { static_cast<void>(LoadFile("missing")); }), expected);
}

TEST_F(Files, AFolderCannotBeLoadedOrSaved) {
  ASSERT_TRUE(CreateDirectoryW(L"\x20AC", nullptr));
  EXPECT_EQ(FileExceptionText([] { static_cast<void>(LoadFile(L"\x20AC")); }),
            Format("Failed to open file for loading. File '\xE2\x82\xAC'. Error: {} (13)",
                   strerror(EACCES)));
  EXPECT_EQ(FileExceptionText([] { SaveFile(L"\x20AC", "x"); }),
            Format("Failed to open file for saving. File '\xE2\x82\xAC'. Error: {} (13)",
                   strerror(EACCES)));
}

TEST_F(Files, AFileInAMissingFolderCannotBeSaved) {
  const std::string expected = Format(
      "Failed to open file for saving. File 'missing\\file'. Error: {} (2)", strerror(ENOENT));
  EXPECT_EQ(FileExceptionText([] { SaveFile(L"missing\\file", "x"); }), expected);
  EXPECT_EQ(FileExceptionText([] { SaveFile("missing\\file", "x", 1); }), expected);
}

TEST_F(Files, ACopyIsMadeOrReplacesItsTarget) {
  WriteWhole(L"source", "new content");
  CopyFileOverwrite(L"source", L"made");
  EXPECT_EQ(ReadWhole(L"made"), "new content");
  WriteWhole(L"old", "old and longer content");
  CopyFileOverwrite(L"source", L"old");
  EXPECT_EQ(ReadWhole(L"old"), "new content");
}

TEST_F(Files, ACopyThatFailsIsReported) {
  EXPECT_EQ(FileExceptionText([] { CopyFileOverwrite(L"missing", L"\x20AC"); }),
            "Failed to copy file from 'missing' to '\xE2\x82\xAC': " +
                std::system_category().message(ERROR_FILE_NOT_FOUND));
  WriteWhole(L"source", "new");
  WriteWhole(L"target", "old");
  const UniqueFileHandle locked(
      CreateFileW(L"target", GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr));
  EXPECT_EQ(FileExceptionText([] { CopyFileOverwrite(L"source", L"target"); }),
            "Failed to copy file from 'source' to 'target': " +
                std::system_category().message(ERROR_SHARING_VIOLATION));
  EXPECT_EQ(ReadWhole(L"target"), "old");
}

TEST_F(Files, AFolderIsMadeOnceAndNothingIsReported) {
  const SinkRecorder sink;
  MakeDirectory(L"one");
  MakeDirectory(L"one");
  MakeDirectory(L"one\\");
  MakeDirectory(L"one\\\\two");
  EXPECT_TRUE(IsFolder(L"one\\two"));
  EXPECT_TRUE(sink.Messages().empty());
}

TEST_F(Files, AFolderInAMissingOneIsReportedAndThrown) {
  const SinkRecorder sink;
  ExpectFilesystemError("create_directory", L"missing\\one", ERROR_PATH_NOT_FOUND,
                        [] { MakeDirectory(L"missing\\one"); });
  const fs::filesystem_error expected("create_directory", fs::path(L"missing\\one"),
                                      WindowsCode(ERROR_PATH_NOT_FOUND));
  EXPECT_THAT(sink.Messages(),
              ElementsAre(Pair(
                  Format("Failed to create directory 'missing\\one': {}", expected.what()), 1U)));
}

TEST_F(Files, APathBeyondAsciiIsReportedAsUtf8) {
  const SinkRecorder sink;
  ExpectFilesystemError("create_directory", L"\x20AC\\\x00E9", ERROR_PATH_NOT_FOUND,
                        [] { MakeDirectory(L"\x20AC\\\x00E9"); });
  const fs::filesystem_error expected("create_directory", fs::path(L"\x20AC\\\x00E9"),
                                      WindowsCode(ERROR_PATH_NOT_FOUND));
  EXPECT_THAT(sink.Messages(),
              ElementsAre(Pair("Failed to create directory '\xE2\x82\xAC\\\xC3\xA9': " +
                                   std::string(expected.what()),
                               1U)));
}

TEST_F(Files, AnInvalidUtf16PathRaisesTheErrorOfItsOperation) {
  const SinkRecorder sink;
  ExpectFilesystemError("file_size", L"x\xFFFD", ERROR_FILE_NOT_FOUND,
                        [] { static_cast<void>(FileSize(L"x\xD800")); });
  ExpectFilesystemError("create_directory", L"missing\\x\xFFFD", ERROR_PATH_NOT_FOUND,
                        [] { MakeDirectory(L"missing\\x\xD800"); });
  ASSERT_EQ(sink.Messages().size(), 1U);
  EXPECT_TRUE(
      sink.Messages()[0].first.starts_with("Failed to create directory 'missing\\x\xEF\xBF\xBD': "))
      << sink.Messages()[0].first;
}

TEST_F(Files, AFileInTheFoldersPlaceIsReportedAndThrown) {
  const SinkRecorder sink;
  WriteWhole(L"file", "x");
  ExpectFilesystemError("create_directory", L"file", ERROR_ALREADY_EXISTS,
                        [] { MakeDirectory(L"file"); });
  ExpectFilesystemError("create_directories", L"file", ERROR_ALREADY_EXISTS,
                        [] { MakeDirectories(L"file"); });
  EXPECT_EQ(sink.Messages().size(), 2U);
}

TEST_F(Files, AllMissingFoldersOfAPathAreMade) {
  const SinkRecorder sink;
  MakeDirectories(L"one\\two/three\\\\four\\");
  MakeDirectories(L"one\\two\\three\\four");
  MakeDirectories(Folder() + L"\\five\\six");
  EXPECT_TRUE(IsFolder(L"one\\two\\three\\four"));
  EXPECT_TRUE(IsFolder(L"five\\six"));
  EXPECT_TRUE(sink.Messages().empty());
}

TEST_F(Files, FoldersBelowAFileAreReportedAndThrown) {
  WriteWhole(L"file", "x");
  const SinkRecorder sink;
  std::string text;
  try {
    MakeDirectories(L"file\\one\\two");
  } catch (const fs::filesystem_error& error) {
    text = error.what();
    EXPECT_EQ(error.path1().native(), L"file\\one\\two");
  }
  EXPECT_NE(text.find("create_directories"), std::string::npos) << text;
  EXPECT_THAT(
      sink.Messages(),
      ElementsAre(Pair("Failed to create all directories on path 'file\\one\\two': " + text, 1U)));
}

TEST_F(Files, EnsuringDoesNothingWhereAFileOrFolderExists) {
  const SinkRecorder sink;
  WriteWhole(L"file", "x");
  ASSERT_TRUE(CreateDirectoryW(L"folder", nullptr));
  EnsureDirectory(L"file");
  EnsureDirectory(L"folder");
  EnsureDirectories(L"file");
  EnsureDirectories(L"folder");
  EXPECT_EQ(ReadWhole(L"file"), "x");
  EXPECT_TRUE(sink.Messages().empty());
}

TEST_F(Files, EnsuringMakesWhatIsMissing) {
  EnsureDirectory(L"one");
  EnsureDirectories(L"two\\three\\");
  EXPECT_TRUE(IsFolder(L"one"));
  EXPECT_TRUE(IsFolder(L"two\\three"));
  const SinkRecorder sink;
  ExpectFilesystemError("create_directory", L"four\\five", ERROR_PATH_NOT_FOUND,
                        [] { EnsureDirectory(L"four\\five"); });
}

TEST_F(Files, AnExtensionMayComeWithItsDot) {
  EXPECT_EQ(AppendExtension(L"GameVersion", L".vpak"), L"GameVersion.vpak");
  EXPECT_EQ(AppendExtension(L"GameVersion", L"vpak"), L"GameVersion.vpak");
}

/// Sets a file's creation and write time, in 100-nanosecond intervals since 1601.
void SetTimes(const wchar_t* path, ULONGLONG created, ULONGLONG written) {
  const UniqueFileHandle file(CreateFileW(path, FILE_WRITE_ATTRIBUTES, 0, nullptr, OPEN_EXISTING,
                                          FILE_FLAG_BACKUP_SEMANTICS, nullptr));
  const auto time = [](ULONGLONG value) {
    return FILETIME{static_cast<DWORD>(value), static_cast<DWORD>(value >> 32)};
  };
  const FILETIME creation = time(created);
  const FILETIME write = time(written);
  ASSERT_TRUE(SetFileTime(file.Get(), &creation, nullptr, &write));
}

constexpr ULONGLONG k2020 = 132'223'104'000'000'000;  // 2020-01-01 00:00 UTC, 1577836800 s of 1970.

TEST_F(Files, TheCreationTimeIsNotTheWriteTime) {
  // Faked, because Wine keeps no creation time that could be set.
  const ReplacedCall faked(
      VE_IMPORTED(GetFileAttributesExW),
      +[](const wchar_t*, GET_FILEEX_INFO_LEVELS, void* data) -> BOOL {
        const auto time = [](ULONGLONG value) {
          return FILETIME{static_cast<DWORD>(value), static_cast<DWORD>(value >> 32)};
        };
        auto& attributes = *static_cast<WIN32_FILE_ATTRIBUTE_DATA*>(data);
        attributes.ftCreationTime = time(k2020 + 19'999'999);
        attributes.ftLastAccessTime = time(k2020 + 2'000'000'000);
        attributes.ftLastWriteTime = time(k2020 + 1'000'000'000);
        return TRUE;
      });
  EXPECT_EQ(FileCreationTimeSeconds(L"file"), 1'577'836'801);
}

TEST_F(Files, TheCreationTimeIsThatOfTheSystem) {
  WriteWhole(L"file", "x");
  WIN32_FILE_ATTRIBUTE_DATA data{};
  ASSERT_TRUE(GetFileAttributesExW(L"file", GetFileExInfoStandard, &data));
  const ULONGLONG created =
      ULONGLONG{data.ftCreationTime.dwHighDateTime} << 32 | data.ftCreationTime.dwLowDateTime;
  EXPECT_EQ(FileCreationTimeSeconds(L"file"),
            static_cast<std::int64_t>(created / 10'000'000) - 11'644'473'600);
}

TEST_F(Files, AMissingFileHasTheCreationTimeZero) {
  EXPECT_EQ(FileCreationTimeSeconds(L"missing"), 0);
}

TEST_F(Files, TheWriteTimeIsExactToTheTick) {
  WriteWhole(L"file", "x");
  SetTimes(L"file", k2020, k2020 + 1'234'567);
  EXPECT_EQ(LastWriteTicks(L"file"), 15'778'368'001'234'567);
}

TEST_F(Files, AMissingFileHasNoWriteTime) {
  ExpectFilesystemError("last_write_time", L"missing", ERROR_FILE_NOT_FOUND,
                        [] { static_cast<void>(LastWriteTicks(L"missing")); });
}

TEST_F(Files, FilesAndFoldersExistWithAndWithoutATrailingSeparator) {
  WriteWhole(L"file", "x");
  ASSERT_TRUE(CreateDirectoryW(L"folder", nullptr));
  EXPECT_TRUE(Exists(L"file"));
  EXPECT_TRUE(Exists(L"folder"));
  EXPECT_TRUE(Exists(L"folder\\"));
  EXPECT_TRUE(Exists(L"folder/"));
  EXPECT_FALSE(Exists(L"missing"));
  EXPECT_FALSE(Exists(L"missing\\file"));
  EXPECT_FALSE(Exists(L""));
  EXPECT_FALSE(Exists(L"a?b"));  // Not a valid name.
}

TEST_F(Files, TheSizeIsThatOfTheContent) {
  WriteWhole(L"file", "12345");
  WriteWhole(L"empty", "");
  EXPECT_EQ(FileSize(L"file"), 5U);
  EXPECT_EQ(FileSize(L"empty"), 0U);
}

TEST_F(Files, ASizeBeyond32BitsIsReturned) {
  {
    const UniqueFileHandle file(
        CreateFileW(L"file", GENERIC_WRITE, 0, nullptr, CREATE_NEW, 0, nullptr));
    LARGE_INTEGER end{};
    end.QuadPart = (LONGLONG{1} << 32) + 7;
    DWORD returned = 0;
    DeviceIoControl(file.Get(), FSCTL_SET_SPARSE, nullptr, 0, nullptr, 0, &returned, nullptr);
    ASSERT_TRUE(SetFilePointerEx(file.Get(), end, nullptr, FILE_BEGIN));
    ASSERT_TRUE(SetEndOfFile(file.Get()));
  }
  EXPECT_EQ(FileSize(L"file"), (std::uint64_t{1} << 32) + 7);
}

/// A link to the file "target" while it exists. Wine makes no links, and removes a link's target in
/// its place, so under Wine the host does both.
class LinkToTarget {
 public:
  LinkToTarget() {
    if (CreateSymbolicLinkW(kName, L"target", 0) != FALSE && Exists(kName)) return;
    if (test::RunOnHost(L"\\\\?\\unix\\bin\\ln", L"ln -s target link")) Await(true);
  }
  LinkToTarget(const LinkToTarget&) = delete;
  LinkToTarget& operator=(const LinkToTarget&) = delete;
  ~LinkToTarget() {
    if (!test::RunOnHost(L"\\\\?\\unix\\bin\\rm", L"rm link")) DeleteFileW(kName);
    Await(false);
  }

  [[nodiscard]] static bool IsMade() { return Exists(kName); }

 private:
  static constexpr const wchar_t* kName = L"link";

  /// The end of a host program cannot be awaited, only its effect.
  static void Await(bool present) {
    const ULONGLONG deadline = GetTickCount64() + 60'000;
    while (Exists(kName) != present && GetTickCount64() < deadline) Sleep(5);
  }
};

TEST_F(Files, ALinkHasTheSizeAndWriteTimeOfItsTarget) {
  WriteWhole(L"target", "12345");
  SetTimes(L"target", k2020, k2020 + 1'234'567);
  const LinkToTarget link;
  if (!LinkToTarget::IsMade()) GTEST_SKIP() << "no link can be made on this system";
  EXPECT_EQ(FileSize(L"link"), 5U);
  EXPECT_EQ(LastWriteTicks(L"link"), 15'778'368'001'234'567);
}

TEST_F(Files, TheAttributesOfALinkItselfAreNotUsed) {
  WriteWhole(L"link", "12345");
  SetTimes(L"link", k2020, k2020 + 1'234'567);
  ASSERT_TRUE(CreateDirectoryW(L"folder", nullptr));
  // As Windows does: Wine looks through links to files by itself.
  const ReplacedCall faked(
      VE_IMPORTED(GetFileAttributesExW),
      +[](const wchar_t*, GET_FILEEX_INFO_LEVELS, void* data) -> BOOL {
        auto& attributes = *static_cast<WIN32_FILE_ATTRIBUTE_DATA*>(data);
        attributes = {};
        attributes.dwFileAttributes = FILE_ATTRIBUTE_REPARSE_POINT;
        return TRUE;
      });
  EXPECT_EQ(FileSize(L"link"), 5U);
  EXPECT_EQ(LastWriteTicks(L"link"), 15'778'368'001'234'567);
  ExpectFilesystemError("file_size", L"folder", ERROR_ACCESS_DENIED,
                        [] { static_cast<void>(FileSize(L"folder")); });
  ExpectFilesystemError("file_size", L"dangling", ERROR_FILE_NOT_FOUND,
                        [] { static_cast<void>(FileSize(L"dangling")); });
  ExpectReleased(L"link");
}

/// Makes every query of attributes by path fail while it exists.
class UnreadableAttributes {
 public:
  explicit UnreadableAttributes(DWORD code) { code_ = code; }

 private:
  static BOOL WINAPI Fail(const wchar_t*, GET_FILEEX_INFO_LEVELS, void*) {
    SetLastError(code_);
    return FALSE;
  }

  inline static DWORD code_ = ERROR_SUCCESS;
  ReplacedCall call_{VE_IMPORTED(GetFileAttributesExW), &Fail};
};

TEST_F(Files, ExistenceThatCannotBeQueriedIsAnError) {
  for (const DWORD code : {DWORD{ERROR_ACCESS_DENIED}, DWORD{ERROR_NOT_READY}}) {
    const UnreadableAttributes unreadable(code);
    ExpectFilesystemError("exists", L"file", code, [] { static_cast<void>(Exists(L"file")); });
    ExpectFilesystemError("exists", L"file", code, [] { EnsureDirectory(L"file"); });
    ExpectFilesystemError("exists", L"file", code, [] { EnsureDirectories(L"file"); });
  }
  EXPECT_FALSE(IsFolder(L"file"));
}

TEST_F(Files, ALinkExistsOnlyIfItsTargetDoes) {
  WriteWhole(L"link", "x");
  // As Windows answers for a link; opening it opens its target.
  const ReplacedCall faked(
      VE_IMPORTED(GetFileAttributesExW),
      +[](const wchar_t*, GET_FILEEX_INFO_LEVELS, void* data) -> BOOL {
        auto& attributes = *static_cast<WIN32_FILE_ATTRIBUTE_DATA*>(data);
        attributes = {};
        attributes.dwFileAttributes = FILE_ATTRIBUTE_REPARSE_POINT;
        return TRUE;
      });
  EXPECT_TRUE(Exists(L"link"));
  EXPECT_FALSE(Exists(L"dangling"));
}

TEST_F(Files, OnlyAFileHasASize) {
  ASSERT_TRUE(CreateDirectoryW(L"folder", nullptr));
  ExpectFilesystemError("file_size", L"missing", ERROR_FILE_NOT_FOUND,
                        [] { static_cast<void>(FileSize(L"missing")); });
  ExpectFilesystemError("file_size", L"folder", ERROR_ACCESS_DENIED,
                        [] { static_cast<void>(FileSize(L"folder")); });
}

TEST_F(Files, AFileAndAnEmptyFolderCanBeRemoved) {
  WriteWhole(L"file", "x");
  ASSERT_TRUE(CreateDirectoryW(L"folder", nullptr));
  Remove(L"file");
  Remove(L"folder");
  EXPECT_FALSE(Exists(L"file"));
  EXPECT_FALSE(Exists(L"folder"));
}

TEST_F(Files, RemovingNothingIsNoError) {
  EXPECT_NO_THROW(Remove(L"missing"));
  EXPECT_NO_THROW(Remove(L"missing\\file"));
}

TEST_F(Files, TryRemoveReturnsTheErrorCode) {
  WriteWhole(L"file", "x");
  WriteWhole(L"locked", "x");
  ASSERT_TRUE(CreateDirectoryW(L"empty", nullptr));
  ASSERT_TRUE(CreateDirectoryW(L"filled", nullptr));
  WriteWhole(L"filled\\file", "x");
  const UniqueFileHandle locked(
      CreateFileW(L"locked", GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr));
  ASSERT_TRUE(locked);
  EXPECT_EQ(TryRemove(L"file"), 0U);
  EXPECT_EQ(TryRemove(L"empty"), 0U);
  EXPECT_EQ(TryRemove(L"missing"), 0U);
  EXPECT_EQ(TryRemove(L"missing\\file"), 0U);
  EXPECT_EQ(TryRemove(L"filled"), DWORD{ERROR_DIR_NOT_EMPTY});
  EXPECT_EQ(TryRemove(L"locked"), DWORD{ERROR_SHARING_VIOLATION});
  EXPECT_FALSE(Exists(L"file"));
  EXPECT_FALSE(Exists(L"empty"));
  EXPECT_TRUE(Exists(L"filled\\file"));
  EXPECT_TRUE(Exists(L"locked"));
}

TEST_F(Files, AFolderThatHoldsSomethingCannotBeRemoved) {
  ASSERT_TRUE(CreateDirectoryW(L"folder", nullptr));
  WriteWhole(L"folder\\file", "x");
  ExpectFilesystemError("remove", L"folder", ERROR_DIR_NOT_EMPTY, [] { Remove(L"folder"); });
  EXPECT_TRUE(Exists(L"folder\\file"));
}

TEST_F(Files, AReadOnlyFileCannotBeRemoved) {
  WriteWhole(L"file", "x");
  ASSERT_TRUE(SetFileAttributesW(L"file", FILE_ATTRIBUTE_READONLY));
  ExpectFilesystemError("remove", L"file", ERROR_ACCESS_DENIED, [] { Remove(L"file"); });
  EXPECT_TRUE(Exists(L"file"));
  SetFileAttributesW(L"file", FILE_ATTRIBUTE_NORMAL);
}

TEST_F(Files, ARenameReplacesItsTarget) {
  WriteWhole(L"from", "new");
  WriteWhole(L"to", "old");
  Rename(L"from", L"to");
  EXPECT_EQ(ReadWhole(L"to"), "new");
  EXPECT_FALSE(Exists(L"from"));
}

TEST_F(Files, ARenameOfAMissingFileFails) {
  WriteWhole(L"to", "old");
  ExpectFilesystemError("rename", L"from", ERROR_FILE_NOT_FOUND, [] { Rename(L"from", L"to"); });
  EXPECT_EQ(ReadWhole(L"to"), "old");
}

}  // namespace
}  // namespace ve::file
