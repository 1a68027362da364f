// Whether the files of a published tree are those that its manifest lists.
#pragma once

#include "publisher/channel/published_tree.h"
#include "publisher/report/console.h"
#include "publisher/report/diagnostics.h"
#include "updater/game_manifest.h"

namespace ve::publish {

/// Compares every listed file's size and digest, and shows the progress. In a folder all cores read
/// at once, piece by piece; from a server one file after the other is fetched into memory.
void CheckPayload(const PublishedTree& tree, const sdk::GameUpdateManifest& manifest,
                  Console& console, Diagnostics& diagnostics);

}  // namespace ve::publish
