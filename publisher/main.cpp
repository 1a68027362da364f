// publish.exe: makes, checks and previews what the Launcher reads.
#include "core/windows.h"

#include <exception>
#include <string>
#include <vector>

#include "core/unicode.h"
#include "publisher/commands.h"
#include "publisher/swap_process.h"
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

int RunCommand(const Command& command) {
  Console console(command.json ? Console::Style::kJson : Console::Style::kText);
  try {
    return command.run(console);
  } catch (const std::exception& error) {
    Diagnostics diagnostics;
    diagnostics.AddError("publish", error.what(), "");
    return console.Finish(diagnostics);
  }
}

int Run(int count, wchar_t** arguments) {
  CLI::App program("Makes, checks and previews the updates that the Launcher reads.", "publish");
  program.require_subcommand(1);
  Command chosen;
  AddSettingsCommand(program, chosen);
  AddGameCommand(program, chosen);
  AddLauncherCommand(program, chosen);
  AddVerifyCommand(program, chosen);
  AddPreviewCommand(program, chosen);
  AddInspectCommand(program, chosen);
  try {
    program.parse(Arguments(count, arguments));
  } catch (const CLI::ParseError& error) {
    return program.exit(error) == 0 ? kDone : kWrongUsage;
  }
  return RunCommand(chosen);
}

}  // namespace
}  // namespace ve::publish

int wmain(int count, wchar_t** arguments) {
  ve::publish::LoadDllsFromSystemFolderOnly();
  if (const auto exitCode = ve::publish::RunAsSwapProcess(count, arguments)) return *exitCode;
  SetConsoleOutputCP(CP_UTF8);
  return ve::publish::Run(count, arguments);
}
