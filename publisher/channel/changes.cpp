#include "publisher/channel/changes.h"

#include <cctype>
#include <cstddef>
#include <map>
#include <set>

#include "core/errors.h"
#include "core/files.h"
#include "core/format.h"
#include "core/unicode.h"
#include "publisher/build/name_rules.h"
#include "publisher/files/paths.h"
#include "publisher/files/server_layout.h"
#include "publisher/files/whole_file.h"

namespace ve::publish {
namespace {

constexpr std::size_t kMaxNames = 10;

Json PrintNames(std::string_view kind, const std::vector<std::wstring>& names, Console& console) {
  Json list = Json::array();
  if (!names.empty()) console.Print(Format("  {} {}:", names.size(), kind));
  for (const std::wstring& name : names) {
    list.push_back(ToUtf8(name));
    if (list.size() <= kMaxNames) console.Print(Format("    {}", ToUtf8(name)));
  }
  if (names.size() > kMaxNames) console.Print(Format("    and {} more", names.size() - kMaxNames));
  return list;
}

/// A line with a path, as the path of a URL (RFC 3986).
std::string UrlPath(std::string_view path) {
  constexpr std::string_view kUnescaped = "-._~!$&'()*+,;=:@/\n";
  constexpr std::string_view kHexDigits = "0123456789ABCDEF";
  std::string url = "/";
  for (const char character : path) {
    const auto byte = static_cast<unsigned char>(character);
    if (std::isalnum(byte) != 0 || kUnescaped.find(character) != std::string_view::npos) {
      url += character;
    } else {
      url += {'%', kHexDigits[byte / 16], kHexDigits[byte % 16]};
    }
  }
  return url;
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
  struct Entries {
    const sdk::FileEntry* before = nullptr;
    const sdk::FileEntry* after = nullptr;
  };
  std::map<std::wstring_view, Entries> files;
  for (const sdk::FileEntry& entry : before.files) files[entry.name].before = &entry;
  for (const sdk::FileEntry& entry : after.files) files[entry.name].after = &entry;
  Changes changes;
  for (const auto& [name, entry] : files) {
    if (entry.before == nullptr) {
      changes.added.emplace_back(name);
    } else if (entry.after == nullptr) {
      changes.removed.emplace_back(name);
    } else if (entry.before->size != entry.after->size ||
               entry.before->digest != entry.after->digest) {
      changes.changed.emplace_back(name);
    }
  }
  return changes;
}

void ReportChanges(const Changes& changes, Console& console) {
  Json& report = console.Report()["changes"];
  report["added"] = PrintNames("added", changes.added, console);
  report["changed"] = PrintNames("changed", changes.changed, console);
  report["removed"] = PrintNames("removed", changes.removed, console);
}

void WriteUploadLists(const std::wstring& folder, std::wstring_view channel,
                      const Changes& changes) {
  const auto line = [&](std::wstring_view name) {
    return ToUtf8(Format(L"{}/{}\n", ChannelName(channel), name));
  };
  std::string payload;
  std::string deletions;
  std::string purge;
  std::set<std::wstring> added;
  for (const std::wstring& name : changes.added) {
    payload += line(name);
    added.insert(FoldCase(name));
  }
  for (const std::wstring& name : changes.changed) {
    payload += line(name);
    purge += UrlPath(line(name));
  }
  for (const std::wstring& name : changes.removed) {
    purge += UrlPath(line(name));
    // If only the case of its name changes, a server that does not distinguish case would delete
    // the new file.
    if (!added.contains(FoldCase(name))) deletions += line(name);
  }
  const std::string manifest = line(kManifestName);
  const std::string version = line(kVersionName);
  purge += UrlPath(manifest) + UrlPath(version);
  file::MakeDirectories(folder);
  WriteFileAtomically(JoinPath(folder, L"1-payload.txt"), payload);
  WriteFileAtomically(JoinPath(folder, L"2-manifest.txt"), manifest);
  WriteFileAtomically(JoinPath(folder, L"3-version.txt"), version);
  WriteFileAtomically(JoinPath(folder, L"4-delete.txt"), deletions);
  WriteFileAtomically(JoinPath(folder, L"5-purge.txt"), purge);
}

}  // namespace ve::publish
