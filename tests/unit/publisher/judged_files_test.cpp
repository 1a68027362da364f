#include "publisher/judged_files.h"

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
Rejection RejectionOf(const std::variant<Content, Rejection>& judged) {
  if (const auto* rejection = std::get_if<Rejection>(&judged)) return *rejection;
  ADD_FAILURE() << "not rejected";
  return {};
}

TEST(JudgedFiles, SettingsTellWhereTheirRecordEnds) {
  const std::string bytes = Settings(L"u", L"demo");
  const auto judged = JudgeSettings(bytes + "more");
  ASSERT_TRUE(std::holds_alternative<SettingsFile>(judged));
  const auto& settings = std::get<SettingsFile>(judged);
  EXPECT_EQ(settings.url, "u");
  EXPECT_EQ(settings.channel, "demo");
  EXPECT_EQ(settings.archive.end, bytes.size());
}

TEST(JudgedFiles, ARejectedArchiveTellsWhereTheFaultBegins) {
  EXPECT_EQ(RejectionOf(JudgeSettings("")).offset, 0U);
  EXPECT_EQ(RejectionOf(JudgeSettings("\xA1\xFC\x26\x61")).offset, 4U);
  EXPECT_EQ(RejectionOf(JudgeSettings(Settings(L"", L"demo"))).offset, kUrlAt);
  EXPECT_EQ(RejectionOf(JudgeSettings(Settings(L"url", L"x"))).offset, kUrlAt + 6 + 4);
  EXPECT_EQ(PlaceInWords(RejectionOf(JudgeSettings(""))), "at byte 0");
}

TEST(JudgedFiles, AVersionThatBreaksOffIsNotComplete) {
  file::ArchiveWriter writer(file::ArchiveMode::kPlain);
  writer.WriteString("GameVersion");
  writer.WriteU32(1);
  const std::string head = writer.Bytes();
  const auto complete = [&head](std::size_t size) {
    return std::get<VersionFile>(JudgeVersion(head + std::string(size, '\1'))).complete;
  };
  EXPECT_FALSE(complete(0));
  EXPECT_FALSE(complete(15));
  EXPECT_TRUE(complete(16));
  EXPECT_TRUE(complete(17));
}

TEST(JudgedFiles, ARejectedManifestTellsTheLineOfTheFile) {
  std::string text;
  const Rejection rejection =
      RejectionOf(JudgeGameManifest("\r\n\r\nGameUpdate\r\n\nFile\rVersion: 2\na\nb", text));
  EXPECT_EQ(rejection.message, "Invalid file-version FileVersion. (supported: 1)");
  EXPECT_EQ(rejection.line, 5U);
  EXPECT_EQ(rejection.offset, 17U);
  EXPECT_EQ(PlaceInWords(rejection), "in line 5, at byte 17");
}

TEST(JudgedFiles, AManifestThatEndsTooEarlyIsRejectedAtItsEnd) {
  const std::string content = "Velmorant Updater\r\nFileVersion: 1\r\n";
  const Rejection rejection = RejectionOf(JudgeUpdaterManifest(content));
  EXPECT_EQ(rejection.offset, content.size());
  EXPECT_EQ(rejection.line, 3U);
}

TEST(JudgedFiles, AnyLauncherVersionIsRead) {
  EXPECT_EQ(std::get<std::uint32_t>(
                JudgeUpdaterManifest("Velmorant Updater\nFileVersion: 1\nVersion: 0")),
            0U);
}

}  // namespace
}  // namespace ve::publish
