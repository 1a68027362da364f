// The hook that the thin platform wrappers hand their diagnostic messages to.
//
// The Launcher installs no sink, so its messages are dropped: the log file holds the failures of
// the update stages only, and nothing sent here reaches the player.
#pragma once

#include <string_view>

#include "core/format.h"

namespace ve {

/// Receives a message in UTF-8 and its level (0 or 1; what they mean is the receiver's business).
using MessageSink = void (*)(std::string_view message, unsigned level);

/// Installs the process-wide sink; null removes it. The pointer is read without a lock, so install
/// it before other threads exist.
void InstallMessageSink(MessageSink sink) noexcept;

/// Calls the sink if one is installed.
void SendToSink(std::string_view message, unsigned level);

/// Composes a message with `Format` and sends it.
template <class... Arguments>
void FormatToSink(std::string_view format, unsigned level, const Arguments&... arguments) {
  SendToSink(Format(format, arguments...), level);
}

}  // namespace ve
