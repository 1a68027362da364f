#include "updater/game_apply.h"

#include <exception>
#include <string>

#include "core/errors.h"
#include "core/files.h"
#include "updater/build_config.h"
#include "updater/game_version.h"
#include "updater/own_executable.h"

namespace ve::sdk {
namespace {

void CreateDirectories(const GameUpdateManifest& manifest) {
  for (const std::string_view directory : manifest.directories) {
    file::EnsureDirectories(WidenName(directory));
  }
}

void InstallStagedFiles(const StagedUpdate& staged) {
  for (const StagedFile& copy : staged.copies) {
    file::CopyFileOverwrite(copy.stagingPath, copy.name);
  }
}

/// True if the entry is gone, false if it is a directory to go on into.
bool RemoveEntry(std::wstring_view path, const RemoveCall& remove) {
  const DWORD code = remove(path);
  if (code == ERROR_DIR_NOT_EMPTY && kBuildConfig.keepsNonEmptyDirectories) return false;
  if (code != ERROR_SUCCESS) file::ThrowFilesystemError("remove", path, code);
  return true;
}

void RemoveStagingFolder() {
  try {
    file::RemoveTree(kStagingFolder);
  } catch (const std::exception&) {
    // The game is complete; what is left over is used or removed by the next update.
  }
}

}  // namespace

file::WalkAction CleanUpEntry(CleanupRules& rules, std::wstring_view path,
                              const RemoveCall& remove) {
  // Entries are met as ".\bin\x"; the rules know them as "bin\x".
  const std::wstring_view relativePath = path.substr(kCleanupRoot.size() + 1);
  if (rules.Keeps(relativePath)) return file::WalkAction::kRecurse;
  return RemoveEntry(path, remove) ? file::WalkAction::kSkip : file::WalkAction::kRecurse;
}

void CleanUp(const std::unordered_set<std::wstring>& listedNames) {
  CleanupRules rules(listedNames, OwnExecutableName());
  file::WalkDirectory(kCleanupRoot, [&rules](const file::DirectoryEntry& entry) {
    return CleanUpEntry(rules, entry.path, file::TryRemove);
  });
}

void ApplyUpdate(const GameUpdateManifest& manifest, const StagedUpdate& staged,
                 std::string_view pendingVersion) {
  CreateDirectories(manifest);
  InstallStagedFiles(staged);
  CleanUp(staged.names);
  RemoveStagingFolder();
  file::SaveFile(kGameVersionFile, pendingVersion);
}

}  // namespace ve::sdk
