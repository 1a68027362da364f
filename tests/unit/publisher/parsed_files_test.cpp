#include "publisher/parsed_files.h"

#include <gtest/gtest.h>
#include <string>
#include <variant>

#include "archive/archive_writer.h"

namespace ve::publish {
namespace {

std::string Settings(const std::wstring& url, const std::wstring& channel) {
  file::ArchiveWriter writer(file::ArchiveMode::kPlain);
  writer.WriteString("UpdaterData");
  writer.WriteU32(1);
  writer.WriteWideString(url);
  writer.WriteWideString(channel);
  return writer.Bytes();
}

constexpr std::size_t kUrlAt = 9 + 4 + 11 + 4 + 4;

template <class Content>
ParseError ParseErrorOf(const std::variant<Content, ParseError>& judged) {
  if (const auto* error = std::get_if<ParseError>(&judged)) return *error;
  ADD_FAILURE() << "not rejected";
  return {};
}

TEST(ParsedFiles, SettingsTellWhereTheirRecordEnds) {
  const std::string bytes = Settings(L"u", L"demo");
  const auto judged = ParseSettings(bytes + "more");
  ASSERT_TRUE(std::holds_alternative<SettingsFile>(judged));
  const auto& settings = std::get<SettingsFile>(judged);
  EXPECT_EQ(settings.url, "u");
  EXPECT_EQ(settings.channel, "demo");
  EXPECT_EQ(settings.archive.end, bytes.size());
}

TEST(ParsedFiles, ARejectedArchiveTellsWhereTheFaultBegins) {
  EXPECT_EQ(ParseErrorOf(ParseSettings("")).offset, 0U);
  EXPECT_EQ(ParseErrorOf(ParseSettings("\xA1\xFC\x26\x61")).offset, 4U);
  EXPECT_EQ(ParseErrorOf(ParseSettings(Settings(L"", L"demo"))).offset, kUrlAt);
  EXPECT_EQ(ParseErrorOf(ParseSettings(Settings(L"url", L"x"))).offset, kUrlAt + 6 + 4);
  EXPECT_EQ(FormatLocation(ParseErrorOf(ParseSettings(""))), "at byte 0");
}

TEST(ParsedFiles, AVersionThatBreaksOffIsNotComplete) {
  file::ArchiveWriter writer(file::ArchiveMode::kPlain);
  writer.WriteString("GameVersion");
  writer.WriteU32(1);
  const std::string head = writer.Bytes();
  const auto complete = [&head](std::size_t size) {
    return std::get<VersionFile>(ParseVersionFile(head + std::string(size, '\1'))).complete;
  };
  EXPECT_FALSE(complete(0));
  EXPECT_FALSE(complete(15));
  EXPECT_TRUE(complete(16));
  EXPECT_TRUE(complete(17));
}

TEST(ParsedFiles, ARejectedManifestTellsTheLineOfTheFile) {
  std::string text;
  const ParseError error =
      ParseErrorOf(ParseGameManifest("\r\n\r\nGameUpdate\r\n\nFile\rVersion: 2\na\nb", text));
  EXPECT_EQ(error.message, "Invalid file-version FileVersion. (supported: 1)");
  EXPECT_EQ(error.line, 5U);
  EXPECT_EQ(error.offset, 17U);
  EXPECT_EQ(FormatLocation(error), "in line 5, at byte 17");
}

TEST(ParsedFiles, AManifestThatEndsTooEarlyIsRejectedAtItsEnd) {
  const std::string content = "Velmorant Updater\r\nFileVersion: 1\r\n";
  const ParseError error = ParseErrorOf(ParseUpdaterManifest(content));
  EXPECT_EQ(error.offset, content.size());
  EXPECT_EQ(error.line, 3U);
}

TEST(ParsedFiles, AnyLauncherVersionIsRead) {
  EXPECT_EQ(std::get<std::uint32_t>(
                ParseUpdaterManifest("Velmorant Updater\nFileVersion: 1\nVersion: 0")),
            0U);
}

}  // namespace
}  // namespace ve::publish
