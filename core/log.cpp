#include "core/log.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <ctime>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iomanip>
#include <ratio>
#include <sstream>
#include <utility>

#include "core/files.h"
#include "core/format.h"
#include "core/working_directory.h"

namespace ve {
namespace {

// With a separator: `kLogFolder` also finds a file, and the entry goes into the game's root then.
constexpr std::wstring_view kLogDirectory = L"Logs\\";

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

using Ticks = std::chrono::duration<std::int64_t, std::ratio<1, 10'000'000>>;

std::int64_t TicksAt(std::chrono::system_clock::time_point moment) {
  // Explicitly: the clock itself counts in units that differ between standard libraries.
  return std::chrono::duration_cast<Ticks>(moment.time_since_epoch()).count();
}

template <class Char>
std::basic_string<Char> LocalTimeText(std::int64_t ticks, const Char* format) {
  const std::time_t seconds = static_cast<std::time_t>(ticks / Ticks::period::den);
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
  // The subtraction is not checked: three digits ask for an impossible length, on purpose.
  return std::wstring(2 - digits.size(), L'0') + digits;
}

}  // namespace

void WriteLogEntry(const std::function<void(std::ostream&)>& writeBody) {
  try {
    file::EnsureDirectory(kLogFolder);
  } catch (const std::exception&) {
    // Entries are written by handlers of failures; a log that cannot be kept must not become
    // another failure and keep the player from the game.
    return;
  }
  const WorkingDirectoryScope scope(kLogDirectory);
  std::ofstream log(std::filesystem::path(kLogName), std::ios::out | std::ios::app);
  log << '[' << TimeStamp() << "]\n";
  writeBody(log);
  log << "\n\n";
}

std::string TimeStamp() { return TimeStampAt(std::chrono::system_clock::now()); }

std::wstring FileNameTimeStamp() { return FileNameTimeStampAt(std::chrono::system_clock::now()); }

std::string TimeStampAt(std::chrono::system_clock::time_point moment) {
  static constexpr auto kZeros = [] {
    std::array<char, 255> zeros{};
    zeros.fill('0');
    return zeros;
  }();
  const std::int64_t ticks = TicksAt(moment);
  const std::string milliseconds = Format("{}", ticks / 10'000 % 1'000);
  return Format("[{}-{}{}]", LocalTimeText(ticks, "%d.%m.%Y %H:%M:%S"),
                std::string_view(kZeros.data(), 3 - milliseconds.size()), milliseconds);
}

std::wstring FileNameTimeStampAt(std::chrono::system_clock::time_point moment) {
  return LocalTimeText(TicksAt(moment), L"%d_%m_%Y-%H_%M_%S");
}

std::wstring DurationText(float seconds) {
  return Format(L"{}.{}:{}", TwoDigits(seconds / 3600.0F), TwoDigits(seconds / 60.0F),
                TwoDigits(std::fmod(seconds, 60.0F)));
}

}  // namespace ve
