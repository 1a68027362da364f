#include "core/directory_walk.h"

#include <vector>

#include "core/errors.h"
#include "core/files.h"
#include "core/handle.h"

namespace ve::file {
namespace {

[[noreturn]] void ThrowWalkError(std::wstring_view directory, DWORD code) {
  ThrowFilesystemError("directory_entry::status", directory, code);
}

bool IsDots(const wchar_t* name) {
  return name[0] == L'.' && (name[1] == L'\0' || (name[1] == L'.' && name[2] == L'\0'));
}

/// Whether there is a directory at the path that is not a link.
bool IsTree(const std::wstring& path) {
  WIN32_FIND_DATAW found{};
  const UniqueFindHandle search(
      FindFirstFileExW(path.c_str(), FindExInfoBasic, &found, FindExSearchNameMatch, nullptr, 0));
  return search && DirectoryEntry{path, found.dwFileAttributes, found.dwReserved0}.ShouldRecurse();
}

/// Walks the directory that `path` names. The path of each entry is made in place, behind it.
void WalkInto(std::wstring& path, const std::function<WalkAction(const DirectoryEntry&)>& visit) {
  const std::size_t directoryLength = path.size();
  if (path.find_last_of(L"\\/:") != directoryLength - 1) path += L'\\';
  const std::size_t prefixLength = path.size();

  WIN32_FIND_DATAW found{};
  path += L'*';
  const UniqueFindHandle search(
      FindFirstFileExW(path.c_str(), FindExInfoBasic, &found, FindExSearchNameMatch, nullptr, 0));
  const DWORD openError = GetLastError();
  if (!search) {
    // A drive's root need not even hold the two dot entries.
    if (openError == ERROR_FILE_NOT_FOUND) return;
    ThrowWalkError(std::wstring_view(path).substr(0, directoryLength), openError);
  }
  do {
    if (IsDots(found.cFileName)) continue;
    path.resize(prefixLength);
    path += found.cFileName;
    const DirectoryEntry entry{path, found.dwFileAttributes, found.dwReserved0};
    if (visit(entry) == WalkAction::kRecurse && entry.ShouldRecurse()) WalkInto(path, visit);
  } while (FindNextFileW(search.Get(), &found) != FALSE);
  const DWORD endError = GetLastError();
  path.resize(directoryLength);
  if (endError != ERROR_NO_MORE_FILES) ThrowWalkError(path, endError);
}

}  // namespace

void WalkDirectory(std::wstring_view root,
                   const std::function<WalkAction(const DirectoryEntry&)>& visit) {
  // An empty root would otherwise mean the root of the current drive.
  if (root.empty()) ThrowWalkError(root, ERROR_PATH_NOT_FOUND);
  std::wstring path(root);
  WalkInto(path, visit);
}

bool HoldsEntries(std::wstring_view path) {
  bool holds = false;
  WalkDirectory(path, [&holds](const DirectoryEntry&) {
    holds = true;
    return WalkAction::kSkip;
  });
  return holds;
}

void RemoveTree(std::wstring_view path) {
  // Without trailing separators: with one, the path of a link means the link's target.
  const std::wstring root(path.substr(0, path.find_last_not_of(L"\\/") + 1));
  if (IsTree(root)) {
    // A directory's contents come after it on the walk, so the way back removes them first.
    std::vector<std::wstring> entries;
    WalkDirectory(root, [&entries](const DirectoryEntry& entry) {
      entries.emplace_back(entry.path);
      return WalkAction::kRecurse;
    });
    for (auto entry = entries.rbegin(); entry != entries.rend(); ++entry) Remove(*entry);
  }
  Remove(root);
}

}  // namespace ve::file
