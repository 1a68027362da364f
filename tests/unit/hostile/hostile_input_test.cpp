// Every reader of data from outside, fed valid files with seeded damage.
//
// The input ends exactly at a page that cannot be accessed, so that reading one byte too far ends
// the process. Where a reader takes a std::string, the string's own buffer is laid there, by this
// program's operator new; only the terminator that belongs to every string stands behind its text.
// All that a reader may do with any input is to return a value within its rules or to throw one of
// its own exceptions with a message.

#include "core/windows.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <gtest/gtest.h>
#include <iostream>
#include <iterator>
#include <new>
#include <optional>
#include <random>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "archive/archive_reader.h"
#include "archive/archive_writer.h"
#include "archive/updater_settings.h"
#include "core/errors.h"
#include "core/format.h"
#include "support/temp_folder.h"
#include "updater/game_manifest.h"
#include "updater/game_version.h"
#include "updater/manifest_text.h"
#include "updater/updater_manifest.h"

namespace ve {
namespace {

constexpr std::size_t kPage = 4096;
constexpr std::size_t kReadable = 4 * kPage;

/// Some pages of memory with an inaccessible one behind them.
class GuardedMemory {
 public:
  GuardedMemory()
      : begin_(static_cast<char*>(
            VirtualAlloc(nullptr, kReadable + kPage, MEM_RESERVE | MEM_COMMIT, PAGE_READWRITE))) {
    DWORD before = 0;
    if (begin_ == nullptr ||
        VirtualProtect(begin_ + kReadable, kPage, PAGE_NOACCESS, &before) == FALSE) {
      std::abort();
    }
  }
  GuardedMemory(const GuardedMemory&) = delete;
  GuardedMemory& operator=(const GuardedMemory&) = delete;
  ~GuardedMemory();

  /// The last `size` bytes before the inaccessible page.
  [[nodiscard]] char* Last(std::size_t size) noexcept { return begin_ + kReadable - size; }
  [[nodiscard]] bool Holds(const void* address) const noexcept {
    return address >= begin_ && address < begin_ + kReadable;
  }

  /// The bytes, copied so that they end where the memory does.
  [[nodiscard]] std::string_view Lay(std::string_view bytes) noexcept {
    if (bytes.empty()) return {Last(0), 0};
    std::memcpy(Last(bytes.size()), bytes.data(), bytes.size());
    return {Last(bytes.size()), bytes.size()};
  }
  [[nodiscard]] std::wstring_view LayWide(std::string_view bytes) noexcept {
    const std::string_view laid = Lay(bytes.substr(0, bytes.size() / 2 * 2));
    return {reinterpret_cast<const wchar_t*>(laid.data()), laid.size() / 2};
  }

 private:
  char* begin_;
};

/// The memory that the next allocation comes from; null for the heap.
GuardedMemory* nextAllocation = nullptr;
/// The memory that an allocation came from, which must not go back to the heap.
GuardedMemory* allocatedFrom = nullptr;

GuardedMemory::~GuardedMemory() {
  if (allocatedFrom == this) allocatedFrom = nullptr;
  VirtualFree(begin_, 0, MEM_RELEASE);
}

/// A string whose buffer ends at the border, unless it is so short (up to 15 bytes) that the string
/// holds it in itself.
std::string GuardedString(GuardedMemory& memory, std::string_view text) {
  constexpr std::size_t kLongestHeldInside = 15;
  if (text.size() <= kLongestHeldInside) return std::string(text);
  allocatedFrom = &memory;
  nextAllocation = &memory;
  std::string guarded(text);
  EXPECT_EQ(nextAllocation, nullptr);
  EXPECT_EQ(guarded.data() + guarded.size() + 1, memory.Last(0));
  return guarded;
}

/// Whether `part` lies in `whole`.
template <class Char>
bool Within(std::basic_string_view<Char> part, std::string_view whole) {
  const auto* begin = reinterpret_cast<const char*>(part.data());
  return part.empty() || (begin >= whole.data() &&
                          begin + part.size() * sizeof(Char) <= whole.data() + whole.size());
}

/// Damages inputs, the same way in every run.
class Mutator {
 public:
  explicit Mutator(std::uint64_t seed) : random_(seed) { std::cout << "seed " << seed << '\n'; }

  /// One of the files, damaged up to four times. Now and then it stays as it is.
  std::string Next(const std::vector<std::string>& files) {
    std::string bytes = files[Below(files.size())];
    for (std::size_t damage = Below(5); damage > 0; --damage) Damage(bytes, files);
    bytes.resize(std::min(bytes.size(), kPage));
    return bytes;
  }

  std::size_t Below(std::size_t limit) { return static_cast<std::size_t>(random_() % limit); }

 private:
  void Damage(std::string& bytes, const std::vector<std::string>& files) {
    const std::size_t at = Below(bytes.size() + 1);
    const std::size_t left = bytes.size() - at;
    switch (Below(9)) {
      case 0:
        if (left > 0) bytes[at] = static_cast<char>(bytes[at] ^ (1 << Below(8)));
        break;
      case 1:
        bytes.resize(at);
        break;
      case 2:
        bytes.insert(at, 1 + Below(8), static_cast<char>(Below(256)));
        break;
      case 3:  // A piece once more, somewhere else.
        bytes.insert(Below(bytes.size() + 1), bytes.substr(at, 1 + Below(40)));
        break;
      case 4: {  // Goes on as another file does.
        const std::string& other = files[Below(files.size())];
        bytes.replace(at, left, other, Below(other.size()), std::string::npos);
        break;
      }
      case 5:
        bytes.erase(at, 1 + Below(16));
        break;
      case 6: {  // A number at the edge of its type, in binary.
        const std::uint32_t number = kNumbers[Below(std::size(kNumbers))];
        if (left >= sizeof(number)) std::memcpy(bytes.data() + at, &number, sizeof(number));
        break;
      }
      case 7:
        BigDecimal(bytes, at);
        break;
      default:  // What means something to one reader or another.
        bytes.insert(at, kTokens[Below(std::size(kTokens))]);
        break;
    }
  }

  /// Puts a large number in the place of the next one.
  void BigDecimal(std::string& bytes, std::size_t at) {
    const std::size_t begin = bytes.find_first_of("0123456789", at);
    if (begin == std::string::npos) return;
    const std::size_t end = bytes.find_first_not_of("0123456789", begin);
    bytes.replace(begin, end == std::string::npos ? end : end - begin,
                  kDecimals[Below(std::size(kDecimals))]);
  }

  static constexpr std::uint32_t kNumbers[] = {0,          1,          4,          0x7FFFFFFF,
                                               0x80000000, 0x80000001, 0xFFFFFFFC, 0xFFFFFFFF};
  static constexpr std::string_view kDecimals[] = {
      "0",          "-1",          "2147483648", "4294967295",           "4294967296",
      "4294967297", "-2147483648", "255",        "18446744073709551615", "18446744073709551616"};
  static constexpr std::string_view kTokens[] = {"\n", "\r", ": ", ":",  " ",    "'",   "''",
                                                 "-",  "{",  "}",  "{}", "{-1}", "\r\n"};
  std::mt19937_64 random_;
};

/// How the cases of one reader ended.
struct Outcomes {
  std::uint64_t accepted = 0;
  std::uint64_t rejected = 0;
  std::uint64_t wrong = 0;

  void ExpectBothKinds(std::uint64_t cases) const {
    std::cout << accepted << " accepted, " << rejected << " rejected\n";
    EXPECT_EQ(wrong, 0U);
    EXPECT_EQ(accepted + rejected, cases);
    EXPECT_GT(accepted, cases / 1000);
    EXPECT_GT(rejected, cases / 1000);
  }
};

/// The input as hexadecimal digits, to reproduce a case from a report.
std::string Hex(std::string_view bytes) {
  constexpr std::string_view kDigits = "0123456789abcdef";
  std::string hex;
  for (const char byte : bytes) {
    hex += kDigits[static_cast<unsigned char>(byte) >> 4];
    hex += kDigits[static_cast<unsigned char>(byte) & 0xF];
  }
  return hex;
}

/// Counts one case. `read` tells whether the value that it got is within the rules.
template <class Read>
void Count(Outcomes& outcomes, std::string_view input, const Read& read) {
  const auto wrong = [&](std::string_view what) {
    // A reader that is broken is broken often: the first cases say enough.
    if (++outcomes.wrong <= 5) ADD_FAILURE() << what << " for " << Hex(input);
  };
  try {
    if (read()) {
      ++outcomes.accepted;
    } else {
      wrong("value outside the rules");
    }
  } catch (const file::MappedFileException& error) {
    wrong(error.what());
  } catch (const file::FileException& error) {
    std::string_view(error.what()).empty() ? wrong("no message") : void(++outcomes.rejected);
  } catch (const sdk::UpdaterException& error) {
    std::string_view(error.what()).empty() ? wrong("no message") : void(++outcomes.rejected);
  } catch (const std::exception& error) {
    wrong(error.what());
  } catch (...) {
    wrong("unknown exception");
  }
}

// ---- Archives ----

std::string Settings(file::ArchiveMode mode, std::wstring_view url, std::wstring_view channel) {
  file::ArchiveWriter writer(mode);
  writer.WriteString("UpdaterData");
  writer.WriteU32(1);
  writer.WriteWideString(url);
  writer.WriteWideString(channel);
  return writer.Bytes();
}

std::string Version(file::ArchiveMode mode, std::uint8_t word) {
  std::array<std::byte, 16> block{};
  block[0] = std::byte{word};
  block[15] = std::byte{0x80};
  file::ArchiveWriter writer(mode);
  writer.WriteString("GameVersion");
  writer.WriteU32(1);
  writer.WriteBlock16(block);
  return writer.Bytes();
}

constexpr file::ArchiveMode kModes[] = {file::ArchiveMode::kPlain, file::ArchiveMode::kChecked};

class HostileArchives : public testing::TestWithParam<file::ArchiveMode> {};
INSTANTIATE_TEST_SUITE_P(BothModes, HostileArchives, testing::ValuesIn(kModes));

TEST_P(HostileArchives, UpdaterSettingsAreReadOrRejected) {
  constexpr std::uint64_t kCases = 200'000;
  const std::vector<std::string> files{Settings(GetParam(), L"http://127.0.0.1:8080/", L"release"),
                                       Settings(GetParam(), L"u", L"demo"),
                                       Settings(GetParam(), L"http://\x20AC/", L"alpha")};
  Mutator mutator(0x5E771265);
  GuardedMemory memory;
  Outcomes outcomes;
  for (std::uint64_t i = 0; i < kCases; ++i) {
    const std::string_view input = memory.Lay(mutator.Next(files));
    Count(outcomes, input, [&] {
      const sdk::UpdaterSettings settings = sdk::ReadUpdaterSettings(input);
      const auto& channel = settings.channel;
      return !settings.url.empty() && Within(settings.url, input) && Within(channel, input) &&
             (channel == L"alpha" || channel == L"beta" || channel == L"demo" ||
              channel == L"release");
    });
  }
  outcomes.ExpectBothKinds(kCases);
}

/// The record of the game's version, read field by field as the version check reads it.
bool ReadVersionRecord(std::string_view input) {
  file::ArchiveReader reader(input);
  const sdk::GameVersion record = sdk::ReadGameVersion(reader);
  if (!record.IsSupported()) throw sdk::UpdaterException("not a version record");
  const sdk::VersionNumber version = record.number;
  // The order must hold for any words whatever.
  return version == version &&
         (version < sdk::VersionNumber{}) != (version >= sdk::VersionNumber{});
}

TEST_P(HostileArchives, GameVersionsAreReadOrRejected) {
  constexpr std::uint64_t kCases = 150'000;
  const std::vector<std::string> files{Version(GetParam(), 0), Version(GetParam(), 0x7F),
                                       Version(GetParam(), 0xFF)};
  Mutator mutator(0x6A3E7E25);
  GuardedMemory memory;
  Outcomes outcomes;
  for (std::uint64_t i = 0; i < kCases; ++i) {
    const std::string_view input = memory.Lay(mutator.Next(files));
    Count(outcomes, input, [&] { return ReadVersionRecord(input); });
  }
  outcomes.ExpectBothKinds(kCases);
}

TEST_P(HostileArchives, EveryKindOfValueIsReadOrRejected) {
  constexpr std::uint64_t kCases = 100'000;
  file::ArchiveWriter writer(GetParam());
  writer.WriteTupleHeader(2);
  writer.WriteString("text");
  writer.WriteArrayHeader();
  writer.WriteWideString(L"wide");
  writer.WritePairHeader();
  writer.WriteData(std::as_bytes(std::span(std::string_view("data"))));
  writer.WriteMapHeader();
  writer.WriteTime(1);
  writer.WriteSetHeader();
  writer.WriteBool(true);
  writer.WriteU32(7);
  const std::vector<std::string> files{writer.Bytes()};
  Mutator mutator(0xA2C417E5);
  GuardedMemory memory;
  Outcomes outcomes;
  for (std::uint64_t i = 0; i < kCases; ++i) {
    const std::string_view input = memory.Lay(mutator.Next(files));
    Count(outcomes, input, [&] {
      file::ArchiveReader reader(input);
      reader.ExpectTuple(2);
      bool within = Within(reader.ReadString(), input);
      reader.ExpectArray();
      within &= Within(reader.ReadWideString(), input);
      reader.ExpectPair();
      const auto data = reader.ReadData();
      within &=
          Within(std::string_view(reinterpret_cast<const char*>(data.data()), data.size()), input);
      reader.ExpectMap();
      (void)reader.ReadTime();
      reader.ExpectSet();
      (void)reader.ReadBool();
      (void)reader.ReadU32();
      return within;
    });
  }
  outcomes.ExpectBothKinds(kCases);
}

// ---- Every damage of one byte ----
//
// The expected result of each follows from the layout of the file alone.

/// Calls `check` with the file cut at every length and with every byte changed to every other
/// value.
template <class Check>
int ForEveryDamage(std::string_view file, const Check& check) {
  int cases = 0;
  for (std::size_t length = 0; length < file.size(); ++length, ++cases) {
    check(std::string(file.substr(0, length)));
  }
  std::string changed(file);
  for (char& byte : changed) {
    const char good = byte;
    for (int other = 0; other < 256; ++other) {
      byte = static_cast<char>(other);
      if (byte == good) continue;
      check(changed);
      ++cases;
    }
    byte = good;
  }
  std::cout << cases << " cases\n";
  return cases;
}

/// What a reader says: its value as a text, or its message.
template <class Read>
std::string Said(const Read& read) {
  try {
    return read();
  } catch (const file::FileException& error) {
    return error.what();
  } catch (const sdk::UpdaterException& error) {
    return error.what();
  }
}

/// An archive as its layout has it. The first thing that is wrong is what there is to say of it.
class ExpectedArchive {
 public:
  explicit ExpectedArchive(std::string_view bytes) : bytes_(bytes) {
    const std::uint64_t magic = Number(4);
    if (magic != 0x6126FCA1) {
      Wrong("Invalid header " + std::to_string(magic) + " for binary file.");
      return;
    }
    const std::uint64_t version = Number(4);
    if (version != 1) {
      Wrong("Invalid version " + std::to_string(version) + " for binary file (supported: 1).");
      return;
    }
    checked_ = Number(1) != 0;
  }

  /// The bytes of a text whose characters have this size.
  std::string_view Text(std::uint64_t identifier, const char* kind, std::size_t characterSize) {
    if (checked_) {
      const std::uint64_t found = Number(4);
      if (found != identifier) {
        Wrong("Invalid " + std::string(kind) + "-identifier " + std::to_string(found) +
              " (was expecting " + std::to_string(identifier) + ").");
      }
    }
    const std::size_t size = static_cast<std::uint32_t>(Scalar() * characterSize);
    if (size > bytes_.size() - at_) return {};
    at_ += size;
    return bytes_.substr(at_ - size, size);
  }
  std::string_view Narrow() { return Text(0x2F4C20B8, "string", 1); }
  std::string_view Wide() { return Text(0x2F467C32, "wstring", 2); }
  std::uint64_t Scalar() {
    ExpectWidth(4);
    return Number(4);
  }
  std::string_view Block() {
    ExpectWidth(16);
    static constexpr std::string_view kNoughts("\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0", 16);
    if (bytes_.size() - at_ < 16) return kNoughts;
    return bytes_.substr(at_, 16);
  }

  void Wrong(const std::string& message) {
    if (message_.empty()) message_ = message;
  }
  [[nodiscard]] std::string Or(const std::string& value) const {
    // A message with a NUL in it ends there.
    return message_.empty() ? value : message_.c_str();
  }

 private:
  void ExpectWidth(std::uint64_t width) {
    if (!checked_) return;
    const std::uint64_t found = Number(4);
    if (found != width) {
      Wrong("Invalid debug-size for type. Was " + std::to_string(found) + ", expected " +
            std::to_string(width) + ".");
    }
  }
  std::uint64_t Number(std::size_t size) {
    if (size > bytes_.size() - at_) {
      at_ = bytes_.size();
      return 0;
    }
    std::uint64_t number = 0;
    std::memcpy(&number, bytes_.data() + at_, size);
    at_ += size;
    return number;
  }

  std::string_view bytes_;
  std::size_t at_ = 0;
  bool checked_ = false;
  std::string message_;
};

std::string ExpectedSettings(std::string_view bytes) {
  ExpectedArchive archive(bytes);
  const std::string header(archive.Narrow());
  if (header != "UpdaterData") {
    archive.Wrong("Invalid header '" + header +
                  "' in UpdaterData.vpak (was expecting 'UpdaterData').");
  }
  const std::uint64_t version = archive.Scalar();
  if (version != 1) {
    archive.Wrong("Invalid file-version " + header + " in UpdaterData.vpak (supported: 1).");
  }
  const std::string_view url = archive.Wide();
  if (url.empty()) archive.Wrong("Empty URL in UpdaterData.vpak.");
  const std::string_view channel = archive.Wide();
  if (channel != std::string_view("d\0e\0m\0o\0", 8)) {
    archive.Wrong("Invalid release-channel '1' in UpdaterData.vpak (with file-version {INVALID}).");
  }
  return archive.Or(Hex(url));
}

TEST_P(HostileArchives, SettingsWithAnyOneDamageAreWhatTheirLayoutSays) {
  GuardedMemory memory;
  const int cases =
      ForEveryDamage(Settings(GetParam(), L"http://a/", L"demo"), [&](const std::string& bytes) {
        const std::string_view input = memory.Lay(bytes);
        EXPECT_EQ(Said([&] {
                    const auto* url = sdk::ReadUpdaterSettings(input).url.data();
                    const std::size_t size = sdk::ReadUpdaterSettings(input).url.size();
                    return Hex({reinterpret_cast<const char*>(url), 2 * size});
                  }),
                  ExpectedSettings(input))
            << Hex(bytes);
      });
  EXPECT_GT(cases, 10'000);
}

std::string ExpectedVersion(std::string_view bytes) {
  ExpectedArchive archive(bytes);
  if (archive.Narrow() != "GameVersion") archive.Wrong("not a version record");
  if (archive.Scalar() != 1) archive.Wrong("not a version record");
  return archive.Or(Hex(archive.Block()));
}

TEST_P(HostileArchives, AVersionWithAnyOneDamageIsWhatItsLayoutSays) {
  GuardedMemory memory;
  const int cases = ForEveryDamage(Version(GetParam(), 0x7F), [&](const std::string& bytes) {
    const std::string_view input = memory.Lay(bytes);
    std::string expected = ExpectedVersion(input);
    EXPECT_EQ(Said([&] {
                if (!ReadVersionRecord(input)) return std::string("outside the input");
                file::ArchiveReader reader(input);
                (void)reader.ReadString();
                (void)reader.ReadU32();
                const auto block = reader.ReadBlock16();
                return Hex({reinterpret_cast<const char*>(block.data()), block.size()});
              }),
              expected)
        << Hex(bytes);
  });
  EXPECT_GT(cases, 10'000);
}

class HostileFiles : public test::TempFolder {};

// The whole check, on a local file. Its download cannot succeed, as there is no URL: that it was
// tried tells that the local version was understood.
TEST_F(HostileFiles, AnInstalledVersionIsUnderstoodOrOutdatedOrRejected) {
  constexpr int kCases = 1'000;
  const std::vector<std::string> files{Version(file::ArchiveMode::kPlain, 1),
                                       Version(file::ArchiveMode::kChecked, 1)};
  Mutator mutator(0x10CA1F11);
  ASSERT_TRUE(CreateDirectoryW(L"Updater", nullptr));
  int understood = 0;
  int outdated = 0;
  int rejected = 0;
  for (int i = 0; i < kCases; ++i) {
    const std::string input = mutator.Next(files);
    ASSERT_NO_FATAL_FAILURE(test::WriteWhole(std::wstring(sdk::kGameVersionFile), input));
    std::optional<std::string> pending;
    try {
      EXPECT_TRUE(sdk::CheckGameVersion(L"", pending)) << Hex(input);
      ++outdated;
    } catch (const file::FileException& error) {  // A mapping's, too: for an empty file.
      EXPECT_STRNE(error.what(), "");
      ++rejected;
    } catch (const sdk::UpdaterException& error) {
      EXPECT_TRUE(std::string_view(error.what())
                      .starts_with("Failed to download game-version file with error: '"))
          << error.what();
      ++understood;
    }
    EXPECT_FALSE(pending.has_value());
  }
  EXPECT_GT(understood, kCases / 100);
  EXPECT_GT(outdated, kCases / 100);
  EXPECT_GT(rejected, kCases / 100);
}

// ---- Manifests ----

const std::string kDigest = "0123456789abcdef0123456789abcdef";

const std::vector<std::string>& UpdaterManifests() {
  static const std::vector<std::string> manifests{
      "Velmorant Updater\nFileVersion: 1\nVersion: 6",
      "Velmorant Updater\r\nFileVersion: 1\r\nVersion: 7\r\n",
      "\n\nVelmorant Updater\n\nFileVersion: 99\nVersion: 4294967295\nmore\n"};
  return manifests;
}

const std::vector<std::string>& GameManifests() {
  static const std::vector<std::string> manifests{
      "GameUpdate\nFileVersion: 1\nDirectories: 1\nbin\nFiles:\n'bin/a' 1 " + kDigest,
      "GameUpdate\r\nFileVersion: 1\r\nDirectories: 3\r\nbin\r\ndata\r\ndata/b c\r\nFiles:\r\n"
      "'bin/Game.dll' 1048576 " +
          kDigest + "\r\n'data/b c/d' 5000000000 " + kDigest + "\r\n",
      "GameUpdate\nFileVersion: 1\nDirectories: 1\nx\nFiles:\n'a'1 " + kDigest + "\n'b' -5 " +
          kDigest + "\n'\xE9' 9 " + kDigest + "\n"};
  return manifests;
}

TEST(HostileManifests, UpdaterManifestsAreReadOrRejected) {
  constexpr std::uint64_t kCases = 150'000;
  Mutator mutator(0x0FFE2ED6);
  GuardedMemory memory;
  Outcomes outcomes;
  for (std::uint64_t i = 0; i < kCases; ++i) {
    const std::string input = mutator.Next(UpdaterManifests());
    std::string text = GuardedString(memory, input);
    Count(outcomes, input, [&] { return sdk::ReadUpdaterManifest(text, 6) >= 6U; });
  }
  outcomes.ExpectBothKinds(kCases);
}

bool IsLine(std::string_view line, std::string_view text) {
  return !line.empty() && Within(line, text) && line.find_first_of("\r\n") == line.npos;
}

TEST(HostileManifests, GameManifestsAreReadOrRejected) {
  constexpr std::uint64_t kCases = 200'000;
  Mutator mutator(0x6A3EDA7A);
  GuardedMemory memory;
  Outcomes outcomes;
  for (std::uint64_t i = 0; i < kCases; ++i) {
    const std::string input = mutator.Next(GameManifests());
    std::string text = GuardedString(memory, input);
    Count(outcomes, input, [&] {
      const sdk::GameUpdateManifest manifest = sdk::ReadGameUpdateManifest(text);
      return !manifest.directories.empty() && !manifest.files.empty() &&
             std::all_of(manifest.directories.begin(), manifest.directories.end(),
                         [&](std::string_view line) { return IsLine(line, text); }) &&
             std::all_of(manifest.files.begin(), manifest.files.end(),
                         [&](const sdk::FileEntry& entry) {
                           return !entry.name.empty() &&
                                  entry.name.find(L'\'') == entry.name.npos && entry.size != 0 &&
                                  entry.digest.size() == 32 && IsLine(entry.digest, text);
                         });
    });
  }
  outcomes.ExpectBothKinds(kCases);
}

/// Whether a message is the format with something in place of each "{}". A NUL in what it quotes
/// ends it there.
bool IsFormatted(std::string_view message, std::string_view format, bool endsEarly) {
  const std::size_t gap = format.find("{}");
  const std::string_view words = format.substr(0, gap);
  if (!message.starts_with(words)) return endsEarly && words.starts_with(message);
  if (gap == std::string_view::npos) return message == words;
  for (std::size_t end = gap; end <= message.size(); ++end) {
    if (IsFormatted(message.substr(end), format.substr(gap + 2), endsEarly)) return true;
  }
  return false;
}

bool IsOneOf(std::string_view message, std::span<const std::string_view> formats,
             std::string_view input) {
  const bool endsEarly = input.find('\0') != std::string_view::npos;
  return std::any_of(formats.begin(), formats.end(), [&](std::string_view format) {
    return IsFormatted(message, format, endsEarly);
  });
}

TEST(HostileManifests, AnUpdaterManifestWithAnyOneDamageIsReadOrRefusedInItsWords) {
  static constexpr std::string_view kMessages[] = {
      "Invalid number of lines in updater-manifest file. Expecting at least 3, was only {}.",
      "Unknown header in received updater-manifest file (was '{}', expected 'Velmorant Updater').",
      "Unknown file version name '{}' (should have been 'FileVersion')",
      "Unsupported file version '0' (must be at least 1).",
      "Unknown updater version name '{}' (should have been 'Version')",
      "Trying to downgrade updater to version '{}' (from '6'). Downgrade is not supported"};
  GuardedMemory memory;
  int accepted = 0;
  const int cases = ForEveryDamage(UpdaterManifests()[1], [&](const std::string& bytes) {
    std::string text = GuardedString(memory, bytes);
    const std::string said =
        Said([&] { return std::to_string(sdk::ReadUpdaterManifest(text, 6)); });
    const bool isNumber = said.find_first_not_of("0123456789") == std::string::npos;
    accepted += isNumber ? 1 : 0;
    EXPECT_TRUE(isNumber ? std::stoull(said) >= 6 : IsOneOf(said, kMessages, bytes))
        << said << " for " << Hex(bytes);
  });
  EXPECT_GT(accepted, 0);
  EXPECT_LT(accepted, cases);
}

TEST(HostileManifests, AGameManifestWithAnyOneDamageIsReadOrRefusedInItsWords) {
  static constexpr std::string_view kMessages[] = {
      "Invalid amount of lines ({}, at least 4 expected).",
      "Invalid header '{}'. (is expecting 'GameUpdate')",
      "Invalid file-version name '{}'. (is expecting 'FileVersion')",
      "Invalid file-version FileVersion. (supported: 1)",
      "Invalid directory-name '{}'. (expected: 'Directories')",
      "No directories. Abort update to prevent corruption.",
      "Less assumed directory-entries than lines ({}, can be a maximum of {}).",
      "No lines after directory-entries.",
      "Invalid file-header '{}' (is expecting 'Files:')",
      "No files present. Aborting update to prevent corruption.",
      "Invalid file-name at line {}: '{}'",
      "Invalid empty file size at line {}, for file '{}'",
      "Invalid hash '{}' with length {} at line {} for file '{}'."};
  GuardedMemory memory;
  int accepted = 0;
  int cases = 0;
  for (const std::string& file : GameManifests()) {
    cases += ForEveryDamage(file, [&](const std::string& bytes) {
      std::string text = GuardedString(memory, bytes);
      const std::string said = Said([&] {
        const sdk::GameUpdateManifest manifest = sdk::ReadGameUpdateManifest(text);
        const bool whole =
            !manifest.directories.empty() &&
            std::all_of(
                manifest.files.begin(), manifest.files.end(), [](const sdk::FileEntry& entry) {
                  return !entry.name.empty() && entry.size != 0 && entry.digest.size() == 32;
                });
        return std::string(whole ? "accepted" : "accepted, but not whole");
      });
      accepted += said == "accepted" ? 1 : 0;
      EXPECT_TRUE(said == "accepted" || IsOneOf(said, kMessages, bytes))
          << said << " for " << Hex(bytes);
    });
  }
  EXPECT_GT(accepted, 0);
  EXPECT_LT(accepted, cases);
}

// The stages below the readers take views, so that nothing at all stands behind their input.
TEST(HostileManifests, LinesKeysAndNumbersKeepWithinTheText) {
  constexpr std::uint64_t kCases = 150'000;
  std::vector<std::string> files = GameManifests();
  files.insert(files.end(), UpdaterManifests().begin(), UpdaterManifests().end());
  Mutator mutator(0x57A6E5);
  GuardedMemory memory;
  std::uint64_t withLines = 0;
  std::uint64_t withoutLines = 0;
  std::uint64_t wrong = 0;
  for (std::uint64_t i = 0; i < kCases; ++i) {
    const std::string_view text = memory.Lay(mutator.Next(files));
    const auto lines = sdk::SplitLines(text, '\n', sdk::EmptyPieces::kDrop);
    (lines.empty() ? withoutLines : withLines) += 1;
    for (const std::string_view line : lines) {
      bool right = Within(line, text) && !line.empty() && line.find('\n') == line.npos;
      for (const std::string_view separator : {": ", " "}) {
        const auto [key, value] = sdk::SplitKeyValue(line, separator);
        const std::size_t cut = key.size() == line.size() ? 0 : separator.size();
        right = right && key.size() + cut + value.size() == line.size() && Within(value, text);
        (void)sdk::ReadDecimal<std::uint32_t>(value);
        (void)sdk::ReadDecimal<std::int32_t>(value);
        (void)sdk::ReadDecimal<std::uint64_t>(value);
      }
      wrong += right ? 0 : 1;
    }
    // Numbers are also what stands last, right at the border.
    (void)sdk::ReadDecimal<std::uint64_t>(
        text.substr(text.size() - std::min<std::size_t>(text.size(), 20)));
  }
  EXPECT_EQ(wrong, 0U);
  EXPECT_EQ(withLines + withoutLines, kCases);
  EXPECT_GT(withLines, 0U);
  EXPECT_GT(withoutLines, 0U);
}

// ---- The formatter ----

const std::vector<std::string>& Formats() {
  static const std::vector<std::string> formats{
      "Invalid hash '{}' with length {} at line {} for file '{}'.",
      "{1}{0}{}{3} {2}",
      "{255}{}",
      "{{}}{-1}{}",
      "Error {12345678901234567890}",
      "{x} {"};
  return formats;
}

/// How one width's formatter did: with and without a placeholder that could not be served.
struct Formatted {
  std::uint64_t served = 0;
  std::uint64_t unserved = 0;
  std::uint64_t wrong = 0;

  template <class Compose>
  void Count(const Compose& compose) {
    try {
      (compose() ? unserved : served) += 1;
    } catch (...) {
      ++wrong;  // Composing never fails.
    }
  }
  void ExpectBothKinds() const {
    std::cout << served << " served, " << unserved << " with {INVALID}\n";
    EXPECT_EQ(wrong, 0U);
    EXPECT_GT(served, 1000U);
    EXPECT_GT(unserved, 1000U);
  }
};

TEST(HostileFormats, NarrowFormatsAndArgumentsNeverFail) {
  constexpr int kCases = 150'000;
  Mutator mutator(0xF02A7);
  GuardedMemory formatMemory;
  GuardedMemory argumentMemory;
  Formatted formatted;
  for (int i = 0; i < kCases; ++i) {
    const std::string_view format = formatMemory.Lay(mutator.Next(Formats()));
    const std::string_view argument = argumentMemory.Lay(mutator.Next(Formats()).substr(0, 8));
    formatted.Count([&] {
      return Format(format, argument, static_cast<std::uint64_t>(i) << 44U, -i).find("{INVALID}") !=
             std::string::npos;
    });
  }
  formatted.ExpectBothKinds();
}

TEST(HostileFormats, WideFormatsAndArgumentsNeverFail) {
  constexpr int kCases = 150'000;
  std::vector<std::string> wide;
  for (const std::string& format : Formats()) {
    std::string& bytes = wide.emplace_back();
    for (const char c : format) bytes.append({c, '\0'});
  }
  Mutator mutator(0x31DEF);
  GuardedMemory formatMemory;
  GuardedMemory argumentMemory;
  Formatted formatted;
  for (int i = 0; i < kCases; ++i) {
    const std::wstring_view format = formatMemory.LayWide(mutator.Next(wide));
    const std::string_view argument = argumentMemory.Lay(mutator.Next(Formats()).substr(0, 8));
    formatted.Count(
        [&] { return Format(format, argument, i, -i).find(L"{INVALID}") != std::wstring::npos; });
  }
  formatted.ExpectBothKinds();
}

// ---- The border itself ----

// IsBadReadPtr reads and catches the fault, which is just what is asked for here.
TEST(HostileInput, TheByteBehindTheInputCannotBeRead) {
  GuardedMemory memory;
  const std::string_view laid = memory.Lay("x");
  EXPECT_EQ(laid, "x");
  EXPECT_FALSE(IsBadReadPtr(laid.data(), 1));
  EXPECT_TRUE(IsBadReadPtr(laid.data() + 1, 1));
}

TEST(HostileInput, TheByteBehindAGuardedStringsTerminatorCannotBeRead) {
  GuardedMemory memory;
  const std::string text = GuardedString(memory, "a text of more than fifteen characters");
  const char* terminator = text.data() + text.size();
  EXPECT_FALSE(IsBadReadPtr(terminator, 1));
  EXPECT_TRUE(IsBadReadPtr(terminator + 1, 1));
}

TEST(HostileInput, TheSameSeedGivesTheSameCases) {
  Mutator one(1);
  Mutator same(1);
  for (int i = 0; i < 1000; ++i) ASSERT_EQ(one.Next(GameManifests()), same.Next(GameManifests()));
}

}  // namespace
}  // namespace ve

// From the system's heap and not from malloc, which the compiler knows not to be operator new's.
void* operator new(std::size_t size) {
  if (ve::nextAllocation != nullptr) {
    return std::exchange(ve::nextAllocation, nullptr)->Last(size);
  }
  void* memory = HeapAlloc(GetProcessHeap(), 0, size);
  if (memory == nullptr) throw std::bad_alloc();
  return memory;
}
void operator delete(void* memory) noexcept {
  if (ve::allocatedFrom != nullptr && ve::allocatedFrom->Holds(memory)) return;
  HeapFree(GetProcessHeap(), 0, memory);
}
void operator delete(void* memory, std::size_t) noexcept { operator delete(memory); }
