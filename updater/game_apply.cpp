#include "updater/game_apply.h"

#include <exception>
#include <string>

#include "core/directory_walk.h"
#include "core/errors.h"
#include "core/extended_length_path.h"
#include "core/files.h"
#include "updater/build_config.h"
#include "updater/cleanup_rules.h"
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

/// Whether a directory that cannot be removed is kept. Any failure counts, not only
/// ERROR_DIR_NOT_EMPTY: a filled directory that a process has as its current directory, such as
/// "bin" while a crash reporter of the game runs, fails as being in use.
bool KeepsFilledDirectory(const file::DirectoryEntry& entry, DWORD failure) {
  if (!kBuildConfig.keepsNonEmptyDirectories || !entry.ShouldRecurse()) return false;
  return failure == ERROR_DIR_NOT_EMPTY || file::HoldsEntries(entry.path);
}

void RemoveStagingFolder() {
  try {
    file::RemoveTree(kStagingFolder);
  } catch (const std::exception&) {
    // The game is complete. The next update uses or removes what is left.
  }
}

}  // namespace

void CleanUp(const std::unordered_set<std::wstring_view>& listedNames) {
  const CleanupRules rules(listedNames, OwnExecutableName());
  // Of any length: one long path below a kept folder would otherwise end every update.
  const std::wstring root = file::ExtendedLengthPath(L".");
  const std::size_t prefixLength = root.size() + (root.ends_with(L'\\') ? 0 : 1);
  file::WalkDirectory(root, [&](const file::DirectoryEntry& entry) {
    if (rules.Keeps(entry.path.substr(prefixLength))) return file::WalkAction::kRecurse;
    const DWORD code = file::TryRemove(entry.path);
    if (code == ERROR_SUCCESS) return file::WalkAction::kSkip;
    if (KeepsFilledDirectory(entry, code)) return file::WalkAction::kRecurse;
    file::ThrowFilesystemError("remove", entry.path, code);
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
