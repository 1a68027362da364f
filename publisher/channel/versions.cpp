#include "publisher/channel/versions.h"

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <system_error>

#include "core/errors.h"
#include "core/files.h"
#include "core/format.h"
#include "publisher/files/paths.h"
#include "publisher/files/server_layout.h"
#include "publisher/files/whole_file.h"

namespace ve::publish {

std::optional<sdk::VersionNumber> ParseVersion(std::string_view text) {
  sdk::VersionNumber version;
  for (std::size_t word = version.words.size(); word-- > 0;) {
    // from_chars would take a sign.
    if (text.empty() || text.front() < '0' || text.front() > '9') return {};
    const auto [end, error] =
        std::from_chars(text.data(), text.data() + text.size(), version.words[word]);
    if (error != std::errc()) return {};
    text.remove_prefix(static_cast<std::size_t>(end - text.data()));
    if (word == 0) break;
    if (!text.starts_with('.')) return {};
    text.remove_prefix(1);
  }
  return text.empty() ? std::optional(version) : std::nullopt;
}

std::string VersionText(const sdk::VersionNumber& version) {
  return Format("{3}.{2}.{1}.{0}", version.words[0], version.words[1], version.words[2],
                version.words[3]);
}

std::optional<sdk::VersionNumber> CheckNewVersion(const std::string& text,
                                                  const ChannelFolders& folders, bool force,
                                                  Console& console, Diagnostics& diagnostics) {
  const std::optional<sdk::VersionNumber> version = ParseVersion(text);
  if (!version) {
    diagnostics.AddError(Format("version \"{}\"", text),
                         "not a valid version: four numbers between 0 and 2147483647 are needed",
                         "Write the most significant number first, such as 1.4.0.2.");
    return {};
  }
  // Only a mistake, such as a date with the time, gets near the highest number.
  constexpr std::int32_t kNearTheEnd = 2'000'000'000;
  constexpr const char* kNoWayBack =
      "There is no way back: the Launcher installs only higher versions. Check the number.";
  if (std::ranges::any_of(version->words, [](auto word) { return word > kNearTheEnd; })) {
    diagnostics.AddWarning(text, "has a number near the highest possible, 2147483647", kNoWayBack);
  }
  const std::wstring path = JoinPath(PublishedFolder(folders), kVersionName);
  if (!file::Exists(path)) return version;
  std::vector<Diagnostic>& found = force ? diagnostics.warnings : diagnostics.errors;
  try {
    const sdk::VersionNumber present = sdk::ReadOfferedVersion(ReadWholeFile(path));
    console.Report()["previousVersion"] = VersionText(present);
    if (std::int64_t{version->words[3]} - present.words[3] > 1) {
      diagnostics.AddWarning(
          text, Format("raises the first number by more than one, from {}", VersionText(present)),
          kNoWayBack);
    }
    if (*version <= present) {
      found.push_back(
          {text, Format("not higher than {}, the version on the server", VersionText(present)),
           "Players who have that version are not offered this one. Publish a higher version; "
           "--force publishes anyway."});
    }
  } catch (const VERuntimeError& error) {
    found.push_back({DisplayPath(path),
                     Format("the version on the server cannot be read: {}", error.what()),
                     "Use --force to replace it."});
  }
  return version;
}

}  // namespace ve::publish
