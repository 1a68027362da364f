#include "core/log.h"

#include "core/windows.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <ctime>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iomanip>
#include <sstream>
#include <string_view>
#include <utility>

#include "core/file_time.h"
#include "core/files.h"
#include "core/format.h"
#include "core/working_directory.h"

namespace ve {
namespace {

constexpr std::wstring_view kLogFolder = L"Logs";
// With a separator: `kLogFolder` also finds a file, and the entry goes into the game's root then.
constexpr std::wstring_view kLogDirectory = L"Logs\\";
constexpr std::wstring_view kLogName = L"updater.log";

/// Puts the previous current directory back at the end of its scope.
class WorkingDirectoryScope {
 public:
  explicit WorkingDirectoryScope(std::wstring_view directory) : previous_(WorkingDirectory()) {
    SetWorkingDirectory(directory, false);
  }
  WorkingDirectoryScope(const WorkingDirectoryScope&) = delete;
  WorkingDirectoryScope& operator=(const WorkingDirectoryScope&) = delete;
  ~WorkingDirectoryScope() { SetWorkingDirectory(previous_, false); }

 private:
  std::wstring previous_;
};

/// 100-nanosecond ticks since 1970-01-01 UTC.
std::int64_t CurrentTicks() {
  FILETIME now;
  GetSystemTimeAsFileTime(&now);
  return UnixTicks(now);
}

template <class Char>
std::basic_string<Char> LocalTimeText(std::int64_t ticks, const Char* format) {
  const std::time_t seconds = static_cast<std::time_t>(ticks / kTicksPerSecond);
  std::tm local{};
  localtime_s(&local, &seconds);
  std::basic_ostringstream<Char> text;
  text << std::put_time(&local, format);
  return std::move(text).str();
}

std::wstring TwoDigits(float value) {
  constexpr float kMax = 1e9F;  // Ten digits fail as surely as more would.
  const float shown = std::isfinite(value) ? std::clamp(std::floor(value), -kMax, kMax) : kMax;
  const std::wstring digits = Format(L"{}", static_cast<std::int32_t>(shown));
  // Three digits ask for an impossible length, and so throw std::length_error.
  return std::wstring(2 - digits.size(), L'0') + digits;
}

}  // namespace

void WriteLogEntry(const std::function<void(std::ostream&)>& writeBody) {
  try {
    file::EnsureDirectory(kLogFolder);
  } catch (const std::exception&) {
    // The caller is handling a failure already. A second one would keep the player from the game.
    return;
  }
  const WorkingDirectoryScope scope(kLogDirectory);
  std::ofstream log(std::filesystem::path(kLogName), std::ios::out | std::ios::app);
  log << '[' << TimeStamp() << "]\n";
  writeBody(log);
  log << "\n\n";
}

std::string TimeStamp() {
  static constexpr auto kZeros = [] {
    std::array<char, 255> zeros{};
    zeros.fill('0');
    return zeros;
  }();
  const std::int64_t ticks = CurrentTicks();
  const std::string milliseconds = Format("{}", ticks / 10'000 % 1'000);
  return Format("[{}-{}{}]", LocalTimeText(ticks, "%d.%m.%Y %H:%M:%S"),
                std::string_view(kZeros.data(), 3 - milliseconds.size()), milliseconds);
}

std::wstring FileNameTimeStamp() { return LocalTimeText(CurrentTicks(), L"%d_%m_%Y-%H_%M_%S"); }

std::wstring DurationText(float seconds) {
  return Format(L"{}.{}:{}", TwoDigits(seconds / 3600.0F), TwoDigits(seconds / 60.0F),
                TwoDigits(std::fmod(seconds, 60.0F)));
}

}  // namespace ve
