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

void RemoveTree(std::wstring_view path) {
  if (!Exists(path)) return;
  // Contents come after their directory on the walk, so the way back removes them first.
  struct Entry {
    std::wstring path;
    bool isDirectory;
  };
  std::vector<Entry> entries;
  WalkDirectory(path, [&entries](const DirectoryEntry& entry) {
    entries.push_back({std::wstring(entry.path), entry.IsDirectory()});
    return WalkAction::kRecurse;
  });
  for (auto entry = entries.rbegin(); entry != entries.rend(); ++entry) {
    const DWORD code = TryRemoveKnown(entry->path, entry->isDirectory);
    if (code != ERROR_SUCCESS) ThrowFilesystemError("remove", entry->path, code);
  }
  Remove(path);
}

}  // namespace ve::file
