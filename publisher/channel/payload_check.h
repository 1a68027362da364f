// Whether the files of a published tree are those that its manifest lists.
#pragma once

#include "publisher/channel/published_tree.h"
#include "publisher/report/console.h"
#include "publisher/report/diagnostics.h"
#include "updater/game_manifest.h"

namespace ve::publish {

/// Compares every listed file's size and digest, several files at a time and each in pieces, and
/// shows the progress. The diagnostics are in the manifest's order.
void CheckPayload(const PublishedTree& tree, const sdk::GameUpdateManifest& manifest,
                  Console& console, Diagnostics& diagnostics);

}  // namespace ve::publish
