// Checks everything that one channel of a published tree holds.
#pragma once

#include <string>
#include <string_view>

#include "publisher/channel/published_tree.h"
#include "publisher/report/console.h"
#include "publisher/report/diagnostics.h"

namespace ve::publish {

struct ChannelOptions {
  TreeOptions tree;
  /// The executable's name, which a server does not tell.
  std::string launcher = "Launcher.exe";
};

/// Reads a channel as players' Launchers do. Adds what is wrong with it to the diagnostics, and
/// what it holds to the report.
void CheckChannel(const ChannelOptions& options, std::wstring_view channel, Console& console,
                  Diagnostics& diagnostics);

}  // namespace ve::publish
