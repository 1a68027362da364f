#include "publisher/channel/manifest_check.h"

#include <algorithm>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <string_view>
#include <vector>

#include "core/format.h"

namespace ve::publish {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr std::string_view kDigest = "0123456789abcdef0123456789abcdef";

sdk::FileEntry Entry(std::wstring_view name, std::uint64_t size = 1,
                     std::string_view digest = kDigest) {
  return {std::wstring(name), size, digest};
}

sdk::GameUpdateManifest Manifest(std::vector<std::string_view> directories,
                                 const std::vector<std::wstring>& files) {
  sdk::GameUpdateManifest manifest{std::move(directories), {}};
  for (const std::wstring& name : files) manifest.files.push_back(Entry(name));
  return manifest;
}

std::vector<std::string> Rules(const std::vector<Diagnostic>& diagnostics) {
  std::vector<std::string> rules;
  for (const Diagnostic& diagnostic : diagnostics) {
    EXPECT_EQ(diagnostic.subject, "place");
    EXPECT_FALSE(diagnostic.hint.empty());
    rules.push_back(diagnostic.message);
  }
  return rules;
}

std::vector<std::string> Refusals(const sdk::GameUpdateManifest& manifest) {
  Diagnostics diagnostics;
  CheckManifest(manifest, "place", L"Launcher.exe", diagnostics);
  EXPECT_THAT(Rules(diagnostics.warnings), IsEmpty());
  return Rules(diagnostics.errors);
}

TEST(ManifestCheck, ASoundManifestPasses) {
  EXPECT_THAT(Refusals(Manifest({"bin", "bin/data", "bin/data/deep"},
                                {L"a", L"bin/a", L"bin/data/deep/a"})),
              IsEmpty());
}

TEST(ManifestCheck, EveryDirectoryWithoutItsParentIsTold) {
  EXPECT_THAT(Refusals(Manifest({"a/b/c", "a/b", "x/y"}, {L"f"})),
              ElementsAre("the directory 'a/b/c' is listed before its parent 'a/b'",
                          "the directory 'a/b' is listed without its parent 'a'",
                          "the directory 'x/y' is listed without its parent 'x'"));
}

TEST(ManifestCheck, AParentInAnotherCaseIsTheSameDirectory) {
  EXPECT_THAT(Refusals(Manifest({"Bin", "bin/data"}, {L"Bin/data/f"})), IsEmpty());
}

TEST(ManifestCheck, AFileSpellsItsDirectoryAsTheFirstLineThatMakesIt) {
  EXPECT_THAT(Refusals(Manifest({"Bin", "bin/data"}, {L"bin/data/f", L"bin/g"})),
              ElementsAre("'bin/data/f' spells the directory 'Bin/data' differently",
                          "'bin/g' spells the directory 'Bin' differently"));
}

TEST(ManifestCheck, AnUnlistedDirectoryIsToldOnceWithTheNumberOfItsFiles) {
  EXPECT_THAT(Refusals(Manifest({"bin"}, {L"data/a", L"bin/x", L"data/b", L"bin/deep/c"})),
              ElementsAre("the directory 'bin/deep' is not listed, but 1 of the files are in it",
                          "the directory 'data' is not listed, but 2 of the files are in it"));
}

TEST(ManifestCheck, DuplicatesAreTold) {
  EXPECT_THAT(Refusals(Manifest({"bin"}, {L"bin/a", L"bin/A", L"bin/a", L"BIN"})),
              ElementsAre("'bin/a' and 'bin/A' differ only in case", "'bin/a' is listed twice",
                          "'BIN' is listed as a directory and as a file"));
}

TEST(ManifestCheck, ADirectoryListedTwiceIsNoHarm) {
  Diagnostics diagnostics;
  CheckManifest(Manifest({"bin", "bin", "BIN"}, {L"bin/a"}), "place", L"Launcher.exe", diagnostics);
  EXPECT_THAT(Rules(diagnostics.errors), IsEmpty());
  EXPECT_THAT(Rules(diagnostics.warnings),
              ElementsAre("the directory 'bin' is listed twice",
                          "the directories 'bin' and 'BIN' differ only in case"));
}

TEST(ManifestCheck, DigestsAreInLowercaseHexadecimal) {
  sdk::GameUpdateManifest manifest = Manifest({"bin"}, {L"a", L"b", L"c"});
  manifest.files[0] = Entry(L"a", 1, "0123456789Abcdef0123456789abcdef");
  manifest.files[2] = Entry(L"c", 1, "0123456789abcdeg0123456789abcdef");
  EXPECT_THAT(Refusals(manifest),
              ElementsAre("'a' has the digest '0123456789Abcdef0123456789abcdef', which is not in "
                          "lowercase hexadecimal digits",
                          "'c' has the digest '0123456789abcdeg0123456789abcdef', which is not in "
                          "lowercase hexadecimal digits"));
}

TEST(ManifestCheck, FilesStayBelowFourGibibytes) {
  sdk::GameUpdateManifest manifest = Manifest({"bin"}, {L"a", L"b"});
  manifest.files[0] = Entry(L"a", 0xFFFFFFFF);
  manifest.files[1] = Entry(L"b", 0x100000000);
  EXPECT_THAT(Refusals(manifest), ElementsAre("'b' has 4294967296 bytes"));
}

TEST(ManifestCheck, NamesFollowTheRulesOfABuild) {
  const std::wstring longest(235, L'x');
  const std::string address =
      ": the Launcher appends names to addresses as they stand, where %, # and ? have meanings of "
      "their own";
  EXPECT_THAT(
      Refusals(Manifest({"bin", "bin/50%", "aux"},
                        {longest, longest + L"x", L"bin/100%.txt", L"a#b", L"bin/nul.txt",
                         L"launcher.exe", L"_OLD.exe", L"bin/x.publishing", L"bin\\a:b"})),
      ElementsAre(
          "'bin/50%'" + address, "'aux': Windows takes 'aux' for a device",
          "'" + std::string(236, 'x') +
              "': in the staging folder its path has 256 characters, and the Launcher opens none "
              "of more than 255",
          "'bin/100%.txt'" + address, "'a#b'" + address,
          "'bin/nul.txt': Windows takes 'nul.txt' for a device",
          "'launcher.exe': the Launcher cannot replace itself while it runs",
          "'_OLD.exe': the Launcher deletes this file at every start",
          "'bin/x.publishing': names ending in .publishing are this tool's own, for files that it "
          "is writing",
          "'bin/a:b': Windows allows none of \" * : < > | \\ in a name",
          "'bin\\a:b' is written with a backslash"));
}

TEST(ManifestCheck, TheLaunchersFileIsTheOneOfThatName) {
  Diagnostics diagnostics;
  CheckManifest(Manifest({"bin"}, {L"Launcher.exe", L"Start.exe"}), "place", L"start.exe",
                diagnostics);
  EXPECT_THAT(Rules(diagnostics.errors),
              ElementsAre("'Start.exe': the Launcher cannot replace itself while it runs"));
}

TEST(ManifestCheck, NamesThatNotEveryServerTakesAreWarnedOf) {
  Diagnostics diagnostics;
  CheckManifest(Manifest({"bin"}, {L"bin/a+b"}), "place", L"Launcher.exe", diagnostics);
  EXPECT_THAT(Rules(diagnostics.errors), IsEmpty());
  EXPECT_THAT(Rules(diagnostics.warnings),
              ElementsAre("'bin/a+b': the Launcher appends names to addresses as they stand, and "
                          "not every server takes + [ ] { } ^ ` there"));
}

TEST(ManifestCheck, NamesThatTheLauncherOrTheServerUsesAreTold) {
  EXPECT_THAT(Refusals(Manifest({"intermediate", "intermediate/update", "Updater"},
                                {L"intermediate/update/a", L"gameversion.vpak",
                                 L"GAME_UPDATE.manifest", L"Updater/x", L"UpdaterX"})),
              ElementsAre("'intermediate/update': the Launcher stages updates in "
                          "Intermediate\\Update",
                          "'Updater': the folder is the Launcher's own, on the server and on a "
                          "player's disk",
                          "'gameversion.vpak': the server has a file of its own by this name",
                          "'GAME_UPDATE.manifest': the server has a file of its own by this name",
                          "'intermediate/update/a' lies in the staging folder",
                          "'Updater/x' stands where the server has files of its own"));
}

TEST(ManifestCheck, NamesAreWrittenWithSlashesAndInAscii) {
  EXPECT_THAT(Refusals(Manifest({"bin"}, {L"bin\\a"})),
              ElementsAre("'bin\\a' is written with a backslash"));
  const std::vector<std::string> beyond = Refusals(Manifest({"bin"}, {L"bin/\xFFE9"}));
  ASSERT_EQ(beyond.size(), 1U);
  EXPECT_TRUE(beyond[0].ends_with("printable ASCII: the Launcher decodes no others"));
}

}  // namespace
}  // namespace ve::publish
