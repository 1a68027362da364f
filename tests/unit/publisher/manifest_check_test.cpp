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
    EXPECT_TRUE(diagnostic.subject.starts_with("place: "));
    EXPECT_FALSE(diagnostic.hint.empty());
    rules.push_back(Format("{}: {}", diagnostic.subject.substr(7), diagnostic.message));
  }
  return rules;
}

/// What is found, except for the missing game, which these manifests do not list.
Diagnostics Check(const sdk::GameUpdateManifest& manifest,
                  std::wstring_view launcher = L"Launcher.exe") {
  Diagnostics diagnostics;
  CheckManifest(manifest, "place", launcher, diagnostics);
  EXPECT_EQ(diagnostics.errors.back().subject, "place: bin/Velmorant Player.exe");
  diagnostics.errors.pop_back();
  return diagnostics;
}

std::vector<std::string> Refusals(const sdk::GameUpdateManifest& manifest) {
  const Diagnostics diagnostics = Check(manifest);
  EXPECT_THAT(Rules(diagnostics.warnings), IsEmpty());
  return Rules(diagnostics.errors);
}

TEST(ManifestCheck, TheGameMustBeListedInAnyCase) {
  for (const wchar_t* name : {L"bin/Velmorant Player.exe", L"bin/velmorant player.EXE"}) {
    Diagnostics diagnostics;
    CheckManifest(Manifest({"bin"}, {name}), "place", L"Launcher.exe", diagnostics);
    EXPECT_THAT(Rules(diagnostics.errors), IsEmpty());
  }
}

TEST(ManifestCheck, ASoundManifestPasses) {
  EXPECT_THAT(Refusals(Manifest({"bin", "bin/data", "bin/data/deep"},
                                {L"a", L"bin/a", L"bin/data/deep/a"})),
              IsEmpty());
}

TEST(ManifestCheck, EveryDirectoryWithoutItsParentIsTold) {
  EXPECT_THAT(Refusals(Manifest({"a/b/c", "a/b", "x/y"}, {L"f"})),
              ElementsAre("a/b/c: its parent directory a/b is not listed before it",
                          "a/b: its parent directory a is not listed before it",
                          "x/y: its parent directory x is not listed before it"));
}

TEST(ManifestCheck, AParentInAnotherCaseIsTheSameDirectory) {
  EXPECT_THAT(Refusals(Manifest({"Bin", "bin/data"}, {L"Bin/data/f"})), IsEmpty());
}

TEST(ManifestCheck, AFileSpellsItsDirectoryAsTheFirstLineThatMakesIt) {
  EXPECT_THAT(Refusals(Manifest({"Bin", "bin/data"}, {L"bin/data/f", L"bin/g"})),
              ElementsAre("bin/data/f: spells the directory Bin/data differently",
                          "bin/g: spells the directory Bin differently"));
}

TEST(ManifestCheck, AnUnlistedDirectoryIsToldOnceWithTheNumberOfItsFiles) {
  EXPECT_THAT(Refusals(Manifest({"bin"}, {L"data/a", L"bin/x", L"data/b", L"bin/deep/c"})),
              ElementsAre("bin/deep: is not listed, but 1 of the files are in it",
                          "data: is not listed, but 2 of the files are in it"));
}

TEST(ManifestCheck, DuplicatesAreTold) {
  EXPECT_THAT(Refusals(Manifest({"bin"}, {L"bin/a", L"bin/A", L"bin/a", L"BIN"})),
              ElementsAre("bin/A: differs from bin/a only in case", "bin/a: is listed twice",
                          "BIN: is listed as a directory and as a file"));
}

TEST(ManifestCheck, ADirectoryListedTwiceIsNoHarm) {
  const Diagnostics diagnostics = Check(Manifest({"bin", "bin", "BIN"}, {L"bin/a"}));
  EXPECT_THAT(Rules(diagnostics.errors), IsEmpty());
  EXPECT_THAT(Rules(diagnostics.warnings),
              ElementsAre("bin: is listed twice", "BIN: differs from bin only in case"));
}

TEST(ManifestCheck, DigestsAreInLowercaseHexadecimal) {
  sdk::GameUpdateManifest manifest = Manifest({"bin"}, {L"a", L"b", L"c"});
  manifest.files[0] = Entry(L"a", 1, "0123456789Abcdef0123456789abcdef");
  manifest.files[2] = Entry(L"c", 1, "0123456789abcdeg0123456789abcdef");
  EXPECT_THAT(Refusals(manifest),
              ElementsAre("a: has the digest 0123456789Abcdef0123456789abcdef, which is not in "
                          "lowercase hexadecimal digits",
                          "c: has the digest 0123456789abcdeg0123456789abcdef, which is not in "
                          "lowercase hexadecimal digits"));
}

TEST(ManifestCheck, FilesStayBelowFourGibibytes) {
  sdk::GameUpdateManifest manifest = Manifest({"bin"}, {L"a", L"b"});
  manifest.files[0] = Entry(L"a", 0xFFFFFFFF);
  manifest.files[1] = Entry(L"b", 0x100000000);
  EXPECT_THAT(Refusals(manifest), ElementsAre("b: has 4294967296 bytes"));
}

TEST(ManifestCheck, NamesFollowTheRulesOfABuild) {
  const std::wstring longest(235, L'x');
  const std::string address = ": the Launcher does not encode %, # and ? in URLs";
  EXPECT_THAT(
      Refusals(Manifest({"bin", "bin/50%", "aux"},
                        {longest, longest + L"x", L"bin/100%.txt", L"a#b", L"bin/nul.txt",
                         L"launcher.exe", L"_OLD.exe", L"bin\\a:b"})),
      ElementsAre(
          "bin/50%" + address, "aux: 'aux' is a reserved device name on Windows",
          std::string(236, 'x') +
              ": its path in the staging folder has 256 characters; the Launcher opens at most 255",
          "bin/100%.txt" + address, "a#b" + address,
          "bin/nul.txt: 'nul.txt' is a reserved device name on Windows",
          "launcher.exe: the Launcher cannot replace itself while it runs",
          "_OLD.exe: the Launcher deletes this file at every start",
          "bin\\a:b: is written with a backslash"));
}

TEST(ManifestCheck, TheLaunchersFileIsTheOneOfThatName) {
  const Diagnostics diagnostics =
      Check(Manifest({"bin"}, {L"Launcher.exe", L"Start.exe"}), L"start.exe");
  EXPECT_THAT(Rules(diagnostics.errors),
              ElementsAre("Start.exe: the Launcher cannot replace itself while it runs"));
}

TEST(ManifestCheck, NamesThatTheLauncherOrTheServerUsesAreTold) {
  const std::string staging = ": the Launcher stages updates in Intermediate\\Update";
  const std::string updater = ": this folder belongs to the Launcher";
  const std::string taken = ": publish writes a file of this name to the server";
  EXPECT_THAT(Refusals(Manifest({"intermediate", "intermediate/update", "Updater"},
                                {L"intermediate/update/a", L"gameversion.vpak",
                                 L"GAME_UPDATE.manifest", L"Updater/x", L"UpdaterX"})),
              ElementsAre("intermediate/update" + staging, "Updater" + updater,
                          "intermediate/update/a" + staging, "gameversion.vpak" + taken,
                          "GAME_UPDATE.manifest" + taken, "Updater/x" + updater));
}

TEST(ManifestCheck, PathsThatLeadOutsideAreReportedAsThatAlone) {
  EXPECT_THAT(
      Refusals(Manifest({"bin", "../x", "/y"}, {L"bin/../a", L"//host/b", L"c//d"})),
      ElementsAre("../x: leads outside the game's folder", "/y: leads outside the game's folder",
                  "bin/../a: leads outside the game's folder",
                  "//host/b: leads outside the game's folder", "c//d: has an empty part"));
}

TEST(ManifestCheck, NamesAreWrittenWithSlashesAndInAscii) {
  EXPECT_THAT(Refusals(Manifest({"bin"}, {L"bin\\a"})),
              ElementsAre("bin\\a: is written with a backslash"));
  const std::vector<std::string> beyond = Refusals(Manifest({"bin"}, {L"bin/\xFFE9"}));
  ASSERT_EQ(beyond.size(), 1U);
  EXPECT_TRUE(beyond[0].ends_with("control characters, which the Launcher cannot decode"));
}

}  // namespace
}  // namespace ve::publish
