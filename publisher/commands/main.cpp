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
#include <CLI/CLI.hpp>

namespace ve::publish {
namespace {

/// Keeps the DLLs that Windows loads while the tool runs from being searched in the tool's own
/// folder and in the current directory. Windows 7 has the function since the update KB2533623, so
/// it is not imported.
void LoadDllsFromSystemFolderOnly() {
  using Function = BOOL(WINAPI*)(DWORD);
  const auto setDirectories = reinterpret_cast<Function>(reinterpret_cast<void*>(
      GetProcAddress(GetModuleHandleW(L"kernel32.dll"), "SetDefaultDllDirectories")));
  if (setDirectories != nullptr) setDirectories(LOAD_LIBRARY_SEARCH_SYSTEM32);
}

/// The command line's arguments in UTF-8, without the program, last first as CLI11 takes them.
std::vector<std::string> Arguments(int count, wchar_t** arguments) {
  std::vector<std::string> texts;
  for (int index = count - 1; index > 0; --index) texts.push_back(ToUtf8(arguments[index]));
  return texts;
}

/// The Launcher that the tool belongs to.
std::string VersionLine() {
  return Format("publish {}, for the Launcher whose clean-up {} non-empty directories",
                sdk::kBuildConfig.version,
                sdk::kBuildConfig.keepsNonEmptyDirectories ? "keeps" : "stops at");
}

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

int RunCommand(const Command& command) {
  Console console(command.json ? Console::Style::kJson : Console::Style::kText, command.name);
  Diagnostics diagnostics;
  try {
    command.run(console, diagnostics);
  } catch (const std::exception& error) {
    diagnostics.errors.push_back(DescribeException(error));
  }
  return console.Finish(diagnostics);
}

int Run(int count, wchar_t** arguments) {
  CLI::App program("Makes, checks and previews the updates that the Launcher reads.", "publish");
  program.require_subcommand(1);
  program.set_version_flag("--version", VersionLine());
  Command chosen;
  AddSettingsCommand(program, chosen);
  AddGameCommand(program, chosen);
  AddLauncherCommand(program, chosen);
  AddPromoteCommand(program, chosen);
  AddVerifyCommand(program, chosen);
  AddPreviewCommand(program, chosen);
  AddInspectCommand(program, chosen);
  const std::vector<std::string> texts = Arguments(count, arguments);
  try {
    program.parse(std::vector<std::string>(texts));
  } catch (const CLI::ParseError& error) {
    return ReportUsage(program, error, texts);
  }
  return RunCommand(chosen);
}

}  // namespace
}  // namespace ve::publish

int wmain(int count, wchar_t** arguments) {
  ve::publish::LoadDllsFromSystemFolderOnly();
  SetConsoleOutputCP(CP_UTF8);
  return ve::publish::Run(count, arguments);
}
