#include "updater/game_manifest.h"

#include <cstdint>
#include <gtest/gtest.h>
#include <string>
#include <string_view>
#include <vector>

#include "core/errors.h"
#include "support/thrown_message.h"

namespace ve::sdk {
namespace {

const std::string kDigest = "0123456789abcdef0123456789abcdef";
const std::string kFileLine = "'bin/Game.dll' 1048576 " + kDigest;
const std::string kSmallest =
    "GameUpdate\nFileVersion: 1\nDirectories: 1\nbin\nFiles:\n" + kFileLine;

std::string ErrorOf(std::string text) {
  return test::ThrownMessage<UpdaterException>([&] { (void)ReadGameUpdateManifest(text); });
}

/// The error of a manifest whose only or given file lines are these.
std::string FileLineError(const std::string& lines) {
  return ErrorOf("GameUpdate\nFileVersion: 1\nDirectories: 1\nbin\nFiles:\n" + lines);
}

/// The entry of a manifest with this one file line.
FileEntry OnlyEntry(const std::string& line) {
  static std::string text;  // What the entry's digest views.
  text = "GameUpdate\nFileVersion: 1\nDirectories: 1\nbin\nFiles:\n" + line;
  const GameUpdateManifest manifest = ReadGameUpdateManifest(text);
  EXPECT_EQ(manifest.files.size(), 1U);
  return manifest.files.at(0);
}

void ExpectSmallest(std::string text) {
  const GameUpdateManifest manifest = ReadGameUpdateManifest(text);
  EXPECT_EQ(manifest.directories, std::vector<std::string_view>{"bin"});
  ASSERT_EQ(manifest.files.size(), 1U);
  EXPECT_TRUE(manifest.files[0].name == L"bin/Game.dll");
  EXPECT_EQ(manifest.files[0].size, 1048576U);
  EXPECT_EQ(manifest.files[0].digest, kDigest);
}

TEST(GameManifest, TheSmallestHasSixLines) { ExpectSmallest(kSmallest); }

TEST(GameManifest, DirectoriesAndFilesKeepTheirOrder) {
  std::string text =
      "GameUpdate\nFileVersion: 1\nDirectories: 3\nbin\n data dir \nbin\nFiles:\n'b' 2 " + kDigest +
      "\n'a' 1 " + kDigest + "\n";
  const GameUpdateManifest manifest = ReadGameUpdateManifest(text);
  EXPECT_EQ(manifest.directories, (std::vector<std::string_view>{"bin", " data dir ", "bin"}));
  ASSERT_EQ(manifest.files.size(), 2U);
  EXPECT_EQ(manifest.files.capacity(), 2U);
  EXPECT_TRUE(manifest.files[0].name == L"b");
  EXPECT_EQ(manifest.files[0].size, 2U);
  EXPECT_TRUE(manifest.files[1].name == L"a");
  EXPECT_EQ(manifest.files[1].size, 1U);
}

TEST(GameManifest, LineEndsAndBlankLinesChangeNothing) {
  ExpectSmallest(kSmallest + "\n");
  ExpectSmallest(
      "\r\n\r\nGameUpdate\r\n\r\nFileVersion: 1\r\nDirectories: 1\r\n\r\nbin\r\n"
      "Files:\r\n\r\n\r\n" +
      kFileLine + "\r\n\r\n");
  ExpectSmallest("Game\rUpdate\nFileVersion:\r 1\nDirectories: 1\nb\rin\nFiles:\n" + kFileLine);
}

TEST(GameManifest, ARejectedTextHasLostItsCarriageReturnsToo) {
  std::string text = "GameUpdate\r\nFileVersion: 2\r\na\r\nb\r\n";
  EXPECT_THROW((void)ReadGameUpdateManifest(text), UpdaterException);
  EXPECT_EQ(text, "GameUpdate\nFileVersion: 2\na\nb\n");
}

TEST(GameManifest, OfSeveralFaultsTheFirstLinesIsReported) {
  const std::string rest = "\nbin\nFiles:\n" + kFileLine;
  EXPECT_EQ(ErrorOf("gameUpdate\nfileVersion: 2\ndirectories: 0" + rest),
            "Invalid header 'gameUpdate'. (is expecting 'GameUpdate')");
  EXPECT_EQ(ErrorOf("GameUpdate\nfileVersion: 2\ndirectories: 0" + rest),
            "Invalid file-version name 'fileVersion'. (is expecting 'FileVersion')");
  EXPECT_EQ(ErrorOf("GameUpdate\nFileVersion: 2\ndirectories: 0" + rest),
            "Invalid file-version FileVersion. (supported: 1)");
  EXPECT_EQ(ErrorOf("GameUpdate\nFileVersion: 1\ndirectories: 0" + rest),
            "Invalid directory-name 'directories'. (expected: 'Directories')");
  EXPECT_EQ(ErrorOf("gameUpdate\nb\nc"), "Invalid amount of lines (3, at least 4 expected).");
}

TEST(GameManifest, OfSeveralFaultsInAFileLineTheNameIsReportedThenTheSize) {
  EXPECT_EQ(FileLineError("'' 0 x"), "Invalid file-name at line 0: ''");
  EXPECT_EQ(FileLineError("'a' 0 x"), "Invalid empty file size at line 0, for file 'a'");
}

TEST(GameManifest, TheTextLosesItsCarriageReturnsAndIsViewed) {
  std::string text = "\r" + kSmallest;
  const GameUpdateManifest manifest = ReadGameUpdateManifest(text);
  EXPECT_EQ(text, kSmallest);
  EXPECT_EQ(manifest.directories[0].data(), text.data() + text.find("bin"));
  EXPECT_EQ(manifest.files[0].digest.data(), text.data() + text.size() - 32);
}

TEST(GameManifest, ADirectoryLineIsNotChecked) {
  std::string text =
      "GameUpdate\nFileVersion: 1\nDirectories: 2\n..\\up\nFiles:\nFiles:\n" + kFileLine;
  const GameUpdateManifest manifest = ReadGameUpdateManifest(text);
  EXPECT_EQ(manifest.directories, (std::vector<std::string_view>{"..\\up", "Files:"}));
}

TEST(GameManifest, FewerThanFourLinesAreTooFew) {
  EXPECT_EQ(ErrorOf(""), "Invalid amount of lines (0, at least 4 expected).");
  EXPECT_EQ(ErrorOf("a\n\n\nb\r\n\r\nc\n"), "Invalid amount of lines (3, at least 4 expected).");
}

TEST(GameManifest, TheHeaderIsExact) {
  const auto headerError = [](const std::string& header) {
    return ErrorOf(header + "\nFileVersion: 1\nDirectories: 1\nbin");
  };
  EXPECT_EQ(headerError("Gameupdate"), "Invalid header 'Gameupdate'. (is expecting 'GameUpdate')");
  EXPECT_EQ(headerError("GameUpdate "),
            "Invalid header 'GameUpdate '. (is expecting 'GameUpdate')");
  EXPECT_EQ(headerError("GameUpdat"), "Invalid header 'GameUpdat'. (is expecting 'GameUpdate')");
  EXPECT_EQ(headerError("\xEF\xBB\xBFGameUpdate"),
            "Invalid header '\xEF\xBB\xBFGameUpdate'. (is expecting 'GameUpdate')");
}

TEST(GameManifest, TheFileVersionsKeyIsExact) {
  const auto keyError = [](const std::string& line) {
    return ErrorOf("GameUpdate\n" + line + "\nDirectories: 1\nbin");
  };
  EXPECT_EQ(keyError("fileVersion: 1"),
            "Invalid file-version name 'fileVersion'. (is expecting 'FileVersion')");
  EXPECT_EQ(keyError("FileVersion : 1"),
            "Invalid file-version name 'FileVersion '. (is expecting 'FileVersion')");
  EXPECT_EQ(keyError("FileVersion:1"),
            "Invalid file-version name 'FileVersion:1'. (is expecting 'FileVersion')");
}

TEST(GameManifest, AnotherFileVersionIsReportedByItsKey) {
  for (const std::string version : {"2", "0", "x", "", " 1", "-1", "4294967298"}) {
    EXPECT_EQ(ErrorOf("GameUpdate\nFileVersion: " + version + "\nDirectories: 1\nbin"),
              "Invalid file-version FileVersion. (supported: 1)")
        << version;
  }
}

TEST(GameManifest, TheFileVersionIsReadLeniently) {
  for (const std::string version : {"1", "01", "1.5", "1: 2", "4294967297", "-4294967295"}) {
    ExpectSmallest("GameUpdate\nFileVersion: " + version + "\nDirectories: 1\nbin\nFiles:\n" +
                   kFileLine);
  }
}

TEST(GameManifest, TheDirectoriesKeyIsExact) {
  const auto keyError = [](const std::string& line) {
    return ErrorOf("GameUpdate\nFileVersion: 1\n" + line + "\nbin");
  };
  EXPECT_EQ(keyError("directories: 1"),
            "Invalid directory-name 'directories'. (expected: 'Directories')");
  EXPECT_EQ(keyError("Directories:1"),
            "Invalid directory-name 'Directories:1'. (expected: 'Directories')");
}

TEST(GameManifest, NoDirectoriesAreRefused) {
  for (const std::string count : {"0", "x", "", " 1", "4294967296", "-"}) {
    EXPECT_EQ(ErrorOf("GameUpdate\nFileVersion: 1\nDirectories: " + count + "\nbin"),
              "No directories. Abort update to prevent corruption.")
        << count;
  }
}

TEST(GameManifest, MoreDirectoriesThanLinesAreRefused) {
  EXPECT_EQ(ErrorOf("GameUpdate\nFileVersion: 1\nDirectories: 2\nbin"),
            "Less assumed directory-entries than lines (2, can be a maximum of 1).");
  EXPECT_EQ(ErrorOf("GameUpdate\nFileVersion: 1\nDirectories: 4\nbin\nFiles:\n" + kFileLine),
            "Less assumed directory-entries than lines (4, can be a maximum of 3).");
}

TEST(GameManifest, ADirectoryCountThatWrapsIsRefused) {
  for (const std::string count : {"-1", "4294967295"}) {
    EXPECT_EQ(ErrorOf("GameUpdate\nFileVersion: 1\nDirectories: " + count + "\nbin"),
              "Less assumed directory-entries than lines (4294967295, can be a maximum of 1).");
  }
}

TEST(GameManifest, SomethingFollowsTheDirectories) {
  EXPECT_EQ(ErrorOf("GameUpdate\nFileVersion: 1\nDirectories: 1\nbin"),
            "No lines after directory-entries.");
  EXPECT_EQ(ErrorOf("GameUpdate\nFileVersion: 1\nDirectories: 3\nbin\nFiles:\n" + kFileLine),
            "No lines after directory-entries.");
}

TEST(GameManifest, TheFilesHeaderIsExact) {
  const auto headerError = [](const std::string& line) {
    return ErrorOf("GameUpdate\nFileVersion: 1\nDirectories: 1\nbin\n" + line + "\n" + kFileLine);
  };
  EXPECT_EQ(headerError("Files"), "Invalid file-header 'Files' (is expecting 'Files:')");
  EXPECT_EQ(headerError("files:"), "Invalid file-header 'files:' (is expecting 'Files:')");
  EXPECT_EQ(headerError("Files: "), "Invalid file-header 'Files: ' (is expecting 'Files:')");
}

TEST(GameManifest, NoFilesAreRefused) {
  const std::string message = "No files present. Aborting update to prevent corruption.";
  EXPECT_EQ(FileLineError(""), message);
  EXPECT_EQ(FileLineError("\n\r\n\n"), message);
}

TEST(GameManifest, AFileNameStandsBetweenTwoQuotes) {
  const std::string message = "Invalid file-name at line 0: ''";
  EXPECT_EQ(FileLineError("a.txt 5 " + kDigest), message);
  EXPECT_EQ(FileLineError("'a.txt 5 " + kDigest), message);
  EXPECT_EQ(FileLineError("'' 5 " + kDigest), message);
  EXPECT_EQ(FileLineError("'"), message);
  EXPECT_EQ(FileLineError("''"), message);
}

TEST(GameManifest, WhatStandsBeforeTheNameIsIgnored) {
  EXPECT_TRUE(OnlyEntry("5 files: " + kFileLine).name == L"bin/Game.dll");
}

TEST(GameManifest, ANameMayHoldBlanksAndBackslashes) {
  EXPECT_TRUE(OnlyEntry("' a b\\c ' 5 " + kDigest).name == L" a b\\c ");
}

TEST(GameManifest, NamesAreWidenedBySignAndNotDecoded) {
  EXPECT_TRUE(OnlyEntry("'a\xC3\xA9\x7F' 5 " + kDigest).name == L"a\xFFC3\xFFA9\x7F");
  EXPECT_TRUE(WidenName("\x80\xFF") == L"\xFF80\xFFFF");
}

TEST(GameManifest, TheBlankAfterTheNameIsOptional) {
  EXPECT_EQ(OnlyEntry("'a'5 " + kDigest).size, 5U);
}

TEST(GameManifest, AnEmptyFileIsRefused) {
  for (const std::string size : {"0", "x", "-0", "+5", "18446744073709551616"}) {
    EXPECT_EQ(FileLineError("'a b.txt' " + size + " " + kDigest),
              "Invalid empty file size at line 0, for file 'a b.txt'")
        << size;
  }
  EXPECT_EQ(FileLineError("'a'"), "Invalid empty file size at line 0, for file 'a'");
  EXPECT_EQ(FileLineError("'a' "), "Invalid empty file size at line 0, for file 'a'");
}

TEST(GameManifest, TwoBlanksBeforeTheSizeLeaveItEmpty) {
  EXPECT_EQ(FileLineError("'a b.txt'  12 d41d8cd98f00b204e9800998ecf8427e"),
            "Invalid empty file size at line 0, for file 'a b.txt'");
}

TEST(GameManifest, ANegativeSizeIsAVeryLargeOne) {
  EXPECT_EQ(OnlyEntry("'a' -5 " + kDigest).size, 18446744073709551611ULL);
}

TEST(GameManifest, ASizeHasSixtyFourBitsAndIsReadLeniently) {
  EXPECT_EQ(OnlyEntry("'a' 5000000000 " + kDigest).size, 5000000000ULL);
  EXPECT_EQ(OnlyEntry("'a' 18446744073709551617 " + kDigest).size, 1U);
  EXPECT_EQ(OnlyEntry("'a' 12kB " + kDigest).size, 12U);
}

TEST(GameManifest, ADigestHasThirtyTwoCharacters) {
  const std::string shorter = kDigest.substr(1);
  EXPECT_EQ(FileLineError("'a' 5 " + shorter),
            "Invalid hash '" + shorter + "' with length 31 at line 0 for file 'a'.");
  EXPECT_EQ(FileLineError("'a' 5 " + kDigest + "0"),
            "Invalid hash '" + kDigest + "0' with length 33 at line 0 for file 'a'.");
  EXPECT_EQ(FileLineError("'a' 5 " + kDigest + " "),
            "Invalid hash '" + kDigest + " ' with length 33 at line 0 for file 'a'.");
  EXPECT_EQ(FileLineError("'a' 5  " + kDigest),
            "Invalid hash ' " + kDigest + "' with length 33 at line 0 for file 'a'.");
  EXPECT_EQ(FileLineError("'a' 5"), "Invalid hash '' with length 0 at line 0 for file 'a'.");
}

TEST(GameManifest, TheCharactersOfADigestAreNotChecked) {
  const std::string odd = "UPPER CASE and ' quotes, 32 long";
  ASSERT_EQ(odd.size(), 32U);
  EXPECT_EQ(OnlyEntry("'a' 5 " + odd).digest, odd);
}

TEST(GameManifest, FileLinesAreCountedFromZero) {
  const std::string two = kFileLine + "\n\n" + kFileLine + "\n";
  EXPECT_EQ(FileLineError(two + "'' 5 " + kDigest), "Invalid file-name at line 2: ''");
  EXPECT_EQ(FileLineError(two + "'a' 0 " + kDigest),
            "Invalid empty file size at line 2, for file 'a'");
  EXPECT_EQ(FileLineError(two + "'a' 5 x"),
            "Invalid hash 'x' with length 1 at line 2 for file 'a'.");
}

TEST(GameManifest, TheFirstFaultyFileLineIsReported) {
  EXPECT_EQ(FileLineError(kFileLine + "\n'a' 0 x\n''"),
            "Invalid empty file size at line 1, for file 'a'");
}

/// The error of a manifest with this one file line, by the rules in their plainest form.
std::string ErrorByTheRules(const std::string& line) {
  const std::size_t open = line.find('\'');
  const std::size_t close = open == std::string::npos ? open : line.find('\'', open + 1);
  if (close == std::string::npos || close == open + 1) return "Invalid file-name at line 0: ''";
  const std::string name = line.substr(open + 1, close - open - 1);
  std::string rest = line.substr(close + 1);
  if (!rest.empty() && rest[0] == ' ') rest.erase(0, 1);
  const std::size_t blank = rest.find(' ');
  const std::string digest = blank == std::string::npos ? "" : rest.substr(blank + 1);
  std::string sizeText = rest.substr(0, blank);
  if (!sizeText.empty() && sizeText[0] == '-') sizeText.erase(0, 1);
  std::uint64_t size = 0;
  for (std::size_t i = 0; i < sizeText.size() && sizeText[i] >= '0' && sizeText[i] <= '9'; ++i) {
    size = size * 10 + static_cast<std::uint64_t>(sizeText[i] - '0');
  }
  if (size == 0) return "Invalid empty file size at line 0, for file '" + name + "'";
  if (digest.size() == 32) return "";
  return "Invalid hash '" + digest + "' with length " + std::to_string(digest.size()) +
         " at line 0 for file '" + name + "'.";
}

TEST(GameManifest, EveryMixtureOfRightAndWrongPartsIsReadByTheRules) {
  const std::string twenty = "18446744073709551616";  // 2^64, which wraps to 0.
  std::vector<std::string> sizes = {"",  "0",  "00", "01",  "-1",  "-0",
                                    "x", "7x", "x7", "7 7", twenty};
  sizes.push_back(std::string(17, '7') + " " + std::string(14, '7'));
  for (std::size_t digits = 1; digits < 20; ++digits) {
    sizes.push_back(twenty.substr(0, digits));
    sizes.push_back(std::string(digits, '0') + "5");
  }
  std::size_t right = 0;
  std::size_t wrong = 0;
  for (const std::string before : {"", "x", "xx", " ", "'", "''"}) {
    for (const std::string name :
         {"", "a", "a b", "bin/fifteen.dll", "bin/a name of more steps.dll",
          " 7 0123456789abcdef0123456789abcdef"}) {
      for (const std::string between : {"", "'", "' ", "'  ", " ", "''", "'x"}) {
        for (const std::string& size : sizes) {
          for (const std::string digest :
               {"", " ", "  ", "0123456789abcdef0123456789abcde",
                " 0123456789abcdef0123456789abcde", " 0123456789abcdef0123456789abcdef",
                " 0123456789abcdef0123456789abcdef0", "  0123456789abcdef0123456789abcde",
                " 0123456789abcdef 123456789abcde ", " '123456789abcdef0123456789abcdef",
                "0123456789abcdef0123456789abcdef"}) {
            const std::string line = before + "'" + name + between + size + digest;
            const std::string expected = ErrorByTheRules(line);
            ++(expected.empty() ? right : wrong);
            const std::string text =
                "GameUpdate\nFileVersion: 1\nDirectories: 1\nbin\nFiles:\n" + line;
            if (expected.empty()) {
              std::string read = text;
              EXPECT_NO_THROW((void)ReadGameUpdateManifest(read)) << line;
            } else {
              EXPECT_EQ(ErrorOf(text), expected) << line;
            }
          }
        }
      }
    }
  }
  EXPECT_GT(right, 3000U);
  EXPECT_GT(wrong, 30000U);
}

TEST(GameManifest, BracesInTheTextAreNoPlaceholders) {
  EXPECT_EQ(FileLineError("'{}{1}' 0 x"), "Invalid empty file size at line 0, for file '{}{1}'");
}

}  // namespace
}  // namespace ve::sdk
