#include "publisher/channel/upload_lists.h"

#include <cctype>
#include <set>
#include <vector>

#include "core/files.h"
#include "core/format.h"
#include "core/unicode.h"
#include "publisher/build/name_rules.h"
#include "publisher/files/paths.h"
#include "publisher/files/server_layout.h"
#include "publisher/files/whole_file.h"

namespace ve::publish {
namespace {

using Names = std::vector<std::wstring>;

Names Joined(Names names, const Names& others) {
  names.insert(names.end(), others.begin(), others.end());
  return names;
}

/// What is removed, except a file of which only the case of its name changes: where the server does
/// not distinguish case, deleting the old name would delete the new file.
Names Deletions(const Changes& changes) {
  std::set<std::wstring> added;
  for (const std::wstring& name : changes.added) added.insert(FoldCase(name));
  Names deletions = changes.removed;
  std::erase_if(deletions,
                [&](const std::wstring& name) { return added.contains(FoldCase(name)); });
  return deletions;
}

/// A path as a URL has it (RFC 3986).
std::string UrlPath(std::string_view path) {
  constexpr std::string_view kUnescaped = "-._~!$&'()*+,;=:@/";
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

void WriteUploadLists(const std::wstring& folder, std::wstring_view channel,
                      const Changes& changes) {
  const auto pathOf = [&](const std::wstring& name) {
    return ToUtf8(Format(L"{}/{}", ChannelName(channel), name));
  };
  const auto write = [&](std::wstring_view list, const Names& names, auto lineOf) {
    std::string text;
    for (const std::wstring& name : names) text += lineOf(name) + "\n";
    WriteFileAtomically(JoinPath(folder, list), text);
  };
  const Names manifest{std::wstring(kManifestName)};
  const Names version{std::wstring(kVersionName)};
  const Names stale = Joined(changes.changed, changes.removed);

  file::MakeDirectories(folder);
  write(L"1-payload.txt", Joined(changes.added, changes.changed), pathOf);
  write(L"2-manifest.txt", manifest, pathOf);
  write(L"3-version.txt", version, pathOf);
  write(L"4-delete.txt", Deletions(changes), pathOf);
  write(L"5-purge.txt", Joined(stale, Joined(manifest, version)),
        [&](const std::wstring& name) { return UrlPath(pathOf(name)); });
}

}  // namespace ve::publish
