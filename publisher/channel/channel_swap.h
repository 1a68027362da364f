// Replacing what a channel offers, all of it at once: Launchers fetch files at fixed addresses, so
// files replaced one by one would be served as a mixture of two versions. A new state is made
// complete beside the live folder, and the two are swapped by renaming:
//
//   updates/CHANNEL            what is served
//   updates/.CHANNEL.next      under construction, or complete and about to be swapped in
//   updates/.CHANNEL.previous  what was served until now, complete
//   updates/.CHANNEL.discarded what was served before, being removed
//   updates/.CHANNEL.lock      held by the run that writes; gone when that run ends in any way
//
// Between the two renames, for the time of one system call, the channel is absent. A Launcher that
// asks just then logs an error and starts the installed game; one in the middle of an update ends
// like after any other failed download. Ctrl-C, Ctrl-Break and closing the console's window wait for
// both renames. A logoff, a shutdown, a kill or a power failure does not wait: the channel then stays
// absent until the next run that writes to it, which restores the previous state first.
#pragma once

#include <string>
#include <string_view>

#include "core/handle.h"
#include "publisher/report/diagnostics.h"

namespace ve::publish {

/// The paths of these folders, of the lock, and of the folder with all channels.
struct ChannelFolders {
  std::wstring updates, live, next, previous, discarded, lock;
};

/// The paths below the folder that is served (absolute).
[[nodiscard]] ChannelFolders FoldersOf(const std::wstring& server, std::wstring_view channel);

/// Where the channel's state is: the live folder, or the previous one after an interruption between
/// the two renames. There need not be anything at that path.
[[nodiscard]] const std::wstring& PublishedFolder(const ChannelFolders& folders);

/// The right to write to a channel, held by one run at a time. Taking it makes one whole state of
/// whatever an interrupted run left and removes the rest. From then on Ctrl-C and the like wait for a
/// swap to complete.
class ChannelLock {
 public:
  /// Makes the updates folder if there is none. Waits some seconds for another run. Throws
  /// `PublishError` or a filesystem error, also if the repair fails.
  explicit ChannelLock(const ChannelFolders& folders);

 private:
  UniqueFileHandle lock_;
};

/// Replaces the live folder by the complete next one. Only under the lock. Retries a failed rename
/// for some seconds; then throws `PublishError`, and the live folder is unchanged. Warns if the old
/// state cannot be removed; the next run removes it, or fails.
void SwapIn(const ChannelFolders& folders, Diagnostics& diagnostics);

/// The next folder while it is made: removed with its owner unless it was swapped in.
class NextState {
 public:
  explicit NextState(const ChannelFolders& folders) : folder_(folders.next) {}
  NextState(const NextState&) = delete;
  NextState& operator=(const NextState&) = delete;
  ~NextState();

 private:
  const std::wstring& folder_;
};

}  // namespace ve::publish
