// An empty HKEY_CURRENT_USER that only this process sees.
#pragma once

#include "core/windows.h"

#include <gtest/gtest.h>
#include <string>

#include "core/format.h"
#include "core/handle.h"

namespace ve::test {

struct RegistryKeyPolicy {
  using Value = HKEY;
  static Value Empty() noexcept { return nullptr; }
  static bool Close(Value key) noexcept { return RegCloseKey(key) == ERROR_SUCCESS; }
};
using UniqueRegistryKey = Unique<RegistryKeyPolicy>;

/// While it exists, HKEY_CURRENT_USER is a temporary key, removed with everything in it at the end.
class PrivateRegistry {
 public:
  PrivateRegistry() : name_(Format(L"Software\\ve-test-{}", GetCurrentProcessId())) {
    EXPECT_EQ(RegCreateKeyW(HKEY_CURRENT_USER, name_.c_str(), key_.Receive()), ERROR_SUCCESS);
    EXPECT_EQ(RegOverridePredefKey(HKEY_CURRENT_USER, key_.Get()), ERROR_SUCCESS);
  }
  PrivateRegistry(const PrivateRegistry&) = delete;
  PrivateRegistry& operator=(const PrivateRegistry&) = delete;
  ~PrivateRegistry() {
    EXPECT_EQ(RegOverridePredefKey(HKEY_CURRENT_USER, nullptr), ERROR_SUCCESS);
    key_.Reset();
    EXPECT_EQ(RegDeleteTreeW(HKEY_CURRENT_USER, name_.c_str()), ERROR_SUCCESS);
  }

 private:
  std::wstring name_;
  UniqueRegistryKey key_;
};

}  // namespace ve::test
