#include "core/registry.h"

#include "core/windows.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "core/format.h"
#include "core/unicode.h"
#include "support/private_registry.h"
#include "support/replaced_call.h"
#include "support/sink_recorder.h"

extern "C" void* VE_IMPORTED(RegGetValueW);
extern "C" void* VE_IMPORTED(RegSetKeyValueW);

namespace ve {
namespace {

using test::ReplacedCall;
using test::SinkRecorder;
using testing::ElementsAre;
using testing::Optional;
using testing::Pair;

const std::wstring kKey = L"SOFTWARE\\Some key";
const std::wstring kProductSubkey = L"SOFTWARE\\Velmorant\\Some key";

/// The arguments of one RegSetKeyValueW.
struct Write {
  HKEY hive;
  std::wstring key;
  std::wstring name;
  DWORD type;
  std::string data;

  bool operator==(const Write&) const = default;
};

/// Records the last RegSetKeyValueW while it exists. Nothing is written.
class WriteRecorder {
 public:
  explicit WriteRecorder(LSTATUS result = ERROR_SUCCESS) {
    result_ = result;
    recorded_.reset();
  }

  [[nodiscard]] const std::optional<Write>& Recorded() const { return recorded_; }
  /// The character behind the data, if that was text.
  [[nodiscard]] wchar_t CharacterBehind() const { return characterBehind_; }

 private:
  static LSTATUS WINAPI Record(HKEY hive, const wchar_t* key, const wchar_t* name, DWORD type,
                               const void* data, DWORD size) {
    recorded_ = {hive, key, name, type, std::string(static_cast<const char*>(data), size)};
    if (type == REG_SZ) characterBehind_ = static_cast<const wchar_t*>(data)[size / 2];
    return result_;
  }

  inline static LSTATUS result_ = ERROR_SUCCESS;
  inline static std::optional<Write> recorded_;
  inline static wchar_t characterBehind_ = L'x';
  ReplacedCall replaced_{VE_IMPORTED(RegSetKeyValueW), &Record};
};

/// The arguments of one RegGetValueW.
struct Query {
  HKEY hive;
  std::wstring key;
  std::wstring name;
  DWORD flags;
  bool hasType;
  std::optional<DWORD> roomForData;  ///< None without a buffer for the data.
  bool hasSize;

  bool operator==(const Query&) const = default;
};

/// Records every RegGetValueW while it exists. The value is the text "abc".
class QueryRecorder {
 public:
  explicit QueryRecorder(LSTATUS result = ERROR_SUCCESS) {
    result_ = result;
    recorded_.clear();
  }

  [[nodiscard]] const std::vector<Query>& Recorded() const { return recorded_; }

 private:
  static LSTATUS WINAPI Record(HKEY hive, const wchar_t* key, const wchar_t* name, DWORD flags,
                               DWORD* type, void* data, DWORD* size) {
    constexpr std::wstring_view kText(L"abc", 4);
    recorded_.push_back({hive, key, name, flags, type != nullptr,
                         data == nullptr ? std::nullopt : std::optional(*size), size != nullptr});
    if (data != nullptr) kText.copy(static_cast<wchar_t*>(data), *size / sizeof(wchar_t));
    if (size != nullptr) *size = kText.size() * sizeof(wchar_t);
    return result_;
  }

  inline static LSTATUS result_ = ERROR_SUCCESS;
  inline static std::vector<Query> recorded_;
  ReplacedCall replaced_{VE_IMPORTED(RegGetValueW), &Record};
};

class Registry : public testing::Test {
 protected:
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

 private:
  test::PrivateRegistry registry_;
};

TEST_F(Registry, AStringIsRead) {
  const SinkRecorder sink;
  StoreText(kKey, L"name", L"C:\\Game \x20AC");
  EXPECT_EQ(ReadRegistryString(Hive::kCurrentUser, kKey, L"name"), L"C:\\Game \x20AC");
  EXPECT_TRUE(sink.Messages().empty());
}

constexpr DWORD kStringOnly = 2;  // RRF_RT_REG_SZ, without RRF_NOEXPAND.
constexpr DWORD kAnyType = 0xFFFF;

TEST(RegistryQuery, AStringIsReadByOneQueryForItsSizeAndOneForItsText) {
  for (const auto& [hive, key] : {std::pair(Hive::kCurrentUser, HKEY_CURRENT_USER),
                                  std::pair(Hive::kLocalMachine, HKEY_LOCAL_MACHINE)}) {
    const QueryRecorder queries;
    EXPECT_EQ(ReadRegistryString(hive, kKey, L"name"), L"abc");
    EXPECT_THAT(queries.Recorded(),
                ElementsAre(Query{key, kKey, L"name", kStringOnly, false, {}, true},
                            Query{key, kKey, L"name", kStringOnly, false, 8, true}));
  }
}

TEST(RegistryQuery, AValuesExistenceIsAskedWithoutItsData) {
  for (const auto& [hive, key] : {std::pair(Hive::kCurrentUser, HKEY_CURRENT_USER),
                                  std::pair(Hive::kLocalMachine, HKEY_LOCAL_MACHINE)}) {
    const QueryRecorder queries;
    EXPECT_TRUE(RegistryValueExists(hive, kKey, L"name"));
    EXPECT_THAT(queries.Recorded(),
                ElementsAre(Query{key, kKey, L"name", kAnyType, false, {}, false}));
  }
}

TEST(RegistryQuery, AnyErrorMeansThatAValueDoesNotExist) {
  for (const LSTATUS error : {ERROR_FILE_NOT_FOUND, ERROR_ACCESS_DENIED, ERROR_MORE_DATA, -1L}) {
    const QueryRecorder queries(error);
    EXPECT_FALSE(RegistryValueExists(Hive::kCurrentUser, kKey, L"name")) << error;
  }
}

TEST(RegistryQuery, AProductStringIsReadFromTheCurrentUsersProductKey) {
  const QueryRecorder queries;
  EXPECT_EQ(ReadProductString(L"Some key", L"name"), L"abc");
  const Query size{HKEY_CURRENT_USER, kProductSubkey, L"name", kStringOnly, false, {}, true};
  ASSERT_EQ(queries.Recorded().size(), 2U);
  EXPECT_EQ(queries.Recorded()[0], size);
  EXPECT_EQ(queries.Recorded()[1].key, kProductSubkey);
}

TEST(RegistryQuery, TheProductKeyAndTheSubkeyAreJoinedThenCutAt255Characters) {
  const std::wstring subkey(300, L'k');
  const std::wstring cut = (L"SOFTWARE\\Velmorant\\" + subkey).substr(0, 255);
  {
    const QueryRecorder queries;
    EXPECT_EQ(ReadProductString(subkey, L"name"), L"abc");
    ASSERT_EQ(queries.Recorded().size(), 2U);
    EXPECT_EQ(queries.Recorded()[0].key, cut);
    EXPECT_EQ(queries.Recorded()[1].key, cut);
  }
  const WriteRecorder write;
  WriteProductString(subkey, L"name", L"x");
  ASSERT_TRUE(write.Recorded().has_value());
  EXPECT_EQ(write.Recorded()->key, cut);
}

TEST(RegistryQuery, TheMessageOfAFailureShowsTheKeyUncut) {
  const SinkRecorder sink;
  const QueryRecorder queries(ERROR_ACCESS_DENIED);
  EXPECT_EQ(ReadRegistryString(Hive::kCurrentUser, std::wstring(300, L'k'), L"name"), L"");
  EXPECT_EQ(ReadProductString(std::wstring(300, L'k'), L"name"), L"");
  EXPECT_EQ(queries.Recorded().size(), 2U);
  const std::string key(300, 'k');
  EXPECT_THAT(
      sink.Messages(),
      ElementsAre(Pair("Failed to retrieve value of registry key '" + key + "' (error: 5).", 1U),
                  Pair("Failed to retrieve value of registry key 'SOFTWARE\\Velmorant\\" + key +
                           "' (error: 5).",
                       1U)));
}

TEST_F(Registry, AStringWithVariablesIsReadWithTheirValues) {
  SetEnvironmentVariableW(L"VE_TEST_VARIABLE", L"value");
  Store(kKey, L"name", REG_EXPAND_SZ, L"a %VE_TEST_VARIABLE%", 42);
  EXPECT_TRUE(RegistryValueExists(Hive::kCurrentUser, kKey, L"name"));
  EXPECT_TRUE(ReadRegistryString(Hive::kCurrentUser, kKey, L"name").starts_with(L"a value"));
  SetEnvironmentVariableW(L"VE_TEST_VARIABLE", nullptr);
}

TEST_F(Registry, AnEmptyStringIsRead) {
  const SinkRecorder sink;
  StoreText(kKey, L"name", L"");
  EXPECT_EQ(ReadRegistryString(Hive::kCurrentUser, kKey, L"name"), L"");
  Store(kKey, L"nothing", REG_SZ, L"", 0);
  EXPECT_EQ(ReadRegistryString(Hive::kCurrentUser, kKey, L"nothing"), L"");
  EXPECT_TRUE(sink.Messages().empty());
}

TEST_F(Registry, AStringStoredWithoutItsTerminatorIsRead) {
  Store(kKey, L"name", REG_SZ, L"abc", 6);
  EXPECT_EQ(ReadRegistryString(Hive::kCurrentUser, kKey, L"name"), L"abc");
}

TEST_F(Registry, AStringWhoseSecondQueryFailsConsistsOfNuls) {
  const SinkRecorder sink;
  static int calls;
  calls = 0;
  const ReplacedCall failing(
      VE_IMPORTED(RegGetValueW),
      +[](HKEY, const wchar_t*, const wchar_t*, DWORD, DWORD*, void*, DWORD* size) -> LSTATUS {
        if (++calls > 1) return ERROR_ACCESS_DENIED;
        *size = 8;
        return ERROR_SUCCESS;
      });
  EXPECT_EQ(ReadRegistryString(Hive::kCurrentUser, kKey, L"name"), std::wstring(3, L'\0'));
  EXPECT_EQ(calls, 2);
  EXPECT_TRUE(sink.Messages().empty());
}

TEST_F(Registry, AMissingValueIsReportedWithError2AndWithoutItsName) {
  const SinkRecorder sink;
  StoreText(kKey, L"other", L"x");
  SetLastError(77);
  EXPECT_EQ(ReadRegistryString(Hive::kCurrentUser, kKey, L"missing"), L"");
  EXPECT_THAT(sink.Messages(), ElementsAre(Pair(Message(kKey, 2), 1U)));
}

TEST_F(Registry, AMissingKeyIsReportedWithError2) {
  const SinkRecorder sink;
  EXPECT_EQ(ReadRegistryString(Hive::kCurrentUser, kKey + L"\\\x20AC", L"name"), L"");
  EXPECT_THAT(sink.Messages(), ElementsAre(Pair(Message(kKey + L"\\\x20AC", 2), 1U)));
}

TEST_F(Registry, AValueOfAnotherTypeIsReported) {
  const SinkRecorder sink;
  const DWORD number = 5;
  Store(kKey, L"number", REG_DWORD, &number, sizeof(number));
  EXPECT_EQ(ReadRegistryString(Hive::kCurrentUser, kKey, L"number"), L"");
  EXPECT_THAT(sink.Messages(), ElementsAre(Pair(Message(kKey, ERROR_UNSUPPORTED_TYPE), 1U)));
}

TEST_F(Registry, AValueExistsWhateverItsType) {
  const DWORD number = 5;
  StoreText(kKey, L"text", L"x");
  Store(kKey, L"number", REG_DWORD, &number, sizeof(number));
  EXPECT_TRUE(RegistryValueExists(Hive::kCurrentUser, kKey, L"text"));
  EXPECT_TRUE(RegistryValueExists(Hive::kCurrentUser, kKey, L"number"));
  const SinkRecorder sink;
  EXPECT_FALSE(RegistryValueExists(Hive::kCurrentUser, kKey, L"missing"));
  EXPECT_FALSE(RegistryValueExists(Hive::kCurrentUser, kKey + L"\\missing", L"text"));
  EXPECT_TRUE(sink.Messages().empty());
}

TEST_F(Registry, ValuesAreReadFromTheGivenHive) {
  constexpr const wchar_t* kSystem = L"SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion";
  StoreText(kKey, L"name", L"x");
  EXPECT_FALSE(RegistryValueExists(Hive::kLocalMachine, kKey, L"name"));
  EXPECT_TRUE(RegistryValueExists(Hive::kLocalMachine, kSystem, L"CurrentVersion"));
  EXPECT_NE(ReadRegistryString(Hive::kLocalMachine, kSystem, L"CurrentVersion"), L"");
  EXPECT_FALSE(RegistryValueExists(Hive::kCurrentUser, kSystem, L"CurrentVersion"));
}

TEST_F(Registry, ANumberIsWrittenAndItsKeyCreated) {
  EXPECT_TRUE(WriteRegistryNumber(Hive::kCurrentUser, kKey + L"\\new", L"name", 4294967295U));
  DWORD type = 0;
  DWORD number = 0;
  DWORD size = sizeof(number);
  ASSERT_EQ(RegGetValueW(HKEY_CURRENT_USER, (kKey + L"\\new").c_str(), L"name", RRF_RT_ANY, &type,
                         &number, &size),
            0);
  EXPECT_EQ(type, static_cast<DWORD>(REG_DWORD));
  EXPECT_EQ(size, 4U);
  EXPECT_EQ(number, 4294967295U);
}

TEST_F(Registry, ANumberIsWrittenIntoTheGivenHive) {
  const WriteRecorder write;
  for (const auto& [hive, key] : {std::pair(Hive::kCurrentUser, HKEY_CURRENT_USER),
                                  std::pair(Hive::kLocalMachine, HKEY_LOCAL_MACHINE)}) {
    EXPECT_TRUE(WriteRegistryNumber(hive, kKey, L"name", 0x01020304));
    EXPECT_THAT(write.Recorded(),
                Optional(Write{key, kKey, L"name", REG_DWORD, "\x04\x03\x02\x01"}));
  }
}

TEST_F(Registry, ANumberThatCannotBeWrittenIsReturnedAsFalseAndNotReported) {
  const SinkRecorder sink;
  EXPECT_FALSE(WriteRegistryNumber(Hive::kCurrentUser, L"\\\\", L"name", 1));
  EXPECT_TRUE(sink.Messages().empty());
}

TEST_F(Registry, AProductStringIsWrittenWithoutItsTerminator) {
  const WriteRecorder write;
  WriteProductString(L"Some key", L"name", std::wstring_view(L"ab\x20AC and more", 3));
  EXPECT_THAT(write.Recorded(), Optional(Write{HKEY_CURRENT_USER, kProductSubkey, L"name", REG_SZ,
                                               std::string("a\0b\0\xAC\x20", 6)}));
  // Windows may read the character behind the stated size.
  EXPECT_EQ(write.CharacterBehind(), L'\0');
}

TEST_F(Registry, AProductStringThatCannotBeWrittenIsNotReported) {
  const SinkRecorder sink;
  const WriteRecorder failing(ERROR_ACCESS_DENIED);
  EXPECT_NO_THROW(WriteProductString(L"Some key", L"name", L"x"));
  EXPECT_TRUE(failing.Recorded().has_value());
  EXPECT_TRUE(sink.Messages().empty());
}

TEST_F(Registry, AProductStringThatWasWrittenIsRead) {
  const SinkRecorder sink;
  for (const wchar_t* text : {L"C:\\Game\\", L"x", L""}) {
    WriteProductString(L"Some key", L"name", text);
    EXPECT_EQ(ReadProductString(L"Some key", L"name"), text);
  }
  EXPECT_TRUE(sink.Messages().empty());
}

TEST_F(Registry, AMissingProductStringIsReportedWithTheWholeKey) {
  const SinkRecorder sink;
  EXPECT_EQ(ReadProductString(L"Some key", L"name"), L"");
  EXPECT_THAT(sink.Messages(), ElementsAre(Pair(Message(kProductSubkey, 2), 1U)));
}

TEST_F(Registry, TheLastBuildIsReadFromTheKeyPlayerOfTheProduct) {
  StoreText(L"SOFTWARE\\Velmorant\\Player", L"LastBuild", L"D:\\Build");
  EXPECT_EQ(ReadProductString(L"Player", L"LastBuild"), L"D:\\Build");
}

TEST_F(Registry, KeysAreUsedUpTo255Characters) {
  const std::wstring longest = L"a\\" + std::wstring(253, L'k');
  StoreText(longest, L"name", L"x");
  EXPECT_EQ(ReadRegistryString(Hive::kCurrentUser, longest, L"name"), L"x");
  EXPECT_EQ(ReadRegistryString(Hive::kCurrentUser, longest + L"more", L"name"), L"x");
  EXPECT_TRUE(RegistryValueExists(Hive::kCurrentUser, longest + L"more", L"name"));
  EXPECT_TRUE(WriteRegistryNumber(Hive::kCurrentUser, longest + L"more", L"number", 1));
  EXPECT_TRUE(RegistryValueExists(Hive::kCurrentUser, longest, L"number"));
}

TEST_F(Registry, NamesAreUsedUpTo255Characters) {
  const std::wstring longest(255, L'n');
  StoreText(kKey, longest.c_str(), L"x");
  EXPECT_EQ(ReadRegistryString(Hive::kCurrentUser, kKey, longest), L"x");
  EXPECT_EQ(ReadRegistryString(Hive::kCurrentUser, kKey, longest + L"more"), L"x");
  EXPECT_TRUE(RegistryValueExists(Hive::kCurrentUser, kKey, longest + L"more"));
  EXPECT_TRUE(WriteRegistryNumber(Hive::kCurrentUser, L"numbers", longest + L"more", 1));
  EXPECT_TRUE(RegistryValueExists(Hive::kCurrentUser, L"numbers", longest));
  WriteProductString(L"Some key", longest + L"more", L"y");
  EXPECT_EQ(ReadProductString(L"Some key", longest), L"y");
}

}  // namespace
}  // namespace ve
