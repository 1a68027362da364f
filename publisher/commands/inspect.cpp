#include <algorithm>
#include <array>
#include <limits>
#include <memory>

#include "archive/archive_reader.h"
#include "archive/updater_settings.h"
#include "core/errors.h"
#include "core/format.h"
#include "core/unicode.h"
#include "publisher/channel/channel_files.h"
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
  bool files = false;
};

/// A file, and what is shown of it.
struct Inspection {
  std::string location;
  std::string content;
  bool listsFiles;
  Json fields;
};

void CheckArchive(Inspection& file, const std::string& record, Diagnostics& diagnostics) {
  file.fields["mode"] = ModeOf(file.content) == file::ArchiveMode::kPlain ? "plain" : "checked";
  CheckRecordSize(file.content, record, file.location, diagnostics);
}

void ReadSettings(Inspection& file, Diagnostics& diagnostics) {
  const sdk::UpdaterSettings settings = sdk::ReadUpdaterSettings(file.content);
  CheckArchive(file, SettingsArchive(settings.url, settings.channel, ModeOf(file.content)),
               diagnostics);
  file.fields["url"] = ToUtf8(settings.url);
  file.fields["channel"] = ToUtf8(settings.channel);
}

void ReadVersion(Inspection& file, Diagnostics& diagnostics) {
  const sdk::VersionNumber version = sdk::ReadOfferedVersion(file.content);
  CheckArchive(file, VersionArchive(version, ModeOf(file.content)), diagnostics);
  file.fields["version"] = VersionText(version);
}

void ReadUpdaterManifest(Inspection& file, Diagnostics& /*diagnostics*/) {
  std::string text = file.content;
  file.fields["version"] = sdk::ReadUpdaterManifest(text, 0);
}

void ReadGameManifest(Inspection& file, Diagnostics& /*diagnostics*/) {
  std::string text = file.content;
  const sdk::GameUpdateManifest manifest = sdk::ReadGameUpdateManifest(text);
  std::uint64_t bytes = 0;
  const sdk::FileEntry* largest = &manifest.files.front();
  for (const sdk::FileEntry& entry : manifest.files) {
    bytes += std::min(entry.size, std::numeric_limits<std::uint64_t>::max() - bytes);
    if (entry.size > largest->size) largest = &entry;
  }
  file.fields.update({{"directories", manifest.directories.size()},
                      {"files", manifest.files.size()},
                      {"bytes", bytes},
                      {"largest", ToUtf8(largest->name)}});
  if (!file.listsFiles) return;
  file.fields["directoryNames"] = manifest.directories;
  Json& entries = file.fields["entries"] = Json::array();
  for (const sdk::FileEntry& entry : manifest.files) {
    entries.push_back(
        {{"name", ToUtf8(entry.name)}, {"size", entry.size}, {"digest", entry.digest}});
  }
}

/// The files that the Launcher reads, by the word that an archive or the first line of a manifest
/// begins with. The readers throw `VERuntimeError`.
struct Kind {
  std::string_view header;
  std::string_view name;
  void (*read)(Inspection& file, Diagnostics& diagnostics);
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

std::string TextOf(const Json& value) {
  return value.is_string() ? value.get<std::string>() : value.dump();
}

void PrintFields(const Json& fields, Console& console) {
  for (const auto& [key, value] : fields.items()) {
    if (!value.is_array()) {
      console.Print(Format("  {}: {}", key, TextOf(value)));
      continue;
    }
    console.Print(Format("  {}:", key));
    for (const Json& entry : value) {
      std::string line;
      for (const Json& field : entry.is_object() ? entry : Json::array({entry})) {
        line += " " + TextOf(field);
      }
      console.Print(Format("   {}", line));
    }
  }
}

void Run(const Options& options, Console& console, Diagnostics& diagnostics) {
  const std::wstring path = ExtendedLengthPath(options.file);
  Inspection file{DisplayPath(path), ReadWholeFile(path), options.files, {}};
  const std::string header = HeaderOf(file.content);
  const bool isKnown = std::any_of(kKinds.begin(), kKinds.end(),
                                   [&](const Kind& kind) { return kind.header == header; });
  file.fields = {{"file", file.location}, {"size", file.content.size()}, {"kind", "unknown"}};
  for (const Kind& kind : kKinds) {
    if (isKnown && kind.header != header) continue;
    if (isKnown) file.fields["kind"] = kind.name;
    try {
      kind.read(file, diagnostics);
    } catch (const VERuntimeError& error) {
      diagnostics.AddError(file.location, error.what(),
                           Format("The Launcher's reader of {}s reports this.", kind.name));
    }
  }
  if (!console.IsJson()) PrintFields(file.fields, console);
  console.Report().update(file.fields);
}

}  // namespace

void AddInspectCommand(CLI::App& program, Command& chosen) {
  const auto options = std::make_shared<Options>();
  CLI::App* command = AddCommand(program, chosen, "inspect",
                                 "Show an archive or a manifest, or why the Launcher rejects it.",
                                 "server\\updates\\release\\game_update.manifest --files",
                                 [options](Console& console, Diagnostics& diagnostics) {
                                   Run(*options, console, diagnostics);
                                 });
  command->add_option("file", options->file, "The file; its name does not matter.")->required();
  command->add_flag("--files", options->files,
                    "List the directories and files of a game manifest, too.");
}

}  // namespace ve::publish
