// The commands of the tool, one source file each. Each reads its options from the command line
// (UTF-8), tells what it did or found through the console, and returns the exit code. Failures of
// the file system or the network that it has no words for are thrown.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "publisher/console.h"
#include <CLI/CLI.hpp>

namespace ve::publish {

/// What the command line asks for.
struct Command {
  std::function<int(Console&)> run;
  bool json = false;
};

// Each adds one command to the program; parsing the command line sets `chosen`, which has to
// outlive that.
void AddSettingsCommand(CLI::App& program, Command& chosen);
void AddGameCommand(CLI::App& program, Command& chosen);
void AddLauncherCommand(CLI::App& program, Command& chosen);
void AddVerifyCommand(CLI::App& program, Command& chosen);
void AddPreviewCommand(CLI::App& program, Command& chosen);
void AddInspectCommand(CLI::App& program, Command& chosen);

/// A command with what all of them have: --json, and an example below its help.
CLI::App* AddCommand(CLI::App& program, Command& chosen, const std::string& name,
                     const std::string& purpose, const std::string& example);

/// "alpha", "beta", "demo", "release".
[[nodiscard]] std::vector<std::string> ChannelNames();

/// Adds the option --channel, one of these names.
CLI::Option* AddChannel(CLI::App& command, std::string& channel);

}  // namespace ve::publish
