// The Launcher's run: find the game's root, bring the Launcher and the game up to date, start the
// game. An exception that the steps do not handle ends the process.
#include "core/windows.h"

#include <optional>
#include <string>

#include "core/process.h"
#include "core/working_directory.h"
#include "launcher/game_root.h"
#include "launcher/runtime_errors.h"
#include "launcher/updater_driver.h"

int WINAPI WinMain(HINSTANCE, HINSTANCE, LPSTR, int) {
  ve::SuppressCrtErrorDialog();
  if (const std::optional<std::wstring> root = ve::ResolveGameRoot()) {
    // If this fails, the run goes on in the directory that it was started in.
    ve::SetWorkingDirectory(*root, /*quiet=*/false);
  }
  ve::RunUpdater();
  // A game that cannot be started is not reported: the dialogs belong to the updates.
  ve::StartProcess(ve::kGameProgram, L"", ve::kGameDirectory, /*debug=*/false);
  return 0;
}
