#include "publisher/preview/preview.h"

#include <memory>

#include "publisher/commands/command.h"

namespace ve::publish {

void AddPreviewCommand(CLI::App& program, Command& chosen) {
  const auto options = std::make_shared<PreviewOptions>();
  CLI::App* command = AddCommand(
      program, chosen, "preview", "Show what one run of the Launcher does to an installation.",
      "--installed C:\\Games\\Velmorant --server D:\\server",
      [options](Console& console, Diagnostics& found) { PreviewRun(*options, console, found); });
  command->add_option("--installed", options->installed, "The game's root, read only.")->required();
  CLI::Option_group* tree = command->add_option_group("server", "Where the update is");
  AddServer(*tree, options->tree.server);
  tree->add_option("--url", options->tree.url, "The server's base URL, with its last slash.");
  tree->require_option(1);
  command->add_option("--launcher", options->launcher, "As it is started.")->capture_default_str();
  command->add_flag("--fetch", options->fetch, "With --url: check the game's files, too.");
}

}  // namespace ve::publish
