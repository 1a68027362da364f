// The log that the code under test wrote in the current directory.
#pragma once

#include <gtest/gtest.h>
#include <regex>
#include <string>

#include "core/files.h"
#include "support/temp_folder.h"

namespace ve::test {

/// Whether there is a log.
[[nodiscard]] inline bool HasLog() { return file::Exists(L"Logs\\updater.log"); }

/// All that follows the time stamp's line in a log of exactly one entry.
[[nodiscard]] inline std::string OnlyLogEntry() {
  const std::string log = ReadWhole(L"Logs\\updater.log");
  const std::size_t end = log.find("\r\n");
  EXPECT_NE(end, std::string::npos) << log;
  if (end == std::string::npos) return log;
  const std::regex stamp(R"(\[\[\d\d\.\d\d\.\d{4} \d\d:\d\d:\d\d-\d{3}\]\])");
  EXPECT_TRUE(std::regex_match(log.substr(0, end), stamp)) << log;
  return log.substr(end + 2);
}

}  // namespace ve::test
