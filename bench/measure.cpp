// What ships, as it ships: the comparisons that run inside one Windows program. Pairs are printed
// one a line: the case, its units, our nanoseconds and theirs.
//
// usage: measure pairs PAIRS           digests, manifests, messages
//        measure cleanup PAIRS         the clean-up of the current directory, whose every file is
//                                      listed in "listed.txt" above it
//        measure update PAIRS URL N    an update of N files from the server at URL, in "ours" and
//                                      "theirs" below the current directory
//        measure check                 every file of "game_update.manifest" above the current
//                                      directory: prints the nanoseconds, fails if one is not
//                                      current
//        measure allocations           how many allocations the same things make, one a line
//        measure confirm               presses OK in the update's two dialogs
#include "core/windows.h"

#include <wininet.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <iostream>
#include <new>
#include <string>
#include <string_view>
#include <thread>
#include <unordered_set>
#include <vector>

#include "bare_requests.h"
#include "cases.h"
#include "core/directory_walk.h"
#include "core/files.h"
#include "core/format.h"
#include "core/md5.h"
#include "core/unicode.h"
#include "net/com_scope.h"
#include "net/download.h"
#include "ui/progress_window.h"
#include "updater/game_apply.h"
#include "updater/game_download.h"
#include "updater/game_manifest.h"

namespace {

std::atomic<std::size_t> allocations = 0;

}  // namespace

void* operator new(std::size_t size) {
  ++allocations;
  if (void* memory = std::malloc(size)) return memory;
  throw std::bad_alloc();
}
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }

// OpenSSL's assembler, taken as it is from Debian's library.
extern "C" __attribute__((sysv_abi)) void ossl_md5_block_asm_data_order(std::uint32_t* state,
                                                                        const void* blocks,
                                                                        std::size_t count);

namespace ve::bench {
namespace {

void Print(const Case& one, double ours, double theirs) {
  std::cout << one.name << '\t' << one.units << '\t' << ours << '\t' << theirs << std::endl;
}

/// The nanoseconds that pass while `work` is done: what Wine's other processes do for it counts.
double MeasurePassing(const std::function<void()>& work) {
  using Clock = std::chrono::steady_clock;
  const Clock::time_point start = Clock::now();
  work();
  return std::chrono::duration<double, std::nano>(Clock::now() - start).count();
}

/// All that OpenSSL would do for a buffer of whole blocks but for the padding, one block of many.
void AssemblerMd5(const void* bytes, std::size_t size) {
  std::uint32_t state[4] = {0x67452301, 0xefcdab89, 0x98badcfe, 0x10325476};
  ossl_md5_block_asm_data_order(state, bytes, size / 64);
  Keep(state[0]);
}

/// The best of several runs that together take long enough: what else the machine does can only
/// make a run longer.
double Best(const Work& work) {
  constexpr double kLongEnough = 5e7;
  constexpr int kFewest = 5;
  double best = work();
  double total = best;
  for (int runs = 1; runs < kFewest || total < kLongEnough; ++runs) {
    const double once = work();
    best = std::min(best, once);
    total += once;
  }
  return best;
}

void RunPairs(const std::vector<Case>& cases, int pairs) {
  for (const Case& one : cases) {
    for (int pair = 0; pair < pairs; ++pair) {
      const double ours = Best(one.ours);
      Print(one, ours, Best(one.theirs));
    }
  }
}

std::size_t AllocationsOf(const std::function<void()>& work) {
  const std::size_t before = allocations;
  work();
  return allocations - before;
}

std::vector<std::wstring> ListedNames() {
  std::vector<std::wstring> names;
  const std::string text = file::LoadFile(L"..\\listed.txt");
  std::size_t at = 0;
  for (std::size_t end = 0; (end = text.find('\n', at)) != text.npos; at = end + 1) {
    names.push_back(ToWide(std::string_view(text).substr(at, end - at)));
  }
  return names;
}

std::size_t IterateBare() {
  std::size_t entries = 0;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(L".")) {
    entries += entry.path().empty() ? 0U : 1U;
  }
  return entries;
}

void CleanUpPairs(int pairs) {
  const std::vector<std::wstring> names = ListedNames();
  const std::unordered_set<std::wstring_view> listed(names.begin(), names.end());
  const Case one{"cleanup/" + std::to_string(names.size()), static_cast<double>(names.size()),
                 [&] { return MeasurePassing([&] { sdk::CleanUp(listed); }); },
                 [] { return MeasurePassing([] { Keep(IterateBare()); }); }};
  one.ours();
  one.theirs();
  for (int pair = 0; pair < pairs; ++pair) {
    const double ours = one.ours();
    Print(one, ours, one.theirs());
  }
}

/// Starts in a fresh, empty folder that is the current one.
class Folder {
 public:
  explicit Folder(const wchar_t* name) {
    file::RemoveTree(name);
    file::MakeDirectories(name);
    SetCurrentDirectoryW(name);
    file::MakeDirectories(L"Updater");
  }
  ~Folder() { SetCurrentDirectoryW(L".."); }
};

/// The whole update but for its questions: window, staging, installing, clean-up.
double Update(const std::wstring& url) {
  const Folder folder(L"ours");
  return MeasurePassing([&] {
    const ComScope com;  // As in the Launcher's run.
    std::string text = std::move(Download(url + L"game_update.manifest").Body());
    const sdk::GameUpdateManifest manifest = sdk::ReadGameUpdateManifest(text);
    sdk::MakeStagingFolders(manifest);
    std::atomic<std::uint32_t> processed = 0;
    std::atomic<bool> finished = false;
    std::thread progress(&ProgressThread<std::vector<sdk::FileEntry>>, std::cref(manifest.files),
                         std::cref(finished), std::ref(processed));
    sdk::StagedUpdate staged;
    staged.names.reserve(manifest.files.size());
    sdk::StageFiles(url, manifest, staged, processed);
    finished = true;
    sdk::ApplyUpdate(manifest, staged, "version");
    progress.join();
  });
}

/// The same requests and the same files written, and nothing else.
double UpdateBare(const std::wstring& url, const std::vector<std::wstring>& names) {
  const Folder folder(L"theirs");
  CreateDirectoryW(L"staging", nullptr);
  CreateDirectoryW(L"staging\\data", nullptr);
  CreateDirectoryW(L"data", nullptr);
  return MeasurePassing([&] {
    Keep(BareRequest((url + L"game_update.manifest").c_str()).size());
    for (const std::wstring& name : names) {
      const std::string body = BareRequest((url + name).c_str());
      const std::wstring staged = L"staging\\" + name;
      std::FILE* const stream = _wfopen(staged.c_str(), L"wb");
      std::fwrite(body.data(), 1, body.size(), stream);
      std::fclose(stream);
      CopyFileW(staged.c_str(), name.c_str(), FALSE);
    }
  });
}

void UpdatePairs(int pairs, const std::wstring& url, int files) {
  std::vector<std::wstring> names;
  std::string text = std::move(Download(url + L"game_update.manifest").Body());
  const sdk::GameUpdateManifest manifest = sdk::ReadGameUpdateManifest(text);
  for (const sdk::FileEntry& entry : manifest.files) names.push_back(entry.name);
  const Case one{"update/" + std::to_string(files), static_cast<double>(names.size()),
                 [&] { return Update(url); }, [&] { return UpdateBare(url, names); }};
  one.ours();
  for (int pair = 0; pair < pairs; ++pair) {
    const double ours = one.ours();
    Print(one, ours, one.theirs());
  }
}

/// Prints the nanoseconds that the check took.
int Check() {
  std::string text = file::LoadFile(L"..\\game_update.manifest");
  const sdk::GameUpdateManifest manifest = sdk::ReadGameUpdateManifest(text);
  bool current = true;
  const double nanoseconds = Measure([&] {
    sdk::InstalledFiles installed(manifest.files);
    for (const sdk::FileEntry& entry : manifest.files) {
      const sdk::FileSource source =
          sdk::FindSource(installed, entry, sdk::StagingPath(entry.name));
      current = current && source == sdk::FileSource::kInstalled;
    }
  });
  std::cout << nanoseconds << std::endl;
  return current ? EXIT_SUCCESS : EXIT_FAILURE;
}

void CountAllocations() {
  const std::string source(100, 's');
  const std::wstring wideSource(100, L's');
  std::cout << "a narrow message of three arguments\t"
            << AllocationsOf([&] { Keep(Format("'{}' to '{}': {}", source, source, 5).size()); })
            << "\na wide message of three arguments\t" << AllocationsOf([&] {
                 Keep(Format(L"'{}' to '{}': {}", wideSource, wideSource, 5).size());
               });
  std::string manifest = ManifestText(100'000);
  std::cout << "\na manifest of 100,000 lines\t"
            << AllocationsOf([&] { Keep(sdk::ReadGameUpdateManifest(manifest).files.size()); });

  const std::vector<std::wstring> names = ListedNames();
  const std::unordered_set<std::wstring_view> listed(names.begin(), names.end());
  std::cout << "\nthe clean-up of " << names.size() << " files\t"
            << AllocationsOf([&] { sdk::CleanUp(listed); }) << "\nthe bare iteration over them\t"
            << AllocationsOf([] { Keep(IterateBare()); }) << std::endl;
}

/// Waits for a dialog and presses its OK.
void PressOk(const wchar_t* caption) {
  for (;;) {
    if (HWND const dialog = FindWindowW(L"#32770", caption)) {
      PostMessageW(dialog, WM_COMMAND, IDOK, 0);
      return;
    }
    Sleep(20);
  }
}

int Main(const std::vector<std::wstring>& arguments) {
  const auto is = [&](const wchar_t* command, std::size_t count) {
    return arguments.size() == count && arguments[1] == command;
  };
  if (is(L"pairs", 3)) {
    const int pairs = std::stoi(arguments[2]);
    RunPairs(Md5Cases(AssemblerMd5), pairs);
    RunPairs(ManifestCases(), pairs);
    RunPairs(FormatCases(), pairs);
  } else if (is(L"cleanup", 3)) {
    CleanUpPairs(std::stoi(arguments[2]));
  } else if (is(L"update", 5)) {
    UpdatePairs(std::stoi(arguments[2]), arguments[3], std::stoi(arguments[4]));
  } else if (is(L"check", 2)) {
    return Check();
  } else if (is(L"allocations", 2)) {
    CountAllocations();
  } else if (is(L"confirm", 2)) {
    PressOk(L"Update available");
    PressOk(L"Update successfull.");
  } else {
    return EXIT_FAILURE;
  }
  return EXIT_SUCCESS;
}

}  // namespace
}  // namespace ve::bench

int wmain(int count, wchar_t** texts) {
  return ve::bench::Main(std::vector<std::wstring>(texts, texts + count));
}
