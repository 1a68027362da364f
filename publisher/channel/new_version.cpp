#include "publisher/channel/new_version.h"

#include <algorithm>
#include <cstdint>

#include "core/errors.h"
#include "core/files.h"
#include "core/format.h"
#include "publisher/files/paths.h"
#include "publisher/files/server_layout.h"
#include "publisher/files/whole_file.h"
#include "publisher/report/version_text.h"

namespace ve::publish {
namespace {

// Above this a number counts as near its end: only a mistake, such as a date with the time, gets
// there.
constexpr std::int32_t kNearTheEnd = 2'000'000'000;

constexpr const char* kNoWayBack =
    "There is no way back: the Launcher installs only higher versions. Check the number.";

void WarnOfJump(const sdk::VersionNumber& version, const sdk::VersionNumber& present,
                const std::string& text, Diagnostics& diagnostics) {
  if (std::int64_t{version.words[3]} - present.words[3] <= 1) return;
  diagnostics.AddWarning(
      text, Format("raises the first number by more than one, from {}", VersionText(present)),
      kNoWayBack);
}

void WarnOfEnd(const sdk::VersionNumber& version, const std::string& text,
               Diagnostics& diagnostics) {
  if (std::any_of(version.words.begin(), version.words.end(),
                  [](std::int32_t word) { return word > kNearTheEnd; })) {
    diagnostics.AddWarning(text, "has a number near the highest possible, 2147483647", kNoWayBack);
  }
}

}  // namespace

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
  const std::wstring path = JoinPath(PublishedFolder(folders), kVersionName);
  const Severity severity = force ? Severity::kWarning : Severity::kError;
  if (file::Exists(path)) {
    try {
      const sdk::VersionNumber present = sdk::ReadOfferedVersion(ReadWholeFile(path));
      console.Report()["previousVersion"] = VersionText(present);
      WarnOfJump(*version, present, text, diagnostics);
      if (*version <= present) {
        diagnostics.Add(
            severity,
            {text, Format("not above {}, the version on the server", VersionText(present)),
             "Players who have that version are not offered this one. Publish a higher "
             "version; --force publishes anyway."});
      }
    } catch (const VERuntimeError& error) {
      diagnostics.Add(
          severity,
          {DisplayPath(path), Format("the version on the server cannot be read: {}", error.what()),
           "Use --force to replace it."});
    }
  }
  WarnOfEnd(*version, text, diagnostics);
  return version;
}

}  // namespace ve::publish
