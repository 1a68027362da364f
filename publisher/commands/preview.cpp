#include "publisher/preview/preview.h"

#include "publisher/commands/command.h"

namespace ve::publish {

void AddPreviewCommand(CLI::App& program, Command& chosen) {
  const auto [command, options] = AddCommand(
      program, chosen, "preview", "Show what one run of the Launcher does to an installation.",
      "--installed C:\\Games\\Velmorant --server D:\\server", PreviewRun);
  command->add_option("--installed", options->installed, "The game's root, read only.")->required();
  AddTree(*command, options->tree);
  command->add_option("--launcher", options->launcher, "Its Launcher.")->capture_default_str();
}

}  // namespace ve::publish
