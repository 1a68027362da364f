// The swap of a channel's folders, made by a process of its own.
//
// Between the two renames of the swap the channel is absent. So that no end of publish.exe falls
// there, it does not make them itself: it starts itself once more, and the second process makes
// them, whatever becomes of the first. It has no console, which keeps Ctrl-C and the closing of a
// window from it, and it holds the channel's lock until it is done. Only its own end at that moment
// leaves the channel absent: the end of the machine, or of a whole tree of processes. (Where the
// first process outlives it, that repairs the channel at once.)
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "publisher/channel/channel_swap.h"

namespace ve::publish {

/// `SwapIn` in a second process. Throws `PublishError` also if that cannot be started, or does not
/// come to its end.
[[nodiscard]] bool SwapInApart(const std::wstring& server, std::wstring_view channel,
                               const ChannelLock& lock);

/// The whole life of such a second process; its exit code. None if this process is no such one.
[[nodiscard]] std::optional<int> RunAsSwapProcess(int count, const wchar_t* const* arguments);

}  // namespace ve::publish
