#include "publisher/channel/file_kind.h"

#include <gtest/gtest.h>
#include <string>

#include "archive/archive_writer.h"

namespace ve::publish {
namespace {

std::string Archive(file::ArchiveMode mode, const char* header) {
  file::ArchiveWriter writer(mode);
  writer.WriteString(header);
  return writer.Bytes();
}

TEST(FileKind, ArchivesAreToldByTheirHeaderWord) {
  for (const file::ArchiveMode mode : {file::ArchiveMode::kPlain, file::ArchiveMode::kChecked}) {
    EXPECT_EQ(KindOf(Archive(mode, "UpdaterData")), FileKind::kSettings);
    EXPECT_EQ(KindOf(Archive(mode, "GameVersion")), FileKind::kVersion);
    EXPECT_EQ(KindOf(Archive(mode, "GameVersio")), FileKind::kUnknown);
  }
  EXPECT_EQ(KindOf("\xA1\xFC\x26\x61"), FileKind::kUnknown);
  EXPECT_EQ(KindOf("\xA1\xFC\x26"), FileKind::kUnknown);
}

TEST(FileKind, ManifestsAreToldByTheirFirstLineOrTheKeyOfTheirThird) {
  EXPECT_EQ(KindOf("GameUpdate"), FileKind::kGameManifest);
  EXPECT_EQ(KindOf("\r\n\nGame\rUpdate\r\n"), FileKind::kGameManifest);
  EXPECT_EQ(KindOf("x\ny\nDirectories: z"), FileKind::kGameManifest);
  EXPECT_EQ(KindOf("x\ny\nDirectories:z"), FileKind::kUnknown);
  EXPECT_EQ(KindOf("Velmorant Updater\n"), FileKind::kUpdaterManifest);
  EXPECT_EQ(KindOf("x\ny\n\nVersion: 6"), FileKind::kUpdaterManifest);
  EXPECT_EQ(KindOf("x\ny\nz\nVersion: 6"), FileKind::kUnknown);
  EXPECT_EQ(KindOf(""), FileKind::kUnknown);
}

}  // namespace
}  // namespace ve::publish
