#include "publisher/preview/imagined_disk.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <exception>
#include <system_error>
#include <utility>

#include "core/errors.h"
#include "core/file_errors.h"
#include "core/file_matches_entry.h"
#include "core/files.h"
#include "core/format.h"
#include "core/handle.h"
#include "core/truncated_string.h"
#include "publisher/files/paths.h"

namespace ve::publish {
namespace {

constexpr std::wstring_view kWalkRoot = L".";
constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;

/// The absolute form of a path, as the system reads it.
std::wstring FullPath(std::wstring_view path) {
  const std::wstring text(path);
  const DWORD needed = GetFullPathNameW(text.c_str(), 0, nullptr, nullptr);
  std::wstring full(needed, L'\0');
  full.resize(GetFullPathNameW(text.c_str(), needed, full.data(), nullptr));
  return full;
}

int CompareNames(std::wstring_view left, std::wstring_view right) {
  return CompareStringOrdinal(left.data(), static_cast<int>(left.size()), right.data(),
                              static_cast<int>(right.size()), TRUE) -
         CSTR_EQUAL;
}

bool IsValidName(std::wstring_view name) {
  return std::none_of(name.begin(), name.end(), [](wchar_t unit) {
    return unit < L' ' || std::wstring_view(L"<>:\"|?*").find(unit) != std::wstring_view::npos;
  });
}

/// ERROR_SUCCESS if the file or directory may be opened like this now. Nothing is changed by it.
DWORD AskForAccess(const std::wstring& path, DWORD access) {
  const UniqueFileHandle opened(
      CreateFileW(path.c_str(), access, kShareAll, nullptr, OPEN_EXISTING,
                  FILE_FLAG_BACKUP_SEMANTICS | FILE_FLAG_OPEN_REPARSE_POINT, nullptr));
  return opened ? ERROR_SUCCESS : GetLastError();
}

/// Windows lets nobody replace a hidden or a system file without saying so; its substitutes do. A
/// file of our own tells.
bool AskWhetherHiddenFilesAreReplaced() {
  std::array<wchar_t, MAX_PATH + 1> folder{};
  std::array<wchar_t, MAX_PATH + 1> path{};
  if (GetTempPathW(MAX_PATH, folder.data()) == 0 ||
      GetTempFileNameW(folder.data(), L"pub", 0, path.data()) == 0) {
    return false;
  }
  SetFileAttributesW(path.data(), FILE_ATTRIBUTE_HIDDEN);
  const bool replaced = static_cast<bool>(UniqueFileHandle(CreateFileW(
      path.data(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr)));
  DeleteFileW(path.data());
  return replaced;
}

bool HiddenFilesAreReplaced() {
  static const bool kReplaced = AskWhetherHiddenFilesAreReplaced();
  return kReplaced;
}

}  // namespace

bool ImaginedDisk::NameOrder::operator()(const std::wstring& left,
                                         const std::wstring& right) const noexcept {
  return CompareNames(left, right) < 0;
}

ImaginedDisk::ImaginedDisk(std::wstring_view runningProgram)
    : root_(FullPath(kWalkRoot)), tree_(std::make_unique<Entry>()) {
  if (!root_.ends_with(L'\\')) root_ += L'\\';
  tree_->attributes = FILE_ATTRIBUTE_DIRECTORY;
  file::WalkDirectory(kWalkRoot, [this](const file::DirectoryEntry& entry) {
    Add(entry);
    return file::WalkAction::kRecurse;
  });
  running_ = Find(runningProgram).entry;
}

void ImaginedDisk::Add(const file::DirectoryEntry& entry) {
  std::wstring path(entry.path.substr(kWalkRoot.size() + 1));
  // The walk comes to a directory before it comes to what is in it.
  Entry* parent = tree_.get();
  std::size_t nameAt = 0;
  for (std::size_t end = path.find(L'\\'); end != std::wstring::npos;
       end = path.find(L'\\', nameAt)) {
    parent = parent->entries.find(path.substr(nameAt, end - nameAt))->second.get();
    nameAt = end + 1;
  }
  auto added = std::make_unique<Entry>();
  added->attributes = entry.attributes;
  added->reparseTag = entry.reparseTag;
  added->diskPath = path;
  parent->entries.emplace(path.substr(nameAt), std::move(added));
  if (entry.IsDirectory() && !entry.ShouldRecurse()) links_.push_back(path);
  before_.insert(std::move(path));
}

ImaginedDisk::Lookup ImaginedDisk::Find(std::wstring_view path) const {
  Lookup place;
  const std::wstring full = FullPath(path);
  // The root itself has no last backslash when it is named.
  place.inside = CompareNames((full + L'\\').substr(0, root_.size()), root_) == 0;
  if (!place.inside) return place;
  std::wstring_view rest = std::wstring_view(full).substr(std::min(root_.size(), full.size()));
  const bool namesDirectory = rest.ends_with(L'\\');
  while (rest.ends_with(L'\\')) rest.remove_suffix(1);

  place.entry = tree_.get();
  while (!rest.empty()) {
    const std::size_t end = std::min(rest.find(L'\\'), rest.size());
    place.name = rest.substr(0, end);
    rest.remove_prefix(std::min(end + 1, rest.size()));
    place.valid = place.valid && IsValidName(place.name);
    place.parent = place.entry != nullptr && place.entry->IsDirectory() ? place.entry : nullptr;
    place.entry = nullptr;
    if (place.parent != nullptr) {
      const auto found = place.parent->entries.find(place.name);
      if (found != place.parent->entries.end()) {
        place.name = found->first;
        place.entry = found->second.get();
      }
    }
    place.path += place.path.empty() ? place.name : L'\\' + place.name;
  }
  // With a separator at its end a path leads to no file.
  if (namesDirectory && place.entry != nullptr && !place.entry->IsDirectory()) {
    place.entry = nullptr;
  }
  return place;
}

bool ImaginedDisk::Exists(std::wstring_view path) const {
  const Lookup place = Find(path);
  return place.inside ? place.entry != nullptr : file::Exists(path);
}

bool ImaginedDisk::IsDirectory(std::wstring_view path) const {
  const Lookup place = Find(path);
  return place.entry != nullptr && place.entry->IsDirectory();
}

bool ImaginedDisk::IsAsOnDisk(std::wstring_view path) const {
  const Lookup place = Find(path);
  return place.entry != nullptr && !place.entry->diskPath.empty() && !place.entry->content;
}

bool ImaginedDisk::Matches(std::wstring_view path, std::uint64_t size,
                           std::string_view digest) const {
  const Lookup place = Find(path);
  if (!place.inside) return FileMatchesEntry(path, size, digest);
  if (place.entry == nullptr) return false;
  if (place.entry->IsDirectory()) {
    file::ThrowFilesystemError("file_size", path, ERROR_ACCESS_DENIED);
  }
  if (place.entry->content) return place.entry->content(size, digest);
  return FileMatchesEntry(place.entry->diskPath, size, digest);
}

DWORD ImaginedDisk::CreateOne(std::wstring_view path) {
  const Lookup place = Find(path);
  if (!place.inside) return ERROR_SUCCESS;
  if (place.entry != nullptr && place.entry->IsDirectory()) return ERROR_SUCCESS;
  if (!place.valid) return ERROR_INVALID_NAME;
  if (place.parent == nullptr) return ERROR_PATH_NOT_FOUND;
  if (place.parent->entries.contains(place.name)) return ERROR_ALREADY_EXISTS;
  auto made = std::make_unique<Entry>();
  made->attributes = FILE_ATTRIBUTE_DIRECTORY;
  place.parent->entries.emplace(place.name, std::move(made));
  made_.push_back(place.path);
  return ERROR_SUCCESS;
}

void ImaginedDisk::MakeDirectory(std::wstring_view path) {
  const DWORD code = CreateOne(path);
  if (code != ERROR_SUCCESS) file::ThrowFilesystemError("create_directory", path, code);
}

void ImaginedDisk::EnsureDirectories(std::wstring_view path) {
  if (Exists(path)) return;
  const Lookup place = Find(path);
  if (!place.valid) file::ThrowFilesystemError("create_directories", path, ERROR_INVALID_NAME);
  // From the top down: what stands already is no error, unless it is a file.
  for (std::size_t end = 0; end != std::wstring::npos;) {
    end = place.path.find(L'\\', end + 1);
    const DWORD code = CreateOne(place.path.substr(0, end));
    if (code != ERROR_SUCCESS) file::ThrowFilesystemError("create_directories", path, code);
  }
}

DWORD ImaginedDisk::WhyNotReplaced(const Entry& file) const {
  if (file.IsDirectory()) return ERROR_ACCESS_DENIED;
  if (&file == running_) return ERROR_SHARING_VIOLATION;
  constexpr DWORD kHidden = FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM;
  if ((file.attributes & kHidden) != 0 && !HiddenFilesAreReplaced()) return ERROR_ACCESS_DENIED;
  // The system knows of read-only files, of rights, and of other programs that have it open.
  return file.diskPath.empty() ? ERROR_SUCCESS : AskForAccess(file.diskPath, GENERIC_WRITE);
}

DWORD ImaginedDisk::WhyNotRemoved(const Entry& entry) const {
  if ((entry.attributes & FILE_ATTRIBUTE_READONLY) != 0) return ERROR_ACCESS_DENIED;
  if (&entry == running_) return ERROR_ACCESS_DENIED;
  if (!entry.entries.empty()) return ERROR_DIR_NOT_EMPTY;
  return entry.diskPath.empty() ? ERROR_SUCCESS : AskForAccess(entry.diskPath, DELETE);
}

void ImaginedDisk::SaveFile(std::wstring_view path, ContentMatch content) {
  if (path.size() > WidePath::kMaxCharacters)
    file::ThrowOpenError(file::kSaveFailure, ToUtf8(path), ENAMETOOLONG);
  const Lookup place = Find(path);
  if (!place.inside) return;
  if (place.entry != nullptr) {
    if (WhyNotReplaced(*place.entry) != ERROR_SUCCESS)
      file::ThrowOpenError(file::kSaveFailure, ToUtf8(path), EACCES);
    place.entry->content = std::move(content);
    return;
  }
  if (!place.valid) file::ThrowOpenError(file::kSaveFailure, ToUtf8(path), EINVAL);
  if (place.parent == nullptr) file::ThrowOpenError(file::kSaveFailure, ToUtf8(path), ENOENT);
  auto made = std::make_unique<Entry>();
  made->content = std::move(content);
  place.parent->entries.emplace(place.name, std::move(made));
}

void ImaginedDisk::CopyFileOverwrite(std::wstring_view source, std::wstring_view target) {
  const Lookup from = Find(source);
  const Lookup to = Find(target);
  if (from.entry == nullptr) file::ThrowCopyError(source, target, ERROR_FILE_NOT_FOUND);
  if (!to.inside) return;
  Entry* copy = to.entry;
  if (copy != nullptr) {
    const DWORD code = WhyNotReplaced(*copy);
    if (code != ERROR_SUCCESS) file::ThrowCopyError(source, target, code);
  } else {
    if (!to.valid) file::ThrowCopyError(source, target, ERROR_INVALID_NAME);
    if (to.parent == nullptr) file::ThrowCopyError(source, target, ERROR_PATH_NOT_FOUND);
    copy = to.parent->entries.emplace(to.name, std::make_unique<Entry>()).first->second.get();
  }
  copy->attributes = from.entry->attributes | FILE_ATTRIBUTE_ARCHIVE;
  copy->content = from.entry->content;
  if (!copy->content) {
    copy->content = [staged = from.entry->diskPath](std::uint64_t size, std::string_view digest) {
      return FileMatchesEntry(staged, size, digest);
    };
  }
}

DWORD ImaginedDisk::TryRemove(std::wstring_view path) {
  const Lookup place = Find(path);
  if (!place.valid) return ERROR_INVALID_NAME;
  if (place.entry == nullptr) return ERROR_SUCCESS;
  // The current directory is in use.
  if (place.parent == nullptr) return ERROR_SHARING_VIOLATION;
  const DWORD code = WhyNotRemoved(*place.entry);
  if (code != ERROR_SUCCESS) return code;
  removed_.push_back(place.path);
  place.parent->entries.erase(place.name);
  return ERROR_SUCCESS;
}

void ImaginedDisk::Remove(std::wstring_view path) {
  const DWORD code = TryRemove(path);
  if (code != ERROR_SUCCESS) file::ThrowFilesystemError("remove", path, code);
}

void ImaginedDisk::Rename(std::wstring_view from, std::wstring_view to) {
  const Lookup source = Find(from);
  if (source.entry == nullptr) file::ThrowFilesystemError("rename", from, ERROR_FILE_NOT_FOUND);
  const Lookup target = Find(to);
  if (target.entry != nullptr && target.entry != source.entry) {
    // Whatever it is that keeps the target, the system refuses access to it.
    if (source.entry->IsDirectory() || WhyNotReplaced(*target.entry) != ERROR_SUCCESS) {
      file::ThrowFilesystemError("rename", from, ERROR_ACCESS_DENIED);
    }
    target.parent->entries.erase(target.name);
  }
  auto moved = source.parent->entries.extract(source.name);
  moved.key() = target.name;
  target.parent->entries.insert(std::move(moved));
}

void ImaginedDisk::WalkInto(
    const Entry& directory, const std::wstring& path,
    const std::function<file::WalkAction(const file::DirectoryEntry&)>& visit) const {
  // The names first: a visit may remove what it is shown.
  std::vector<std::wstring> names;
  names.reserve(directory.entries.size());
  for (const auto& [name, entry] : directory.entries) names.push_back(name);
  for (const std::wstring& name : names) {
    const std::wstring entryPath = Format(path.ends_with(L'\\') ? L"{}{}" : L"{}\\{}", path, name);
    const Entry& entry = *directory.entries.find(name)->second;
    const file::DirectoryEntry met{entryPath, entry.attributes, entry.reparseTag};
    if (visit(met) == file::WalkAction::kRecurse && met.ShouldRecurse())
      WalkInto(entry, entryPath, visit);
  }
}

void ImaginedDisk::WalkDirectory(
    std::wstring_view root,
    const std::function<file::WalkAction(const file::DirectoryEntry&)>& visit) const {
  const Lookup place = Find(root);
  if (place.entry != nullptr) WalkInto(*place.entry, std::wstring(root), visit);
}

void ImaginedDisk::RemoveTree(std::wstring_view path) {
  if (!Exists(path)) return;
  std::vector<std::wstring> entries{std::wstring(path)};
  WalkDirectory(path, [&entries](const file::DirectoryEntry& entry) {
    entries.emplace_back(entry.path);
    return file::WalkAction::kRecurse;
  });
  for (auto entry = entries.rbegin(); entry != entries.rend(); ++entry) Remove(*entry);
}

std::vector<std::wstring> ImaginedDisk::TakeMadeDirectories() { return std::exchange(made_, {}); }

std::vector<std::wstring> ImaginedDisk::TakeRemoved() { return std::exchange(removed_, {}); }

DiskChanges ImaginedDisk::Changes() const {
  DiskChanges changes;
  std::set<std::wstring> gone = before_;
  WalkDirectory(kWalkRoot, [&](const file::DirectoryEntry& met) {
    std::wstring path(met.path.substr(kWalkRoot.size() + 1));
    if (gone.erase(path) == 0) {
      changes.created.push_back(std::move(path));
    } else if (Find(path).entry->content || Find(path).entry->diskPath != path) {
      changes.written.push_back(std::move(path));
    }
    return file::WalkAction::kRecurse;
  });
  changes.removed.assign(gone.begin(), gone.end());
  return changes;
}

}  // namespace ve::publish
