#include "core/registry.h"

#include "core/windows.h"

#include <array>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <optional>
#include <string>

#include "core/format.h"
#include "core/handle.h"
#include "core/unicode.h"
#include "support/sink_recorder.h"

namespace ve {
namespace {

using test::SinkRecorder;
using testing::ElementsAre;
using testing::Pair;

/// Keys of this process's own, and the product's key for itself against other test processes.
class Registry : public testing::Test {
 protected:
  Registry()
      : mutex_(CreateMutexW(nullptr, FALSE, L"ve-test-velmorant-registry")),
        name_(Format(L"ve-test-{}", GetCurrentProcessId())),
        key_(L"SOFTWARE\\" + name_),
        productKey_(L"SOFTWARE\\Velmorant\\" + name_) {
    WaitForSingleObject(mutex_.Get(), INFINITE);
  }
  ~Registry() override {
    RegDeleteTreeW(HKEY_CURRENT_USER, key_.c_str());
    RegDeleteTreeW(HKEY_CURRENT_USER, productKey_.c_str());
    // Stays where somebody else has keys in it.
    RegDeleteKeyW(HKEY_CURRENT_USER, L"SOFTWARE\\Velmorant");
    ReleaseMutex(mutex_.Get());
  }

  static void Store(const std::wstring& key, const wchar_t* name, DWORD type, const void* data,
                    DWORD size) {
    ASSERT_EQ(RegSetKeyValueW(HKEY_CURRENT_USER, key.c_str(), name, type, data, size), 0);
  }
  static void StoreText(const std::wstring& key, const wchar_t* name, const std::wstring& text) {
    Store(key, name, REG_SZ, text.c_str(), static_cast<DWORD>((text.size() + 1) * 2));
  }

  static std::string Message(const std::wstring& key, DWORD code) {
    return Format("Failed to retrieve value of registry key '{}' (error: {}).", ToUtf8(key), code);
  }

  UniqueHandle mutex_;
  std::wstring name_;        ///< Names this process's keys.
  std::wstring key_;         ///< Below HKEY_CURRENT_USER.
  std::wstring productKey_;  ///< Below the product's key.
};

TEST_F(Registry, AStringIsRead) {
  const SinkRecorder sink;
  StoreText(key_, L"name", L"C:\\Game \x20AC");
  EXPECT_EQ(ReadRegistryString(Hive::kCurrentUser, key_, L"name"), L"C:\\Game \x20AC");
  EXPECT_TRUE(sink.Messages().empty());
}

TEST_F(Registry, AnEmptyStringIsRead) {
  const SinkRecorder sink;
  StoreText(key_, L"name", L"");
  EXPECT_EQ(ReadRegistryString(Hive::kCurrentUser, key_, L"name"), L"");
  Store(key_, L"nothing", REG_SZ, L"", 0);
  EXPECT_EQ(ReadRegistryString(Hive::kCurrentUser, key_, L"nothing"), L"");
  EXPECT_TRUE(sink.Messages().empty());
}

TEST_F(Registry, AStringStoredWithoutItsTerminatorIsRead) {
  Store(key_, L"name", REG_SZ, L"abc", 6);
  EXPECT_EQ(ReadRegistryString(Hive::kCurrentUser, key_, L"name"), L"abc");
}

TEST_F(Registry, AMissingValueIsReportedWithError2AndWithoutItsName) {
  const SinkRecorder sink;
  StoreText(key_, L"other", L"x");
  SetLastError(77);
  EXPECT_EQ(ReadRegistryString(Hive::kCurrentUser, key_, L"missing"), L"");
  EXPECT_THAT(sink.Messages(), ElementsAre(Pair(Message(key_, 2), 1U)));
}

TEST_F(Registry, AMissingKeyIsReportedWithError2) {
  const SinkRecorder sink;
  EXPECT_EQ(ReadRegistryString(Hive::kCurrentUser, key_ + L"\\\x20AC", L"name"), L"");
  EXPECT_THAT(sink.Messages(), ElementsAre(Pair(Message(key_ + L"\\\x20AC", 2), 1U)));
}

TEST_F(Registry, AValueOfAnotherTypeIsReported) {
  const SinkRecorder sink;
  const DWORD number = 5;
  Store(key_, L"number", REG_DWORD, &number, sizeof(number));
  EXPECT_EQ(ReadRegistryString(Hive::kCurrentUser, key_, L"number"), L"");
  EXPECT_THAT(sink.Messages(), ElementsAre(Pair(Message(key_, ERROR_UNSUPPORTED_TYPE), 1U)));
}

TEST_F(Registry, AValueExistsWhateverItsType) {
  const DWORD number = 5;
  StoreText(key_, L"text", L"x");
  Store(key_, L"number", REG_DWORD, &number, sizeof(number));
  EXPECT_TRUE(RegistryValueExists(Hive::kCurrentUser, key_, L"text"));
  EXPECT_TRUE(RegistryValueExists(Hive::kCurrentUser, key_, L"number"));
  const SinkRecorder sink;
  EXPECT_FALSE(RegistryValueExists(Hive::kCurrentUser, key_, L"missing"));
  EXPECT_FALSE(RegistryValueExists(Hive::kCurrentUser, key_ + L"\\missing", L"text"));
  EXPECT_TRUE(sink.Messages().empty());
}

TEST_F(Registry, TheHiveIsChosen) {
  constexpr const wchar_t* kSystem = L"SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion";
  StoreText(key_, L"name", L"x");
  EXPECT_FALSE(RegistryValueExists(Hive::kLocalMachine, key_, L"name"));
  EXPECT_TRUE(RegistryValueExists(Hive::kLocalMachine, kSystem, L"CurrentVersion"));
  EXPECT_NE(ReadRegistryString(Hive::kLocalMachine, kSystem, L"CurrentVersion"), L"");
  EXPECT_FALSE(RegistryValueExists(Hive::kCurrentUser, kSystem, L"CurrentVersion"));
}

TEST_F(Registry, ANumberIsWrittenAndItsKeyMade) {
  EXPECT_TRUE(WriteRegistryNumber(Hive::kCurrentUser, key_ + L"\\new", L"name", 4294967295U));
  DWORD type = 0;
  DWORD number = 0;
  DWORD size = sizeof(number);
  ASSERT_EQ(RegGetValueW(HKEY_CURRENT_USER, (key_ + L"\\new").c_str(), L"name", RRF_RT_ANY, &type,
                         &number, &size),
            0);
  EXPECT_EQ(type, static_cast<DWORD>(REG_DWORD));
  EXPECT_EQ(size, 4U);
  EXPECT_EQ(number, 4294967295U);
}

TEST_F(Registry, ANumberThatCannotBeWrittenIsToldByTheResultOnly) {
  const SinkRecorder sink;
  EXPECT_FALSE(WriteRegistryNumber(Hive::kCurrentUser, L"\\\\", L"name", 1));
  EXPECT_TRUE(sink.Messages().empty());
}

TEST_F(Registry, AProductStringIsWrittenWithoutItsTerminator) {
  WriteProductString(name_, L"name", std::wstring_view(L"abc and more", 3));
  HKEY key = nullptr;
  ASSERT_EQ(RegOpenKeyW(HKEY_CURRENT_USER, productKey_.c_str(), &key), 0);
  std::array<wchar_t, 16> text{};
  DWORD type = 0;
  DWORD size = sizeof(text);
  EXPECT_EQ(
      RegQueryValueExW(key, L"name", nullptr, &type, reinterpret_cast<BYTE*>(text.data()), &size),
      0);
  RegCloseKey(key);
  EXPECT_EQ(type, static_cast<DWORD>(REG_SZ));
  EXPECT_EQ(size, 6U);
  EXPECT_STREQ(text.data(), L"abc");
}

TEST_F(Registry, AProductStringThatWasWrittenIsRead) {
  const SinkRecorder sink;
  for (const wchar_t* text : {L"C:\\Game\\", L"x", L""}) {
    WriteProductString(name_, L"name", text);
    EXPECT_EQ(ReadProductString(name_, L"name"), text);
  }
  EXPECT_TRUE(sink.Messages().empty());
}

TEST_F(Registry, AMissingProductStringIsReportedWithTheWholeKey) {
  const SinkRecorder sink;
  EXPECT_EQ(ReadProductString(name_, L"name"), L"");
  EXPECT_THAT(sink.Messages(), ElementsAre(Pair(Message(productKey_, 2), 1U)));
}

TEST_F(Registry, ThePlayersLastBuildStandsInTheProductsKey) {
  constexpr const wchar_t* kPlayer = L"SOFTWARE\\Velmorant\\Player";
  HKEY existing = nullptr;
  const bool hadKey = RegOpenKeyW(HKEY_CURRENT_USER, kPlayer, &existing) == 0;
  if (hadKey) RegCloseKey(existing);
  std::array<wchar_t, 1024> before{};
  DWORD size = sizeof(before);
  const bool hadValue = RegGetValueW(HKEY_CURRENT_USER, kPlayer, L"LastBuild", RRF_RT_REG_SZ,
                                     nullptr, before.data(), &size) == 0;

  StoreText(kPlayer, L"LastBuild", L"D:\\Build");
  EXPECT_EQ(ReadProductString(L"Player", L"LastBuild"), L"D:\\Build");

  if (hadValue) {
    StoreText(kPlayer, L"LastBuild", before.data());
  } else if (hadKey) {
    RegDeleteKeyValueW(HKEY_CURRENT_USER, kPlayer, L"LastBuild");
  } else {
    RegDeleteTreeW(HKEY_CURRENT_USER, kPlayer);
  }
}

TEST_F(Registry, NamesAreUsedUpTo255Characters) {
  const std::wstring longest(255, L'n');
  StoreText(key_, longest.c_str(), L"x");
  EXPECT_EQ(ReadRegistryString(Hive::kCurrentUser, key_, longest), L"x");
  EXPECT_EQ(ReadRegistryString(Hive::kCurrentUser, key_, longest + L"more"), L"x");
  EXPECT_TRUE(RegistryValueExists(Hive::kCurrentUser, key_, longest + L"more"));
}

}  // namespace
}  // namespace ve
