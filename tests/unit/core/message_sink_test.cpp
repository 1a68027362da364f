#include "core/message_sink.h"

#include "core/windows.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <system_error>

#include "core/process.h"
#include "core/working_directory.h"
#include "support/sink_recorder.h"

namespace ve {
namespace {

using test::SinkRecorder;
using testing::ElementsAre;
using testing::Pair;

TEST(MessageSink, ReceivesMessagesAndLevelsAsTheyAre) {
  const SinkRecorder sink;
  SendToSink("first {}", 0);
  SendToSink("", 4294967295U);
  EXPECT_THAT(sink.Messages(), ElementsAre(Pair("first {}", 0U), Pair("", 4294967295U)));
}

TEST(MessageSink, ReceivesFormattedMessages) {
  const SinkRecorder sink;
  FormatToSink("none", 0);
  FormatToSink("{} {} {} {}", 1, "a", 2, -3, std::string("d"));
  FormatToSink("{}{}", 1, "a");
  EXPECT_THAT(sink.Messages(),
              ElementsAre(Pair("none", 0U), Pair("a 2 -3 d", 1U), Pair("a{INVALID}", 1U)));
}

TEST(MessageSink, WithoutASinkAFailureIsStillReturned) {
  InstallMessageSink(nullptr);
  testing::internal::CaptureStdout();
  testing::internal::CaptureStderr();
  SendToSink("dropped", 1);
  const bool started = StartProcess(L"no such program.exe", L"", L"", false);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
  EXPECT_FALSE(started);
}

TEST(MessageSink, ReceivesNothingAfterItsRemoval) {
  static int received = 0;
  received = 0;
  InstallMessageSink([](std::string_view, unsigned) { ++received; });
  SendToSink("x", 1);
  InstallMessageSink(nullptr);
  SendToSink("x", 1);
  EXPECT_EQ(received, 1);
}

TEST(MessageSink, ReceivesAWorkingDirectoryThatCannotBeSetAtLevelZero) {
  const SinkRecorder sink;
  EXPECT_FALSE(SetWorkingDirectory(L"no such folder", false));
  EXPECT_THAT(sink.Messages(),
              ElementsAre(Pair("Failed to set current working directory to 'no such folder': " +
                                   std::system_category().message(ERROR_FILE_NOT_FOUND),
                               0U)));
}

}  // namespace
}  // namespace ve
