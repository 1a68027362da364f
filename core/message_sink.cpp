#include "core/message_sink.h"

namespace ve {
namespace {

MessageSink messageSink = nullptr;

}  // namespace

void InstallMessageSink(MessageSink sink) noexcept { messageSink = sink; }

void SendToSink(std::string_view message, unsigned level) {
  if (messageSink != nullptr) messageSink(message, level);
}

}  // namespace ve
