// Registry values.
//
//   const std::wstring lastBuild = ve::ReadProductString(L"Player", L"LastBuild");
//
// Keys and value names are truncated to 255 characters. Nothing here throws; only reading reports
// its failures, to the message sink at level 1.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace ve {

/// The key in HKEY_CURRENT_USER that holds the product's own keys.
inline constexpr std::wstring_view kProductKey = L"SOFTWARE\\Velmorant\\";

/// The hive that a key is in.
enum class Hive : bool { kLocalMachine = false, kCurrentUser = true };

/// The string value (REG_SZ); empty if it cannot be read.
/// https://learn.microsoft.com/windows/win32/api/winreg/nf-winreg-reggetvaluew
[[nodiscard]] std::wstring ReadRegistryString(Hive hive, std::wstring_view subkey,
                                              std::wstring_view name);

/// `ReadRegistryString` of a key below the product's. The two are joined, then truncated.
[[nodiscard]] std::wstring ReadProductString(std::wstring_view subkey, std::wstring_view name);

// Not called by the Launcher, which never writes to the registry; part of the support library.

/// Whether the value exists, of any type.
[[nodiscard]] bool RegistryValueExists(Hive hive, std::wstring_view subkey, std::wstring_view name);

/// Writes a REG_DWORD and creates the key if it is missing. Returns whether that worked.
/// https://learn.microsoft.com/windows/win32/api/winreg/nf-winreg-regsetkeyvaluew
bool WriteRegistryNumber(Hive hive, std::wstring_view subkey, std::wstring_view name,
                         std::uint32_t number);

/// Writes a REG_SZ below the product's key. The size given to Windows does not count the
/// terminator. Failures are ignored.
void WriteProductString(std::wstring_view subkey, std::wstring_view name, std::wstring_view text);

}  // namespace ve
