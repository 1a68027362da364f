#include "publisher/channel/channel_swap.h"

#include "core/windows.h"

#include <mutex>
#include <utility>

#include "core/directory_walk.h"
#include "core/files.h"
#include "core/format.h"
#include "publisher/files/paths.h"
#include "publisher/files/server_layout.h"
#include "publisher/files/whole_file.h"
#include "publisher/files/windows_errors.h"

namespace ve::publish {
namespace {

constexpr int kRetries = 50;
constexpr DWORD kRetryPause = 100;  // milliseconds

/// Whether trying again may help: another program, such as a virus scanner or the server, has a file
/// open, or it is just being deleted.
bool MayPass(DWORD code) {
  return code == ERROR_SHARING_VIOLATION || code == ERROR_ACCESS_DENIED ||
         code == ERROR_LOCK_VIOLATION || code == ERROR_DELETE_PENDING;
}

/// Calls the attempt, which returns a Windows error code, until it succeeds, fails in another way,
/// or five seconds are over. Returns the last code.
template <class Attempt>
DWORD Retry(Attempt attempt) {
  DWORD code = attempt();
  for (int retry = 0; retry < kRetries && MayPass(code); ++retry) {
    Sleep(kRetryPause);
    code = attempt();
  }
  return code;
}

/// Held while the two renames of a swap are made. A console event takes it and keeps it, so that the
/// process ends before the first of them or after the second.
std::mutex renames;

/// Windows calls this on its own thread and ends the process when it returns; after the closing of
/// the window also when a time-out of some seconds is over.
BOOL WINAPI WaitForRenames(DWORD /*event*/) {
  renames.lock();
  return FALSE;
}

[[noreturn]] void ThrowRenameError(const std::wstring& folder, DWORD code) {
  Diagnostic diagnostic = DescribeWindowsError("renamed", folder, code);
  // An open file below the folder makes this "Access is denied.", too.
  diagnostic.hint =
      "Close the program that has a file in the folder open, then run the command again. It "
      "repairs the channel first.";
  throw PublishError(std::move(diagnostic));
}

DWORD TryRename(const std::wstring& from, const std::wstring& to) {
  return MoveFileExW(from.c_str(), to.c_str(), 0) != FALSE ? ERROR_SUCCESS : GetLastError();
}

void RenameFolder(const std::wstring& from, const std::wstring& to) {
  const DWORD code = Retry([&] { return TryRename(from, to); });
  if (code != ERROR_SUCCESS) ThrowRenameError(from, code);
}

/// Removes a folder with everything in it, read-only files too. Nothing at the path is no error.
void RemoveFolder(const std::wstring& folder) {
  if (!file::Exists(folder)) return;
  file::WalkDirectory(folder, [](const file::DirectoryEntry& entry) {
    if ((entry.attributes & FILE_ATTRIBUTE_READONLY) != 0) {
      SetFileAttributesW(std::wstring(entry.path).c_str(), FILE_ATTRIBUTE_NORMAL);
    }
    return file::WalkAction::kRecurse;
  });
  file::RemoveTree(folder);
}

/// Removes what a single file's interrupted write has left in a folder.
void RemoveHalfWrittenFiles(const std::wstring& folder) {
  if (!file::Exists(folder)) return;
  file::WalkDirectory(folder, [](const file::DirectoryEntry& entry) {
    if (!entry.IsDirectory() && entry.path.ends_with(kBesideSuffix)) file::Remove(entry.path);
    return file::WalkAction::kRecurse;
  });
}

/// The previous folder gets another name first: one that is called previous is always complete.
void Discard(const ChannelFolders& folders) {
  if (!file::Exists(folders.previous)) return;
  RenameFolder(folders.previous, folders.discarded);
  RemoveFolder(folders.discarded);
}

/// Makes one whole state of any combination of folders: each step of a swap may have been a run's
/// last.
void Repair(const ChannelFolders& folders) {
  RemoveFolder(folders.discarded);
  if (PublishedFolder(folders) == folders.previous) RenameFolder(folders.previous, folders.live);
  Discard(folders);
  RemoveFolder(folders.next);
  RemoveHalfWrittenFiles(JoinPath(folders.live, kUpdaterFolder));
}

/// One attempt, which leaves the live folder in its place if it fails.
DWORD TrySwap(const ChannelFolders& folders, std::wstring& failed) {
  const std::lock_guard heldOff(renames);
  const bool isFirst = !file::Exists(folders.live);
  failed = folders.live;
  DWORD code = isFirst ? ERROR_SUCCESS : TryRename(folders.live, folders.previous);
  if (code != ERROR_SUCCESS) return code;
  // From here to the next rename the channel is absent.
  failed = folders.next;
  code = TryRename(folders.next, folders.live);
  if (code != ERROR_SUCCESS && !isFirst) RenameFolder(folders.previous, folders.live);
  return code;
}

}  // namespace

ChannelFolders FoldersOf(const std::wstring& server, std::wstring_view channel) {
  std::wstring live = JoinPath(server, ChannelName(channel));
  std::wstring updates = live.substr(0, live.size() - channel.size() - 1);
  const std::wstring beside = Format(L"{}\\.{}.", updates, channel);
  return {std::move(updates),   std::move(live),       beside + L"next",
          beside + L"previous", beside + L"discarded", beside + L"lock"};
}

const std::wstring& PublishedFolder(const ChannelFolders& folders) {
  const bool inGap = !file::Exists(folders.live) && file::Exists(folders.previous);
  return inGap ? folders.previous : folders.live;
}

ChannelLock::ChannelLock(const ChannelFolders& folders) {
  const DWORD attributes = GetFileAttributesW(folders.live.c_str());
  if (attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0) {
    throw PublishError(
        {DisplayPath(folders.live), "the channel's folder is a link", "Replace it with a folder."});
  }
  file::MakeDirectories(folders.updates);
  const DWORD code = Retry([&] {
    lock_.Reset(CreateFileW(folders.lock.c_str(), GENERIC_WRITE | DELETE, 0, nullptr, CREATE_ALWAYS,
                            FILE_ATTRIBUTE_NORMAL | FILE_FLAG_DELETE_ON_CLOSE, nullptr));
    return lock_ ? DWORD{ERROR_SUCCESS} : GetLastError();
  });
  if (code == ERROR_SHARING_VIOLATION) {
    throw PublishError({DisplayPath(folders.lock), "another run is writing to this channel",
                        "Wait until it has ended, then publish again."});
  }
  if (code != ERROR_SUCCESS) ThrowWindowsError("written", folders.lock, code);
  SetConsoleCtrlHandler(&WaitForRenames, TRUE);
  Repair(folders);
}

void SwapIn(const ChannelFolders& folders, Diagnostics& diagnostics) {
  std::wstring failed;  // The folder that could not be renamed.
  const DWORD code = Retry([&] { return TrySwap(folders, failed); });
  if (code != ERROR_SUCCESS) ThrowRenameError(failed, code);
  try {
    Discard(folders);
  } catch (const std::exception&) {
    diagnostics.AddWarning(
        DisplayPath(folders.updates), "the folder of the previous version could not be removed",
        "The next publish to this channel deletes it first, and fails if it cannot.");
  }
}

NextState::~NextState() {
  try {
    RemoveFolder(folder_);
  } catch (const std::exception&) {
    // The next run removes it.
  }
}

}  // namespace ve::publish
