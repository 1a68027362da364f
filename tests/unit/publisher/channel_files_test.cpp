#include "publisher/channel/channel_files.h"

#include <gtest/gtest.h>
#include <string>

#include "core/errors.h"
#include "support/game_version_bytes.h"

namespace ve::publish {
namespace {

constexpr const char* kDigest = "0123456789abcdef0123456789abcdef";

TEST(ChannelFiles, WritesDirectoriesAndFilesAsTheLauncherReadsThem) {
  const BuildFolder build{
      {L"bin", L"bin/data"},
      {{L"bin/Velmorant Player.exe", 1048576, 0, kDigest},
       {L"bin/data/level 1.dat", 4294967295, 0, "fedcba9876543210fedcba9876543210"}}};
  EXPECT_EQ(GameManifest(build),
            "GameUpdate\n"
            "FileVersion: 1\n"
            "Directories: 2\n"
            "bin\n"
            "bin/data\n"
            "Files:\n"
            "'bin/Velmorant Player.exe' 1048576 0123456789abcdef0123456789abcdef\n"
            "'bin/data/level 1.dat' 4294967295 fedcba9876543210fedcba9876543210\n");
}

TEST(ChannelFiles, WhatTheLauncherWouldRefuseIsNotWritten) {
  EXPECT_THROW(static_cast<void>(GameManifest({{}, {{L"a", 1, 0, kDigest}}})), VERuntimeError);
  EXPECT_THROW(static_cast<void>(GameManifest({{L"bin"}, {}})), VERuntimeError);
  EXPECT_THROW(static_cast<void>(GameManifest({{L"bin"}, {{L"a", 0, 0, kDigest}}})),
               VERuntimeError);
  EXPECT_THROW(static_cast<void>(GameManifest({{L"bin"}, {{L"a", 1, 0, "short"}}})),
               VERuntimeError);
}

TEST(ChannelFiles, WhatTheLauncherWouldReadAsAnotherBuildIsNotWritten) {
  // Each of these is accepted by the reader, as something else.
  EXPECT_THROW(static_cast<void>(GameManifest({{L"bin"}, {{L"it's", 1, 0, kDigest}}})),
               VERuntimeError);
  EXPECT_THROW(static_cast<void>(GameManifest({{L"a\rb"}, {{L"a", 1, 0, kDigest}}})),
               VERuntimeError);
  EXPECT_THROW(static_cast<void>(GameManifest({{L"bin"}, {{L"\u4e2d", 1, 0, kDigest}}})),
               VERuntimeError);
}

TEST(ChannelFiles, TheVersionFileHoldsTheLeastSignificantWordFirst) {
  EXPECT_EQ(VersionArchive({{2, 0, 4, 1}}), test::VersionBytes({2, 0, 4, 1}));
}

}  // namespace
}  // namespace ve::publish
