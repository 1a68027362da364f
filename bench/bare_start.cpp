// The least that a program can do that makes the requests of a run in which everything is current,
// with COM initialised as in the Launcher, and starts the game. The server's address is in the
// environment: LAUNCHER_BENCH_URL.
#include <windows.h>

#include <objbase.h>

#include <string>

#include "bare_requests.h"

int WINAPI WinMain(HINSTANCE, HINSTANCE, LPSTR, int) {
  static_cast<void>(CoInitialize(nullptr));
  std::wstring url(1024, L'\0');
  url.resize(GetEnvironmentVariableW(L"LAUNCHER_BENCH_URL", url.data(), 1024));
  BareRequest((url + L"redirect.txt").c_str());
  const std::wstring updates = url + L"updates/release/";
  BareRequest((updates + L"updater/updater.manifest").c_str());
  BareRequest((updates + L"updater/UpdaterData.vpak").c_str());
  BareRequest((updates + L"GameVersion.vpak").c_str());
  CoUninitialize();

  STARTUPINFOW startup{};
  startup.cb = sizeof(startup);
  PROCESS_INFORMATION game{};
  CreateProcessW(L"bin\\Velmorant Player.exe", nullptr, nullptr, nullptr, FALSE, 0, nullptr,
                 L"bin\\", &startup, &game);
  CloseHandle(game.hThread);
  CloseHandle(game.hProcess);
  return 0;
}
