#include <algorithm>
#include <array>
#include <limits>

#include "archive/archive_reader.h"
#include "archive/updater_settings.h"
#include "core/errors.h"
#include "core/format.h"
#include "core/unicode.h"
#include "publisher/channel/versions.h"
#include "publisher/commands/command.h"
#include "publisher/files/paths.h"
#include "publisher/files/whole_file.h"
#include "updater/game_manifest.h"
#include "updater/manifest_text.h"
#include "updater/updater_manifest.h"

namespace ve::publish {
namespace {

struct Options {
  std::string file;
};

// The Launcher's readers: each adds what is shown of a file. Throws `VERuntimeError`.

void ReadSettings(const std::string& content, Json& fields) {
  const sdk::UpdaterSettings settings = sdk::ReadUpdaterSettings(content);
  fields.update({{"url", ToUtf8(settings.url)}, {"channel", ToUtf8(settings.channel)}});
}

void ReadVersion(const std::string& content, Json& fields) {
  fields["version"] = VersionText(sdk::ReadOfferedVersion(content));
}

void ReadUpdaterManifest(const std::string& content, Json& fields) {
  std::string text = content;
  fields["version"] = sdk::ReadUpdaterManifest(text, 0);
}

void ReadGameManifest(const std::string& content, Json& fields) {
  std::string text = content;
  const sdk::GameUpdateManifest manifest = sdk::ReadGameUpdateManifest(text);
  std::uint64_t bytes = 0;
  for (const sdk::FileEntry& entry : manifest.files) {
    bytes += std::min(entry.size, std::numeric_limits<std::uint64_t>::max() - bytes);
  }
  fields.update({{"directories", manifest.directories.size()},
                 {"files", manifest.files.size()},
                 {"bytes", bytes}});
}

/// By the word that an archive or the first line of a manifest begins with.
struct Kind {
  std::string_view header;
  std::string_view name;
  void (*read)(const std::string& content, Json& fields);
};
constexpr std::array<Kind, 4> kKinds{{
    {sdk::UpdaterSettings::kHeader, "settings archive", ReadSettings},
    {sdk::GameVersion::kHeader, "game version", ReadVersion},
    {"GameUpdate", "game manifest", ReadGameManifest},
    {"Velmorant Updater", "updater manifest", ReadUpdaterManifest},
}};

std::string HeaderOf(std::string_view content) {
  try {
    return std::string(file::ArchiveReader(content).ReadString());
  } catch (const file::FileException&) {
    std::string text(content);
    sdk::StripCarriageReturns(text);
    const auto lines = sdk::SplitLines(text, '\n', sdk::EmptyPieces::kDrop);
    return lines.empty() ? std::string() : std::string(lines.front());
  }
}

void Run(const Options& options, Console& console, Diagnostics& diagnostics) {
  const std::wstring path = ExtendedLengthPath(options.file);
  const std::string location = DisplayPath(path);
  const std::string content = ReadWholeFile(path);
  const std::string header = HeaderOf(content);
  const bool isKnown = std::ranges::find(kKinds, header, &Kind::header) != kKinds.end();
  Json fields{{"file", location}, {"size", content.size()}, {"kind", "unknown"}};
  for (const Kind& kind : kKinds) {
    if (isKnown && kind.header != header) continue;
    if (isKnown) fields["kind"] = kind.name;
    try {
      kind.read(content, fields);
    } catch (const VERuntimeError& error) {
      diagnostics.AddError(location, error.what(),
                           Format("The Launcher's reader of {}s reports this.", kind.name));
    }
  }
  for (const auto& [key, value] : fields.items()) {
    console.Print(
        Format("  {}: {}", key, value.is_string() ? value.get<std::string>() : value.dump()));
  }
  console.Report().update(fields);
}

}  // namespace

void AddInspectCommand(CLI::App& program, Command& chosen) {
  const auto [command, options] = AddCommand(
      program, chosen, "inspect", "Show an archive or a manifest, or why the Launcher rejects it.",
      "server\\updates\\release\\game_update.manifest", Run);
  command->add_option("file", options->file, "The file; its name does not matter.")->required();
}

}  // namespace ve::publish
