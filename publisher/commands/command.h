// The commands of the tool, one source file each. A command reads its options from the command line
// (UTF-8), reports what it did or found on the console, and adds what is wrong to the diagnostics.
// It may throw any exception, which becomes its last error.
#pragma once

#include <functional>
#include <string>
#include <vector>

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

/// Adds a command with what all of them have: --json, and an example below its help. `run` gets the
/// console and the diagnostics.
CLI::App* AddCommand(CLI::App& program, Command& chosen, const std::string& name,
                     const std::string& purpose, const std::string& example,
                     std::function<void(Console&, Diagnostics&)> run);

/// "alpha", "beta", "demo", "release".
[[nodiscard]] std::vector<std::string> ChannelNames();

/// Adds the option --channel, one of these names.
CLI::Option* AddChannel(CLI::App& command, std::string& channel);

/// Adds the option --server, a folder; an address is wrong usage.
CLI::Option* AddServer(CLI::App& command, std::string& server);

}  // namespace ve::publish
