// Programs of the system that Wine runs on, for what Wine itself cannot do, such as making links.
#pragma once

#include "core/windows.h"

#include <string>

#include "core/handle.h"

namespace ve::test {

/// Starts a program of the host without waiting for it. False on Windows, which has no host.
[[nodiscard]] inline bool RunOnHost(const wchar_t* program, std::wstring command) {
  STARTUPINFOW startup{};
  startup.cb = sizeof(startup);
  PROCESS_INFORMATION started{};
  if (CreateProcessW(program, command.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr,
                     &startup, &started) == FALSE) {
    return false;
  }
  const UniqueHandle process(started.hProcess);
  const UniqueHandle thread(started.hThread);
  return true;
}

}  // namespace ve::test
