#include "archive/updater_settings.h"

#include <cstdint>
#include <gtest/gtest.h>
#include <string>
#include <string_view>

#include "archive/archive_writer.h"
#include "core/errors.h"
#include "support/archive_bytes.h"
#include "support/thrown_message.h"

namespace ve::sdk {
namespace {

using file::ArchiveMode;
using test::CheckedString;
using test::CheckedU32;
using test::CheckedWide;
using test::kCheckedHeader;
using test::kPlainHeader;
using test::PlainString;
using test::PlainWide;
using test::ThrownMessage;
using test::U32;

/// A settings archive's values; each test spoils the one it is about.
struct Record {
  std::string header = "UpdaterData";
  std::uint32_t fileVersion = 1;
  std::wstring url = L"http://updates.example/\x20AC/";
  std::wstring channel = L"release";

  [[nodiscard]] std::string Bytes(ArchiveMode mode) const {
    if (mode == ArchiveMode::kPlain) {
      return kPlainHeader + PlainString(header) + U32(fileVersion) + PlainWide(url) +
             PlainWide(channel);
    }
    return kCheckedHeader + CheckedString(header) + CheckedU32(fileVersion) + CheckedWide(url) +
           CheckedWide(channel);
  }
};

std::string UpdaterError(const std::string& bytes) {
  return ThrownMessage<UpdaterException>([&] { (void)ReadUpdaterSettings(bytes); });
}

class UpdaterSettingsModes : public testing::TestWithParam<ArchiveMode> {
 protected:
  [[nodiscard]] static std::string ErrorOf(const Record& record) {
    return UpdaterError(record.Bytes(GetParam()));
  }
};
INSTANTIATE_TEST_SUITE_P(BothModes, UpdaterSettingsModes,
                         testing::Values(ArchiveMode::kPlain, ArchiveMode::kChecked));

TEST_P(UpdaterSettingsModes, GiveUrlAndChannel) {
  const std::string bytes = Record().Bytes(GetParam());
  const UpdaterSettings settings = ReadUpdaterSettings(bytes);
  EXPECT_TRUE(settings.url == L"http://updates.example/\x20AC/");
  EXPECT_TRUE(settings.channel == L"release");
}

TEST_P(UpdaterSettingsModes, AreReadAsTheWriterWritesThem) {
  file::ArchiveWriter writer(GetParam());
  writer.WriteString("UpdaterData");
  writer.WriteU32(1);
  writer.WriteWideString(L"u");
  writer.WriteWideString(L"beta");
  const std::string bytes = writer.Bytes();
  EXPECT_TRUE(ReadUpdaterSettings(bytes).url == L"u");
  EXPECT_TRUE(ReadUpdaterSettings(bytes).channel == L"beta");
}

TEST_P(UpdaterSettingsModes, KnowFourChannels) {
  for (const std::wstring_view channel : {L"alpha", L"beta", L"demo", L"release"}) {
    Record record;
    record.channel = channel;
    const std::string bytes = record.Bytes(GetParam());
    EXPECT_TRUE(ReadUpdaterSettings(bytes).channel == channel);
  }
}

TEST_P(UpdaterSettingsModes, RejectAnotherHeaderWord) {
  EXPECT_EQ(ErrorOf({.header = "UpdaterDatA"}),
            "Invalid header 'UpdaterDatA' in UpdaterData.vpak (was expecting 'UpdaterData').");
  EXPECT_EQ(ErrorOf({.header = "UpdaterData "}),
            "Invalid header 'UpdaterData ' in UpdaterData.vpak (was expecting 'UpdaterData').");
  EXPECT_EQ(ErrorOf({.header = "UpdaterDat"}),
            "Invalid header 'UpdaterDat' in UpdaterData.vpak (was expecting 'UpdaterData').");
  EXPECT_EQ(ErrorOf({.header = ""}),
            "Invalid header '' in UpdaterData.vpak (was expecting 'UpdaterData').");
}

TEST_P(UpdaterSettingsModes, ShowTheHeaderWordWhereTheFileVersionIsExpected) {
  for (const std::uint32_t fileVersion : {0U, 2U, 4294967295U}) {
    EXPECT_EQ(ErrorOf({.fileVersion = fileVersion}),
              "Invalid file-version UpdaterData in UpdaterData.vpak (supported: 1).");
  }
}

TEST_P(UpdaterSettingsModes, RejectAnEmptyUrl) {
  EXPECT_EQ(ErrorOf({.url = L""}), "Empty URL in UpdaterData.vpak.");
}

TEST_P(UpdaterSettingsModes, ShowTheFileVersionWhereTheChannelIsExpected) {
  for (const wchar_t* channel :
       {L"Release", L"RELEASE", L"releas", L"releases", L"", L"gamma", L"demo ", L" beta"}) {
    EXPECT_EQ(ErrorOf({.channel = channel}),
              "Invalid release-channel '1' in UpdaterData.vpak (with file-version {INVALID}).");
  }
}

TEST_P(UpdaterSettingsModes, AreCheckedInTheOrderHeaderVersionUrlChannel) {
  EXPECT_EQ(ErrorOf({.header = "x", .fileVersion = 2, .url = L"", .channel = L""}),
            "Invalid header 'x' in UpdaterData.vpak (was expecting 'UpdaterData').");
  EXPECT_EQ(ErrorOf({.fileVersion = 2, .url = L"", .channel = L""}),
            "Invalid file-version UpdaterData in UpdaterData.vpak (supported: 1).");
  EXPECT_EQ(ErrorOf({.url = L"", .channel = L""}), "Empty URL in UpdaterData.vpak.");
}

TEST_P(UpdaterSettingsModes, IgnoreWhatFollowsTheRecord) {
  const std::string bytes = Record().Bytes(GetParam()) + "and more";
  EXPECT_TRUE(ReadUpdaterSettings(bytes).channel == L"release");
}

TEST(UpdaterSettings, AreTheSameInBothModes) {
  const std::string plainBytes = Record().Bytes(ArchiveMode::kPlain);
  const std::string checkedBytes = Record().Bytes(ArchiveMode::kChecked);
  EXPECT_TRUE(ReadUpdaterSettings(plainBytes).url == ReadUpdaterSettings(checkedBytes).url);
  EXPECT_TRUE(ReadUpdaterSettings(plainBytes).channel == ReadUpdaterSettings(checkedBytes).channel);
}

TEST(UpdaterSettings, AreViewsIntoTheBytes) {
  const std::string bytes = Record().Bytes(ArchiveMode::kPlain);
  const UpdaterSettings settings = ReadUpdaterSettings(bytes);
  EXPECT_EQ(static_cast<const void*>(settings.url.data()), bytes.data() + 9 + 15 + 4 + 4);
  EXPECT_EQ(static_cast<const void*>(settings.channel.data()),
            bytes.data() + bytes.size() - 2 * settings.channel.size());
}

TEST(UpdaterSettings, ACutFileVersionIsAnInvalidOne) {
  EXPECT_EQ(UpdaterError(kPlainHeader + PlainString("UpdaterData") + "\x01"),
            "Invalid file-version UpdaterData in UpdaterData.vpak (supported: 1).");
}

TEST(UpdaterSettings, AUrlLongerThanTheFileIsEmpty) {
  EXPECT_EQ(UpdaterError(kPlainHeader + PlainString("UpdaterData") + U32(1) + U32(100) + "h"),
            "Empty URL in UpdaterData.vpak.");
}

TEST(UpdaterSettings, AHeaderWordLongerThanTheFileIsEmpty) {
  EXPECT_EQ(UpdaterError(kPlainHeader + U32(12) + "UpdaterData"),
            "Invalid header '' in UpdaterData.vpak (was expecting 'UpdaterData').");
}

TEST(UpdaterSettings, AMissingChannelIsAnInvalidOne) {
  EXPECT_EQ(UpdaterError(kPlainHeader + PlainString("UpdaterData") + U32(1) + PlainWide(L"u")),
            "Invalid release-channel '1' in UpdaterData.vpak (with file-version {INVALID}).");
}

TEST(UpdaterSettings, AnInvalidArchiveIsAFileError) {
  const auto fileError = [](const std::string& bytes) {
    return ThrownMessage<file::FileException>([&] { (void)ReadUpdaterSettings(bytes); });
  };
  EXPECT_EQ(fileError(""), "Invalid header 0 for binary file.");
  EXPECT_EQ(fileError(kPlainHeader.substr(0, 4)),
            "Invalid version 0 for binary file (supported: 1).");
  EXPECT_EQ(fileError(kCheckedHeader + CheckedWide(L"UpdaterData")),
            "Invalid string-identifier 793148466 (was expecting 793518264).");
  EXPECT_EQ(fileError(kCheckedHeader + CheckedString("UpdaterData") + U32(1)),
            "Invalid debug-size for type. Was 1, expected 4.");
  EXPECT_EQ(fileError(kCheckedHeader + CheckedString("UpdaterData")),
            "Invalid debug-size for type. Was 0, expected 4.");
  EXPECT_EQ(fileError(kCheckedHeader + CheckedString("UpdaterData") + CheckedU32(1) +
                      CheckedString("url")),
            "Invalid wstring-identifier 793518264 (was expecting 793148466).");
}

}  // namespace
}  // namespace ve::sdk
