// Lists of files for a tool that copies a published tree to where it is served, such as rclone with
// --files-from. Each has one path per line, relative to the folder that is served, with "/"; a list
// may be empty.
//
//   1-payload.txt   the game files to upload: added and changed ones
//   2-manifest.txt  the game's manifest
//   3-version.txt   the game's version file
//   4-delete.txt    the game files that the new state no longer has
//   5-purge.txt     what a cache in front must drop, as URL paths ("/updates/..." with %20 for a
//                   space): changed and deleted files, the manifest and the version file
//
// A Launcher fetches the version file first, then the manifest, then the files, and does not check
// what it downloads. So the order of the uploads matters:
//
// - The payload before the manifest: otherwise a Launcher asks for files that are not there yet, and
//   the update fails; or it installs the old content of changed files.
// - The version file after the manifest: otherwise a Launcher that reads the new version and the old
//   manifest has nothing to download and records the new version. It is never offered the new files.
// - The deletions last: a Launcher in the middle of an update works through the old manifest.
//
// A Launcher that is overtaken by an upload in this order records the old version. Its next start
// offers the new one, compares every file with its digest and fetches what differs. A cache must
// not undo the order: purge list 5 after each of the four steps.
#pragma once

#include <string>
#include <string_view>

#include "publisher/channel/changes.h"

namespace ve::publish {

/// Writes the lists of a channel's changes into a folder (absolute), and makes that if there is
/// none. Call it before the swap: afterwards nothing can compute the changes again. Throws
/// `PublishError` or a filesystem error.
void WriteUploadLists(const std::wstring& folder, std::wstring_view channel,
                      const Changes& changes);

}  // namespace ve::publish
