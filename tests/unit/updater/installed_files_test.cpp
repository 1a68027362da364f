#include "updater/installed_files.h"

#include "core/windows.h"

#include <cstdlib>
#include <filesystem>
#include <gtest/gtest.h>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "core/errors.h"
#include "core/file_matches_entry.h"
#include "core/files.h"
#include "core/format.h"
#include "core/handle.h"
#include "core/md5.h"
#include "support/replaced_call.h"
#include "support/temp_folder.h"

extern "C" void* VE_IMPORTED(malloc);

namespace ve::sdk {
namespace {

class InstalledFilesTest : public test::TempFolder {
 protected:
  /// Lists a file of this content, by its name.
  void List(std::wstring_view name, const std::string& content) {
    digests_.push_back(std::make_unique<std::string>(Md5Hex(content)));
    entries_.push_back({std::wstring(name), content.size(), *digests_.back()});
  }
  void ListAndWrite(std::wstring_view name, const std::string& content) {
    List(name, content);
    test::WriteWhole(std::wstring(name), content);
  }

  std::vector<FileEntry> entries_;

 private:
  std::vector<std::unique_ptr<std::string>> digests_;
};

/// What a check answers or throws.
template <class Check>
std::string Outcome(Check check) {
  try {
    return check() ? "current" : "not current";
  } catch (const std::exception& error) {
    return error.what();
  }
}

UniqueFileHandle Lock(const wchar_t* path) {
  return UniqueFileHandle(
      CreateFileW(path, GENERIC_READ, 0, nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
}

TEST_F(InstalledFilesTest, EveryAnswerIsThatOfTheFileItself) {
  // Sixty files of all kinds in a random order, some listed twice.
  std::mt19937 random(1);
  std::vector<UniqueFileHandle> locks;
  for (int number = 0; number < 60; ++number) {
    const std::wstring name = Format(L"file{}", number);
    const std::string content(1 + random() % 5000, static_cast<char>('a' + number % 26));
    switch (random() % 8) {
      case 0:
        List(name, content);  // Missing.
        break;
      case 1:
        List(name, content);
        test::WriteWhole(name, content + "longer");
        break;
      case 2:
        List(name, content);
        test::WriteWhole(name, std::string(content.size(), '?'));
        break;
      case 3:
        List(name, content);
        file::MakeDirectory(name);
        break;
      case 4:
        ListAndWrite(name, content);
        locks.push_back(Lock(name.c_str()));
        break;
      case 5:
        ListAndWrite(name, content);
        List(name, content + "other");
        break;
      default:
        ListAndWrite(name, content);
    }
  }
  InstalledFiles installed(entries_);
  for (const FileEntry& entry : entries_) {
    const std::string expected =
        Outcome([&] { return FileMatchesEntry(entry.name, entry.size, entry.digest); });
    EXPECT_EQ(Outcome([&] { return installed.NextIsCurrent(); }), expected);
  }
}

TEST_F(InstalledFilesTest, AnUppercaseDigestNeverMatches) {
  test::WriteWhole(L"a", "hello");
  entries_ = {{L"a", 5, "5D41402ABC4B2A76B9719D911017C592"},
              {L"a", 5, "5d41402abc4b2a76b9719d911017c592"}};
  InstalledFiles installed(entries_);
  EXPECT_FALSE(installed.NextIsCurrent());
  EXPECT_TRUE(installed.NextIsCurrent());
}

TEST_F(InstalledFilesTest, AnErrorIsThrownWhenItsEntryIsReached) {
  ListAndWrite(L"a", "first");
  List(L"b", "second");
  ListAndWrite(L"c", "third");
  List(L"d", "fourth");
  ListAndWrite(L"e", "fifth");
  file::MakeDirectory(L"d");
  InstalledFiles installed(entries_);
  EXPECT_TRUE(installed.NextIsCurrent());
  EXPECT_FALSE(installed.NextIsCurrent());
  EXPECT_TRUE(installed.NextIsCurrent());
  EXPECT_THROW(static_cast<void>(installed.NextIsCurrent()), std::filesystem::filesystem_error);
  EXPECT_TRUE(installed.NextIsCurrent());
}

TEST_F(InstalledFilesTest, AfterAFileThatIsNotCurrentOthersMayBeWritten) {
  for (const wchar_t* name : {L"a", L"b", L"c", L"d", L"e"}) ListAndWrite(name, "hello");
  test::WriteWhole(L"b", "world");
  InstalledFiles installed(entries_);
  EXPECT_TRUE(installed.NextIsCurrent());
  EXPECT_FALSE(installed.NextIsCurrent());
  test::WriteWhole(L"c", "world");
  file::Remove(L"d");
  EXPECT_FALSE(installed.NextIsCurrent());
  EXPECT_FALSE(installed.NextIsCurrent());
  EXPECT_TRUE(installed.NextIsCurrent());
}

TEST_F(InstalledFilesTest, SixteenSmallFilesAndFourLargeOnesAreReadAhead) {
  for (const std::size_t size : {std::size_t{1} << 10, std::size_t{2} << 20}) {
    const std::string before(size, 'b');
    const std::string after(size, 'a');
    entries_.clear();
    for (wchar_t name = L'a'; name < L'a' + 17; ++name) ListAndWrite(std::wstring(1, name), before);
    InstalledFiles installed(entries_);
    EXPECT_TRUE(installed.NextIsCurrent());
    for (const FileEntry& entry : entries_) test::WriteWhole(entry.name, after);
    const int ahead = size == 1024 ? 16 : 4;
    for (int entry = 2; entry <= ahead; ++entry) EXPECT_TRUE(installed.NextIsCurrent()) << entry;
    EXPECT_FALSE(installed.NextIsCurrent()) << size;
  }
}

TEST_F(InstalledFilesTest, AFileThatDoesNotFitIsReadAloneAndItsNeighboursWithoutIt) {
  const std::string large((std::size_t{64} << 20) + 1, 'l');
  const std::string half((std::size_t{32} << 20) + 1, 'h');
  ListAndWrite(L"a", "small");
  ListAndWrite(L"b", large);
  ListAndWrite(L"c", half);
  ListAndWrite(L"d", half);
  ListAndWrite(L"e", "small");
  List(L"f", large);
  test::WriteWhole(L"f", half);
  {
    InstalledFiles installed(entries_);
    for (int file = 0; file < 5; ++file) EXPECT_TRUE(installed.NextIsCurrent());
    EXPECT_FALSE(installed.NextIsCurrent());
  }
  InstalledFiles installed(entries_);
  EXPECT_TRUE(installed.NextIsCurrent());
  test::WriteWhole(L"b", std::string(large.size(), '?'));
  EXPECT_FALSE(installed.NextIsCurrent()) << "the large one was read with the one before";
  EXPECT_TRUE(installed.NextIsCurrent());
  test::WriteWhole(L"d", std::string(half.size(), '?'));
  EXPECT_FALSE(installed.NextIsCurrent()) << "two were read together that do not fit";
}

TEST_F(InstalledFilesTest, UnusualNamesHaveTheAnswerOfTheFileItself) {
  test::WriteWhole(L"file", "hello");
  file::MakeDirectory(L"folder");
  const std::vector<std::wstring> names{L"FILE",
                                        L"./file",
                                        L".\\file",
                                        L"folder/../file",
                                        L"missing/../file",
                                        L"file/",
                                        L"file\\",
                                        L"file/.",
                                        L"file.",
                                        L"file ",
                                        L"file:text",
                                        L"file::$DATA",
                                        L"fil*",
                                        L"fil?",
                                        L"",
                                        L"nul",
                                        L"con",
                                        L"folder",
                                        L"folder/",
                                        Folder() + L"\\file",
                                        L"\\\\?\\" + Folder() + L"\\file",
                                        L"a|b",
                                        std::wstring(L"file\0more", 9)};
  for (const std::wstring& name : names) {
    // Behind a current file, so that it is read ahead.
    entries_.clear();
    List(L"file", "hello");
    List(name, "hello");
    InstalledFiles installed(entries_);
    EXPECT_TRUE(installed.NextIsCurrent());
    EXPECT_EQ(Outcome([&] { return installed.NextIsCurrent(); }),
              Outcome([&] { return FileMatchesEntry(name, 5, entries_[1].digest); }))
        << testing::PrintToString(name);
  }
}

TEST_F(InstalledFilesTest, WithoutMemoryForReadingAheadEachFileIsReadAlone) {
  constexpr std::size_t kMuch = std::size_t{16} << 20;
  static void* const realMalloc = VE_IMPORTED(malloc);
  for (const wchar_t* name : {L"a", L"b", L"c"}) ListAndWrite(name, "hello");
  InstalledFiles installed(entries_);
  const test::ReplacedCall little(
      VE_IMPORTED(malloc), +[](std::size_t size) -> void* {
        return size < kMuch ? reinterpret_cast<decltype(&std::malloc)>(realMalloc)(size) : nullptr;
      });
  EXPECT_TRUE(installed.NextIsCurrent());
  test::WriteWhole(L"b", "world");
  EXPECT_FALSE(installed.NextIsCurrent());
  EXPECT_TRUE(installed.NextIsCurrent());
}

TEST_F(InstalledFilesTest, AsManyFilesAreReadTogetherAsWereCurrentInARow) {
  for (wchar_t name = L'a'; name <= L'p'; ++name) List(std::wstring(1, name), "hello");
  // Only the files of this range are current.
  const auto writeAll = [&](std::size_t begin, std::size_t end) {
    for (std::size_t file = 0; file < entries_.size(); ++file) {
      test::WriteWhole(entries_[file].name, file >= begin && file < end ? "hello" : "world");
    }
  };
  InstalledFiles installed(entries_);
  writeAll(1, 1);
  EXPECT_FALSE(installed.NextIsCurrent());
  std::size_t next = 1;
  for (const std::size_t together : {1U, 1U, 2U, 4U}) {
    writeAll(next, next + together);
    EXPECT_TRUE(installed.NextIsCurrent()) << next;
    writeAll(1, 1);
    for (std::size_t file = 1; file < together; ++file) EXPECT_TRUE(installed.NextIsCurrent());
    next += together;
  }
}

TEST_F(InstalledFilesTest, APathThatTheLauncherDoesNotOpenIsAnError) {
  // Windows would still open it, with up to 259 characters.
  std::wstring name = L".\\";
  while (name.size() < 252) name += L".\\";
  name += L"file";
  ASSERT_EQ(name.size(), 256U);
  ListAndWrite(L"first", "hello");
  List(name, "hello");
  test::WriteWhole(L"file", "hello");
  InstalledFiles installed(entries_);
  EXPECT_TRUE(installed.NextIsCurrent());
  EXPECT_THROW(static_cast<void>(installed.NextIsCurrent()), file::FileException);
}

}  // namespace
}  // namespace ve::sdk
