// Registry values. Keys and value names are used up to 255 characters. Only reading reports its
// failures, to the message sink at level 1.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace ve {

/// Where the product's own keys stand in HKEY_CURRENT_USER.
inline constexpr std::wstring_view kProductKey = L"SOFTWARE\\Velmorant\\";

/// Which hive a key is in.
enum class Hive : bool { kLocalMachine = false, kCurrentUser = true };

/// Whether the value can be queried, whatever its type.
[[nodiscard]] bool RegistryValueExists(Hive hive, std::wstring_view subkey, std::wstring_view name);

/// The string value (REG_SZ); empty if it cannot be read.
[[nodiscard]] std::wstring ReadRegistryString(Hive hive, std::wstring_view subkey,
                                              std::wstring_view name);

/// The same, of a key below the product's in HKEY_CURRENT_USER.
[[nodiscard]] std::wstring ReadProductString(std::wstring_view subkey, std::wstring_view name);

/// Writes a REG_DWORD, making the key when it is missing.
bool WriteRegistryNumber(Hive hive, std::wstring_view subkey, std::wstring_view name,
                         std::uint32_t number);

/// Writes a REG_SZ below the product's key. The size given to Windows leaves the
/// terminator out.
void WriteProductString(std::wstring_view subkey, std::wstring_view name, std::wstring_view text);

}  // namespace ve
