#include "publisher/channel/changes.h"

#include <algorithm>
#include <cstddef>
#include <map>
#include <string_view>

#include "core/errors.h"
#include "core/files.h"
#include "core/format.h"
#include "core/unicode.h"
#include "publisher/files/paths.h"
#include "publisher/files/server_layout.h"
#include "publisher/files/whole_file.h"

namespace ve::publish {
namespace {

constexpr std::size_t kMaxNames = 10;

std::map<std::wstring_view, const sdk::FileEntry*> ByName(const sdk::GameUpdateManifest& manifest) {
  std::map<std::wstring_view, const sdk::FileEntry*> entries;
  for (const sdk::FileEntry& entry : manifest.files) entries.emplace(entry.name, &entry);
  return entries;
}

Json PrintNames(std::string_view kind, const std::vector<std::wstring>& names, Console& console) {
  Json list = Json::array();
  for (const std::wstring& name : names) list.push_back(ToUtf8(name));
  if (!names.empty()) console.Print(Format("  {} {}:", names.size(), kind));
  for (std::size_t index = 0; index < std::min(names.size(), kMaxNames); ++index) {
    console.Print(Format("    {}", ToUtf8(names[index])));
  }
  if (names.size() > kMaxNames) console.Print(Format("    and {} more", names.size() - kMaxNames));
  return list;
}

}  // namespace

sdk::GameUpdateManifest ReadLiveManifest(const ChannelFolders& folders, std::string& text) {
  const std::wstring path = JoinPath(folders.live, kManifestName);
  if (!file::Exists(path)) return {};
  try {
    text = ReadWholeFile(path);
    return sdk::ReadGameUpdateManifest(text);
  } catch (const VERuntimeError&) {
    return {};
  }
}

Changes CompareManifests(const sdk::GameUpdateManifest& before,
                         const sdk::GameUpdateManifest& after) {
  Changes changes;
  const auto old = ByName(before);
  const auto present = ByName(after);
  for (const auto& [name, entry] : present) {
    const auto known = old.find(name);
    if (known == old.end()) {
      changes.added.emplace_back(name);
    } else if (known->second->size != entry->size || known->second->digest != entry->digest) {
      changes.changed.emplace_back(name);
    }
  }
  for (const auto& [name, entry] : old) {
    if (!present.contains(name)) changes.removed.emplace_back(name);
  }
  return changes;
}

void ReportChanges(const Changes& changes, Console& console) {
  Json& report = console.Report()["changes"];
  report["added"] = PrintNames("added", changes.added, console);
  report["changed"] = PrintNames("changed", changes.changed, console);
  report["removed"] = PrintNames("removed", changes.removed, console);
}

}  // namespace ve::publish
