#include "core/registry.h"

#include "core/windows.h"

#include "core/format.h"
#include "core/message_sink.h"
#include "core/truncated_string.h"
#include "core/unicode.h"

namespace ve {
namespace {

HKEY KeyOf(Hive hive) {
  return hive == Hive::kCurrentUser ? HKEY_CURRENT_USER : HKEY_LOCAL_MACHINE;
}

std::wstring ProductSubkey(std::wstring_view subkey) {
  return Format(L"{}{}", kProductKey, subkey);
}

}  // namespace

bool RegistryValueExists(Hive hive, std::wstring_view subkey, std::wstring_view name) {
  return RegGetValueW(KeyOf(hive), WidePath(subkey).Get(), WidePath(name).Get(), RRF_RT_ANY,
                      nullptr, nullptr, nullptr) == ERROR_SUCCESS;
}

std::wstring ReadRegistryString(Hive hive, std::wstring_view subkey, std::wstring_view name) {
  const WidePath subkeyText(subkey);
  const WidePath nameText(name);
  DWORD bytes = 0;
  const LSTATUS status = RegGetValueW(KeyOf(hive), subkeyText.Get(), nameText.Get(), RRF_RT_REG_SZ,
                                      nullptr, nullptr, &bytes);
  if (status != ERROR_SUCCESS) {
    FormatToSink("Failed to retrieve value of registry key '{}' (error: {}).", 1, ToUtf8(subkey),
                 status);
    return {};
  }

  const std::size_t characters = bytes / sizeof(wchar_t);
  std::wstring text(characters, L'\0');
  RegGetValueW(KeyOf(hive), subkeyText.Get(), nameText.Get(), RRF_RT_REG_SZ, nullptr, text.data(),
               &bytes);
  // The size counts the terminator. A value stored with no bytes at all may report none.
  text.resize(characters > 0 ? characters - 1 : 0);
  return text;
}

std::wstring ReadProductString(std::wstring_view subkey, std::wstring_view name) {
  return ReadRegistryString(Hive::kCurrentUser, ProductSubkey(subkey), name);
}

bool WriteRegistryNumber(Hive hive, std::wstring_view subkey, std::wstring_view name,
                         std::uint32_t number) {
  return RegSetKeyValueW(KeyOf(hive), WidePath(subkey).Get(), WidePath(name).Get(), REG_DWORD,
                         &number, sizeof(number)) == ERROR_SUCCESS;
}

void WriteProductString(std::wstring_view subkey, std::wstring_view name, std::wstring_view text) {
  // Terminated, because Windows looks at the character behind the stated size.
  const std::wstring value(text);
  RegSetKeyValueW(HKEY_CURRENT_USER, WidePath(ProductSubkey(subkey)).Get(), WidePath(name).Get(),
                  REG_SZ, value.c_str(), static_cast<DWORD>(value.size() * sizeof(wchar_t)));
}

}  // namespace ve
