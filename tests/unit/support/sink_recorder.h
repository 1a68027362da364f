// Records the messages sent to the message sink while it exists.
#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "core/message_sink.h"

namespace ve::test {

class SinkRecorder {
 public:
  using Message = std::pair<std::string, unsigned>;

  SinkRecorder() {
    messages_.clear();
    InstallMessageSink(
        [](std::string_view message, unsigned level) { messages_.emplace_back(message, level); });
  }
  SinkRecorder(const SinkRecorder&) = delete;
  SinkRecorder& operator=(const SinkRecorder&) = delete;
  ~SinkRecorder() { InstallMessageSink(nullptr); }

  [[nodiscard]] const std::vector<Message>& Messages() const { return messages_; }

 private:
  inline static std::vector<Message> messages_;
};

}  // namespace ve::test
