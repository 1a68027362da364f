// Measures the code that ships beside what it is compared with, in turns, in one Windows program.
// Prints a line for each round: our seconds and theirs.
//
// usage: measure md5 ROUNDS BUFFERS KIBIBYTES   one or four buffers; OpenSSL's assembler
//        measure manifest ROUNDS LINES          a game update manifest; std::getline
//        measure cleanup ROUNDS                 the clean-up of the current directory, whose files
//                                               are listed in "..\listed.txt"; a bare iteration
//        measure update ROUNDS URL              an update from the server at URL, in "ours" and
//                                               "theirs" below the current directory; a bare loop
//
// These print what one run takes. The files are those of "..\game_update.manifest", below the
// current directory:
//        measure check                 the Launcher's check; fails if a file is not current
//        measure files THREADS read    a bare loop that reads and digests each file
//        measure files THREADS copy    that also writes flushed copies below "..\bare"
//        measure files THREADS link    that also links the files there and removes the links
//
//        measure confirm               presses OK in the update's two dialogs
#include "core/windows.h"

#include <wininet.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <charconv>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <future>
#include <iostream>
#include <span>
#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>
#include <unordered_set>
#include <vector>

#include "bare_requests.h"
#include "core/directory_walk.h"
#include "core/files.h"
#include "core/format.h"
#include "core/handle.h"
#include "core/md5.h"
#include "core/md5_lanes.h"
#include "net/com_scope.h"
#include "net/download.h"
#include "ui/progress_window.h"
#include "updater/game_apply.h"
#include "updater/game_download.h"
#include "updater/game_manifest.h"
#include "updater/installed_files.h"

// OpenSSL's assembler, taken as it is from Debian's library.
extern "C" __attribute__((sysv_abi)) void ossl_md5_block_asm_data_order(std::uint32_t* state,
                                                                        const void* blocks,
                                                                        std::size_t count);

namespace ve::bench {
namespace {

const std::wstring kCopies = L"..\\bare\\";

/// Does some work and returns the seconds that it took, without its preparation.
using Work = std::function<double()>;

double Seconds(const std::function<void()>& work) {
  using Clock = std::chrono::steady_clock;
  const Clock::time_point start = Clock::now();
  work();
  return std::chrono::duration<double>(Clock::now() - start).count();
}

/// Keeps the optimiser from removing work whose result is not used.
void Keep(std::size_t value) {
  static std::atomic<std::size_t> kept;
  kept.store(value, std::memory_order_relaxed);
}

void PrintRounds(unsigned long rounds, const Work& ours, const Work& theirs) {
  ours();  // Fills the caches.
  for (unsigned long round = 0; round < rounds; ++round) {
    const double seconds = ours();
    std::cout << seconds << ' ' << theirs() << std::endl;
  }
}

/// The shortest of several runs that together take long enough: whatever else the machine does can
/// only make a run longer.
Work Shortest(const Work& work) {
  return [=] {
    constexpr double kLongEnough = 0.2;
    double shortest = work();
    for (double total = shortest; total < kLongEnough;) {
      const double seconds = work();
      shortest = std::min(shortest, seconds);
      total += seconds;
    }
    return shortest;
  };
}

/// All that OpenSSL does for a buffer of whole blocks, but for the padding.
void AssemblerMd5(std::span<const std::byte> buffer) {
  std::uint32_t state[4] = {0x67452301, 0xefcdab89, 0x98badcfe, 0x10325476};
  ossl_md5_block_asm_data_order(state, buffer.data(), buffer.size() / 64);
  Keep(state[0]);
}

void MeasureMd5(unsigned long rounds, std::size_t buffers, std::size_t size) {
  std::vector<std::byte> bytes(kMd5Lanes * size, std::byte{'x'});
  std::array<std::span<const std::byte>, kMd5Lanes> lanes;
  for (std::size_t lane = 0; lane < kMd5Lanes; ++lane) {
    lanes[lane] = std::span(bytes).subspan(lane * size, size);
  }
  const auto ours = [&] {
    Keep(buffers == 1 ? Md5Hex(lanes[0]).size() : Md5HexOfEach(lanes).size());
  };
  const auto theirs = [&] {
    for (std::size_t lane = 0; lane < buffers; ++lane) AssemblerMd5(lanes[lane]);
  };
  PrintRounds(rounds, Shortest([&] { return Seconds(ours); }),
              Shortest([&] { return Seconds(theirs); }));
}

/// The same record, line by line; its views lead into `text`, which `stream` reads. Checks the file
/// lines as `ReadGameUpdateManifest` does.
sdk::GameUpdateManifest ReadByGetline(std::string_view text, std::istream& stream) {
  sdk::GameUpdateManifest manifest;
  std::size_t begin = 0;  // Of the line, in the text.
  std::size_t end = 0;
  std::string buffer;
  std::string_view line;
  const auto next = [&] {
    if (!std::getline(stream, buffer)) return false;
    begin = end;
    end += buffer.size() + 1;
    line = buffer;
    if (line.ends_with('\r')) line.remove_suffix(1);
    return true;
  };
  for (int header = 0; header < 3; ++header) next();
  while (next() && line != "Files:") {
    manifest.directories.push_back(text.substr(begin, line.size()));
  }
  while (next()) {
    const std::size_t close = line.find('\'', 1);
    if (!line.starts_with('\'') || close == line.npos) throw std::runtime_error("name");
    std::uint64_t size = 0;
    const char* const sizeEnd =
        std::from_chars(line.data() + close + 2, line.data() + line.size(), size).ptr;
    const std::size_t digest = static_cast<std::size_t>(sizeEnd - line.data()) + 1;
    if (size == 0 || line.size() != digest + 32) throw std::runtime_error("size or digest");
    manifest.files.push_back(
        {sdk::WidenName(line.substr(1, close - 1)), size, text.substr(begin + digest, 32)});
  }
  return manifest;
}

void MeasureManifest(unsigned long rounds, std::size_t lines) {
  std::string text = "GameUpdate\r\nFileVersion: 1\r\nDirectories: 1\r\ndata\r\nFiles:\r\n";
  for (std::size_t line = 0; line < lines; ++line) {
    text += Format("'data/level{}/asset_{}.pak' {} 0123456789abcdef0123456789abcdef\r\n",
                   line % 500, line, line * 7 + 1);
  }
  const auto ours = [&] {
    std::string copy = text;  // The reader changes its text.
    return Seconds([&] { Keep(sdk::ReadGameUpdateManifest(copy).files.size()); });
  };
  const auto theirs = [&] {
    std::istringstream stream(text);
    return Seconds([&] { Keep(ReadByGetline(text, stream).files.size()); });
  };
  PrintRounds(rounds, Shortest(ours), Shortest(theirs));
}

/// Looks every entry up and removes the others, as the clean-up does.
void IterateBare(const std::unordered_set<std::wstring_view>& listed) {
  for (const auto& entry : std::filesystem::recursive_directory_iterator(L".")) {
    const std::wstring name = entry.path().generic_wstring().substr(2);
    std::error_code notEmpty;
    if (!listed.contains(name)) std::filesystem::remove(entry.path(), notEmpty);
  }
}

void MeasureCleanUp(unsigned long rounds) {
  std::wstring text;
  for (const char character : file::LoadFile(L"..\\listed.txt")) text += WidenByte(character);
  std::unordered_set<std::wstring_view> listed;
  for (std::size_t at = 0, end = 0; (end = text.find(L'\n', at)) != text.npos; at = end + 1) {
    listed.insert(std::wstring_view(text).substr(at, end - at));
  }
  PrintRounds(
      rounds, [&] { return Seconds([&] { sdk::CleanUp(listed); }); },
      [&] { return Seconds([&] { IterateBare(listed); }); });
}

/// Makes a fresh folder the current one.
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
  return Seconds([&] {
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
double UpdateBare(const std::wstring& url, const sdk::GameUpdateManifest& manifest) {
  const Folder folder(L"theirs");
  return Seconds([&] {
    const ComScope com;
    Keep(BareRequest((url + L"game_update.manifest").c_str()).size());
    CreateDirectoryW(L"staging", nullptr);
    for (const std::string_view directory : manifest.directories) {
      const std::wstring name = sdk::WidenName(directory);
      CreateDirectoryW((L"staging\\" + name).c_str(), nullptr);
      CreateDirectoryW(name.c_str(), nullptr);
    }
    for (const sdk::FileEntry& entry : manifest.files) {
      const std::string body = BareRequest((url + entry.name).c_str());
      const std::wstring staged = L"staging\\" + entry.name;
      std::FILE* const stream = _wfopen(staged.c_str(), L"wb");
      std::fwrite(body.data(), 1, body.size(), stream);
      std::fclose(stream);
      CopyFileW(staged.c_str(), entry.name.c_str(), FALSE);
    }
  });
}

void MeasureUpdate(unsigned long rounds, const std::wstring& url) {
  std::string text = std::move(Download(url + L"game_update.manifest").Body());
  const sdk::GameUpdateManifest manifest = sdk::ReadGameUpdateManifest(text);
  PrintRounds(
      rounds, [&] { return Update(url); }, [&] { return UpdateBare(url, manifest); });
}

bool Check(const std::vector<sdk::FileEntry>& files) {
  sdk::InstalledFiles installed(files);
  return std::all_of(files.begin(), files.end(),
                     [&](const sdk::FileEntry&) { return installed.NextIsCurrent(); });
}

/// Reads and digests eight files at a time, from group `first` on each `step`th group. Then writes
/// a flushed copy of each into kCopies, or links it there and removes the link.
void DigestBare(std::span<const sdk::FileEntry> files, std::size_t first, std::size_t step,
                const std::wstring& how) {
  constexpr std::size_t kGroup = 8;
  std::array<std::vector<std::byte>, kGroup> buffers;
  for (std::size_t group = first * kGroup; group < files.size(); group += step * kGroup) {
    std::array<std::span<const std::byte>, kGroup> contents;
    const std::size_t count = std::min(kGroup, files.size() - group);
    for (std::size_t place = 0; place < count; ++place) {
      const std::wstring& name = files[group + place].name;
      const UniqueFileHandle file(CreateFileW(name.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr,
                                              OPEN_EXISTING, FILE_FLAG_SEQUENTIAL_SCAN, nullptr));
      LARGE_INTEGER size{};
      GetFileSizeEx(file.Get(), &size);
      const auto length = static_cast<DWORD>(size.QuadPart);
      if (buffers[place].size() < length) buffers[place].resize(length);
      DWORD done = 0;
      ReadFile(file.Get(), buffers[place].data(), length, &done, nullptr);
      contents[place] = std::span(buffers[place]).first(done);
      const std::wstring target = kCopies + name;
      if (how == L"link") {
        CreateHardLinkW(target.c_str(), name.c_str(), nullptr);
        DeleteFileW(target.c_str());
      }
      if (how != L"copy") continue;
      const UniqueFileHandle copy(CreateFileW(target.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW,
                                              FILE_ATTRIBUTE_NORMAL, nullptr));
      WriteFile(copy.Get(), buffers[place].data(), length, &done, nullptr);
      FlushFileBuffers(copy.Get());
    }
    Keep(Md5HexOfEach(contents).size());
  }
}

void FilesBare(const sdk::GameUpdateManifest& manifest, std::size_t threads,
               const std::wstring& how) {
  for (const std::string_view directory : manifest.directories) {
    if (how != L"read") CreateDirectoryW((kCopies + sdk::WidenName(directory)).c_str(), nullptr);
  }
  std::vector<std::future<void>> running;
  for (std::size_t thread = 0; thread < threads; ++thread) {
    running.push_back(std::async(std::launch::async, &DigestBare, std::span(manifest.files), thread,
                                 threads, std::cref(how)));
  }
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
  const std::wstring& what = arguments.at(1);
  const auto number = [&](std::size_t index) { return std::stoul(arguments.at(index)); };
  if (what == L"md5") {
    MeasureMd5(number(2), number(3), std::size_t{1024} * number(4));
  } else if (what == L"manifest") {
    MeasureManifest(number(2), number(3));
  } else if (what == L"cleanup") {
    MeasureCleanUp(number(2));
  } else if (what == L"update") {
    MeasureUpdate(number(2), arguments.at(3));
  } else if (what == L"check" || what == L"files") {
    std::string text = file::LoadFile(L"..\\game_update.manifest");
    const sdk::GameUpdateManifest manifest = sdk::ReadGameUpdateManifest(text);
    bool current = true;
    std::cout << Seconds([&] {
      if (what == L"check") {
        current = Check(manifest.files);
      } else {
        FilesBare(manifest, number(2), arguments.at(3));
      }
    }) << std::endl;
    return current ? EXIT_SUCCESS : EXIT_FAILURE;
  } else if (what == L"confirm") {
    PressOk(L"Update available");
    PressOk(L"Update successfull.");
  }
  return EXIT_SUCCESS;
}

}  // namespace
}  // namespace ve::bench

int wmain(int count, wchar_t** texts) {
  return ve::bench::Main(std::vector<std::wstring>(texts, texts + count));
}
