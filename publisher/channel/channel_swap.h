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
// like after any other failed download. Ctrl-C, Ctrl-Break and the closing of the console's window
// wait until both renames are made. A logoff, a shutdown, a kill or a power failure does not wait:
// after one of these between the renames the channel is absent until the next run that writes to
// it, which puts the previous state back first.
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

/// Puts the complete next folder in the place of the live one and removes that. Only under the
/// lock. If a folder cannot be renamed, retries for some seconds; then throws `PublishError`, and the
/// live folder is what it was. Warns if the swap was made but remains of the previous state could
/// not be removed; the next run removes them.
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
