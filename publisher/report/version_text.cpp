#include "publisher/report/version_text.h"

#include <charconv>
#include <cstdint>
#include <system_error>

#include "core/format.h"

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
  if (!text.empty()) return {};
  return version;
}

std::string VersionText(const sdk::VersionNumber& version) {
  return Format("{3}.{2}.{1}.{0}", version.words[0], version.words[1], version.words[2],
                version.words[3]);
}

}  // namespace ve::publish
