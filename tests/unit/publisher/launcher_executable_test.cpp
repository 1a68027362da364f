#include "publisher/channel/launcher_executable.h"

#include <gtest/gtest.h>
#include <string>

namespace ve::publish {
namespace {

const LauncherRecord kRecord{
    "Start \xC3\xBC.exe", 5'000'000'000, "0123456789abcdef0123456789abcdef", 7, true, true};

/// The text of a record, with one part of it replaced.
std::string Changed(const std::string& from, const std::string& to) {
  std::string text = LauncherRecordText(kRecord);
  return text.replace(text.find(from), from.size(), to);
}

TEST(LauncherRecord, IsReadAsItWasWritten) {
  EXPECT_EQ(ParseLauncherRecord(LauncherRecordText(kRecord)), kRecord);
  EXPECT_EQ(ParseLauncherRecord(LauncherRecordText({})), LauncherRecord());
}

TEST(LauncherRecord, KeysOfLaterVersionsAreIgnored) {
  EXPECT_EQ(ParseLauncherRecord(Changed("{", R"({"later": [1], )")), kRecord);
}

TEST(LauncherRecord, WhatCannotBeReadIsNone) {
  EXPECT_FALSE(ParseLauncherRecord(""));
  EXPECT_FALSE(ParseLauncherRecord("[]"));
  EXPECT_FALSE(ParseLauncherRecord(Changed("}", "")));
  for (const char* key :
       {"executable", "size", "md5", "version", "keepsNonEmptyDirectories", "isSigned"}) {
    EXPECT_FALSE(ParseLauncherRecord(Changed(key, "other"))) << key;
  }
  EXPECT_FALSE(ParseLauncherRecord(Changed("5000000000", "\"large\"")));
}

}  // namespace
}  // namespace ve::publish
