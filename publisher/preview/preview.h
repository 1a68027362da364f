// Previews one run of the Launcher in an installation, by the Launcher's own readers and rules: the
// exact downloads and removals of a run that ends well; of one that stops, what stops it and what it
// does until then. Left out are the log, the staging folder and what lies behind links.
#pragma once

#include <string>

#include "publisher/channel/published_tree.h"
#include "publisher/report/console.h"

namespace ve::publish {

struct PreviewOptions {
  std::string installed;                  ///< The game's root.
  std::string launcher = "Launcher.exe";  ///< As it is started there.
  TreeOptions tree;
  bool fetch = false;  ///< Over http: download the game's files, too.
};

/// Reports the plan. What the run would fail on is an error. The current directory becomes the
/// game's root.
void PreviewRun(PreviewOptions options, Console& console, Diagnostics& diagnostics);

}  // namespace ve::publish
