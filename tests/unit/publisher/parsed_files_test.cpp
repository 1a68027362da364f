#include "publisher/channel/parsed_files.h"

#include <gtest/gtest.h>
#include <string>
#include <variant>

#include "publisher/channel/archive_records.h"

namespace ve::publish {
namespace {

template <class Content>
std::string MessageOf(const std::variant<Content, ParseError>& parsed) {
  if (const auto* error = std::get_if<ParseError>(&parsed)) return error->message;
  return "no error";
}

class ParsedRecords : public testing::TestWithParam<file::ArchiveMode> {};
INSTANTIATE_TEST_SUITE_P(Modes, ParsedRecords,
                         testing::Values(file::ArchiveMode::kPlain, file::ArchiveMode::kChecked));

TEST_P(ParsedRecords, SettingsHaveTheirRecordsSizeWhateverFollows) {
  const std::string bytes = SettingsArchive(L"u", L"demo", GetParam());
  const auto parsed = ParseSettings(bytes + "more");
  ASSERT_TRUE(std::holds_alternative<SettingsFile>(parsed)) << MessageOf(parsed);
  const auto& settings = std::get<SettingsFile>(parsed);
  EXPECT_EQ(settings.url, "u");
  EXPECT_EQ(settings.channel, "demo");
  EXPECT_EQ(settings.recordSize, bytes.size());
  EXPECT_EQ(ModeOf(bytes), GetParam());
}

TEST_P(ParsedRecords, AVersionHasItsRecordsSizeAlsoWhereTheFileBreaksOff) {
  const std::string bytes = VersionArchive({{1, 2, 3, 4}}, GetParam());
  for (const std::size_t missing : {0U, 1U, 16U}) {
    const auto parsed = ParseVersionFile(bytes.substr(0, bytes.size() - missing));
    ASSERT_TRUE(std::holds_alternative<VersionFile>(parsed)) << MessageOf(parsed);
    EXPECT_EQ(std::get<VersionFile>(parsed).recordSize, bytes.size());
  }
}

TEST(ParsedFiles, AnErrorIsTheReadersMessage) {
  std::string text;
  EXPECT_EQ(MessageOf(ParseSettings("")), "Invalid header 0 for binary file.");
  EXPECT_EQ(MessageOf(ParseSettings(SettingsArchive(L"", L"demo"))),
            "Empty URL in UpdaterData.vpak.");
  EXPECT_EQ(MessageOf(ParseVersionFile(SettingsArchive(L"u", L"demo"))),
            "Remove game-version file had unexpected header 'UpdaterData'.");
  EXPECT_EQ(MessageOf(ParseGameManifest("GameUpdate\nFileVersion: 2\na\nb", text)),
            "Invalid file-version FileVersion. (supported: 1)");
  EXPECT_EQ(MessageOf(ParseUpdaterManifest("Velmorant Updater\n")),
            "Invalid number of lines in updater-manifest file. Expecting at least 3, was only 1.");
}

TEST(ParsedFiles, AnUpdaterManifestIsReadWhateverVersionItOffers) {
  EXPECT_EQ(std::get<std::uint32_t>(
                ParseUpdaterManifest("Velmorant Updater\nFileVersion: 1\nVersion: 0")),
            0U);
}

}  // namespace
}  // namespace ve::publish
