// publish.exe: makes, checks and previews what the Launcher reads.
#include "core/windows.h"

#include <algorithm>
#include <exception>
#include <string>
#include <vector>

#include "core/format.h"
#include "core/unicode.h"
#include "publisher/commands/command.h"
#include "publisher/files/windows_errors.h"
#include "updater/build_config.h"

namespace ve::publish {
namespace {

/// Reports a wrong command line, also to a script that asked for JSON. `arguments` are last first.
int ReportUsage(const CLI::App& program, const CLI::ParseError& error,
                const std::vector<std::string>& arguments) {
  const bool isJson = std::find(arguments.begin(), arguments.end(), "--json") != arguments.end();
  if (error.get_exit_code() == 0 || !isJson) {
    return program.exit(error) == 0 ? kDone : kWrongUsage;
  }
  Diagnostics diagnostics;
  diagnostics.AddError("command line", error.what(), "See publish --help.");
  Console console(Console::Style::kJson, arguments.back());
  return console.Finish(diagnostics, kWrongUsage);
}

int Run(int count, wchar_t** arguments) {
  CLI::App program("Makes, checks and previews the updates that the Launcher reads.", "publish");
  program.require_subcommand(0, 1);  // None is reported below, after an unknown one.
  program.set_version_flag(
      "--version", Format("publish {}, for the Launcher whose clean-up {} non-empty directories",
                          sdk::kBuildConfig.version,
                          sdk::kBuildConfig.keepsNonEmptyDirectories ? "keeps" : "stops at"));
  Command chosen;
  AddSettingsCommand(program, chosen);
  AddGameCommand(program, chosen);
  AddLauncherCommand(program, chosen);
  AddPromoteCommand(program, chosen);
  AddVerifyCommand(program, chosen);
  AddPreviewCommand(program, chosen);
  AddInspectCommand(program, chosen);
  std::vector<std::string> texts;  // Last first, as CLI11 takes them.
  for (int index = count - 1; index > 0; --index) texts.push_back(ToUtf8(arguments[index]));
  try {
    program.parse(std::vector<std::string>(texts));
    if (!chosen.run) throw CLI::RequiredError("A command");
  } catch (const CLI::ParseError& error) {
    return ReportUsage(program, error, texts);
  }
  Console console(chosen.json ? Console::Style::kJson : Console::Style::kText, chosen.name);
  Diagnostics diagnostics;
  try {
    chosen.run(console, diagnostics);
  } catch (const std::exception& error) {
    diagnostics.errors.push_back(DescribeException(error));
  }
  return console.Finish(diagnostics);
}

}  // namespace
}  // namespace ve::publish

int wmain(int count, wchar_t** arguments) {
  // Not from the tool's own folder or the current one. Windows 7 has this since the update KB2533623.
  SetDefaultDllDirectories(LOAD_LIBRARY_SEARCH_SYSTEM32);
  SetConsoleOutputCP(CP_UTF8);
  return ve::publish::Run(count, arguments);
}
