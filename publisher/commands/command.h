// The commands of the tool. A command reads its options from the command line
// (UTF-8), reports what it did or found on the console, and adds what is wrong to the diagnostics.
// It may throw any exception, which becomes its last error.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <utility>

#include "publisher/channel/published_tree.h"
#include "publisher/report/console.h"
#include <CLI/CLI.hpp>

namespace ve::publish {

/// What the command line asks for.
struct Command {
  std::string name;
  std::function<void(Console&, Diagnostics&)> run;
  bool json = false;
};

// Each adds one command to the program; parsing the command line sets `chosen`, which has to
// outlive that.
void AddSettingsCommand(CLI::App& program, Command& chosen);
void AddGameCommand(CLI::App& program, Command& chosen);
void AddLauncherCommand(CLI::App& program, Command& chosen);
void AddPromoteCommand(CLI::App& program, Command& chosen);
void AddVerifyCommand(CLI::App& program, Command& chosen);
void AddPreviewCommand(CLI::App& program, Command& chosen);
void AddInspectCommand(CLI::App& program, Command& chosen);

/// Adds a command with what all of them have: --json, and an example below its help. Returns it with
/// its options, which live as long as `chosen.run` does.
template <class Options>
std::pair<CLI::App*, std::shared_ptr<Options>> AddCommand(
    CLI::App& program, Command& chosen, const std::string& name, const std::string& purpose,
    const std::string& example, void (*run)(const Options&, Console&, Diagnostics&)) {
  const auto options = std::make_shared<Options>();
  CLI::App* command = program.add_subcommand(name, purpose);
  command->callback([&chosen, name, options, run] {
    chosen.name = name;
    chosen.run = [options, run](Console& console, Diagnostics& diagnostics) {
      run(*options, console, diagnostics);
    };
  });
  command->add_flag("--json", chosen.json, "Report as one JSON object.");
  command->footer("Example:\n  publish " + name + " " + example);
  return {command, options};
}

/// Adds an option that takes a release channel's name.
CLI::Option* AddChannel(CLI::App& command, std::string& channel, const char* name = "--channel",
                        const char* purpose = "The release channel.");

/// Adds the options --server and --url, of which exactly one must be given.
void AddTree(CLI::App& command, TreeOptions& tree);

/// Adds the option --server, a folder; an address is wrong usage.
CLI::Option* AddServer(CLI::App& command, std::string& server);

}  // namespace ve::publish
