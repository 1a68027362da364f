#include "cases.h"

#include <atomic>
#include <cstdint>
#include <fmt/format.h>
#include <fmt/xchar.h>
#include <span>
#include <sstream>

#include "core/format.h"
#include "core/md5.h"
#include "updater/game_manifest.h"

#ifndef _WIN32
#include <ctime>
#endif

namespace ve::bench {
namespace {

constexpr std::size_t kMebibyte = std::size_t{1} << 20;

constexpr double kNanosecondsInSecond = 1e9;

#ifdef _WIN32
struct LinuxTime {
  std::int64_t seconds;
  std::int64_t nanoseconds;
};

/// A program under Wine is a program of Linux, whose clocks it can ask for. Windows' own clock of a
/// thread's processor time is too coarse.
double ThreadNanoseconds() {
  constexpr long kClockGettime = 228;
  constexpr long kThreadProcessorTime = 3;
  LinuxTime time{};
  long result = kClockGettime;
  asm volatile("syscall"
               : "+a"(result)
               : "D"(kThreadProcessorTime), "S"(&time)
               : "rcx", "r11", "memory");
  return static_cast<double>(time.seconds) * kNanosecondsInSecond +
         static_cast<double>(time.nanoseconds);
}
#else
double ThreadNanoseconds() {
  timespec time{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
  return static_cast<double>(time.tv_sec) * kNanosecondsInSecond +
         static_cast<double>(time.tv_nsec);
}
#endif

/// A message of three arguments, two texts of `length` characters and a number, many times: one
/// alone is too short for the clock.
template <class Char>
Case FormatCase(const std::string& name, std::size_t length, const Char* format) {
  constexpr std::size_t kMessages = 2000;
  const std::basic_string<Char> first(length, Char{'a'});
  const std::basic_string<Char> second(length, Char{'b'});
  const std::basic_string<Char> pattern(format);
  const auto size = static_cast<double>(Format(pattern, first, second, 404U).size());
  return {
      name, kMessages * size,
      [=] {
        return Measure([&] {
          for (std::size_t i = 0; i < kMessages; ++i) {
            Keep(Format(pattern, first, second, static_cast<std::uint32_t>(i)).size());
          }
        });
      },
      [=] {
        return Measure([&] {
          for (std::size_t i = 0; i < kMessages; ++i) {
            Keep(fmt::format(fmt::runtime(pattern), first, second, static_cast<std::uint32_t>(i))
                     .size());
          }
        });
      }};
}

}  // namespace

double Measure(const std::function<void()>& work) {
  const double start = ThreadNanoseconds();
  work();
  return ThreadNanoseconds() - start;
}

void Keep(std::size_t value) {
  static std::atomic<std::size_t> kept;
  kept.store(value, std::memory_order_relaxed);
}

std::vector<Case> Md5Cases(const Digest& theirs) {
  std::vector<Case> cases;
  for (const std::size_t mebibytes : {1U, 10U, 64U, 100U}) {
    const std::size_t size = mebibytes * kMebibyte;
    const auto buffer = std::make_shared<std::string>(size, 'x');
    cases.push_back({"md5/" + std::to_string(mebibytes), static_cast<double>(size),
                     [=] { return Measure([&] { Keep(Md5Hex(*buffer).size()); }); },
                     [=] { return Measure([&] { theirs(buffer->data(), buffer->size()); }); }});
  }
  return cases;
}

std::string ManifestText(std::size_t files) {
  std::string text = "GameUpdate\r\nFileVersion: 1\r\nDirectories: 1\r\ndata\r\nFiles:\r\n";
  for (std::size_t file = 0; file < files; ++file) {
    text += fmt::format("'data/level{:03}/asset_{:07}.pak' {} 0123456789abcdef0123456789abcdef\r\n",
                        file % 500, file, file * 7 + 1);
  }
  return text;
}

std::vector<Case> ManifestCases() {
  std::vector<Case> cases;
  for (const std::size_t lines : {10'000U, 100'000U, 1'000'000U}) {
    const auto text = std::make_shared<std::string>(ManifestText(lines));
    cases.push_back({"manifest/" + std::to_string(lines), static_cast<double>(lines),
                     [=] {
                       std::string copy = *text;  // The reader changes its text.
                       return Measure(
                           [&] { Keep(sdk::ReadGameUpdateManifest(copy).files.size()); });
                     },
                     [=] {
                       std::istringstream stream(*text);
                       return Measure([&] {
                         std::string line;
                         std::size_t length = 0;
                         while (std::getline(stream, line)) length += line.size();
                         Keep(length);
                       });
                     }});
  }
  return cases;
}

std::vector<Case> FormatCases() {
  std::vector<Case> cases;
  for (const std::size_t length : {10U, 100U, 1000U}) {
    cases.push_back(FormatCase("format-narrow/" + std::to_string(length), length,
                               "Failed to copy file from '{}' to '{}': {}"));
    cases.push_back(FormatCase("format-wide/" + std::to_string(length), length,
                               L"Failed to copy file from '{}' to '{}': {}"));
  }
  return cases;
}

}  // namespace ve::bench
