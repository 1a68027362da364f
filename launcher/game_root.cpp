#include "launcher/game_root.h"

#include "core/windows.h"

#include <shellapi.h>

#include <cstdint>
#include <filesystem>
#include <string_view>

#include "core/directory_walk.h"
#include "core/files.h"
#include "core/handle.h"
#include "core/registry.h"

namespace ve {
namespace {

constexpr std::wstring_view kFromSolution = L"FROM_SOLUTION";
constexpr std::wstring_view kProjectExtension = L".vegame";

/// The newest project file in the tree, the first one met among equals; empty if there is none
/// written after 1970.
std::wstring FindNewestProject(std::wstring_view directory) {
  std::wstring newest;
  std::int64_t newestTicks = 0;
  file::WalkDirectory(directory, [&](const file::DirectoryEntry& entry) {
    const std::filesystem::path path(entry.path);
    if (!entry.IsDirectory() && path.extension() == kProjectExtension) {
      const std::int64_t ticks = file::LastWriteTicks(entry.path);
      if (ticks > newestTicks) {
        newestTicks = ticks;
        newest = entry.path;
      }
    }
    return file::WalkAction::kRecurse;
  });
  return newest;
}

std::wstring DirectoryPart(std::wstring_view path) {
  const std::size_t separator = path.find_last_of(L"\\/");
  if (separator != std::wstring_view::npos) return std::wstring(path.substr(0, separator));
  return path.starts_with(L'.') ? L"" : L".\\";
}

}  // namespace

std::optional<std::wstring> ResolveGameRoot() {
  int count = 0;
  wchar_t** const arguments = CommandLineToArgvW(GetCommandLineW(), &count);
  const UniqueLocalMemory owner(static_cast<HLOCAL>(arguments));
  if (arguments == nullptr || count != 2) return {};
  const std::wstring_view argument = arguments[1];
  if (argument == kFromSolution) return ReadProductString(L"Player", L"LastBuild");
  const std::wstring project = FindNewestProject(argument);
  if (project.empty()) return {};
  return DirectoryPart(project);
}

}  // namespace ve
