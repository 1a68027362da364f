#include <algorithm>
#include <array>
#include <limits>
#include <memory>
#include <variant>

#include "archive/archive_reader.h"
#include "archive/updater_settings.h"
#include "core/errors.h"
#include "core/format.h"
#include "core/unicode.h"
#include "publisher/channel/parsed_files.h"
#include "publisher/commands/command.h"
#include "publisher/files/paths.h"
#include "publisher/files/whole_file.h"
#include "publisher/report/version_text.h"
#include "updater/manifest_text.h"

namespace ve::publish {
namespace {

struct Options {
  std::string file;
  bool files = false;
};

/// The file as it is read, and what is shown of it.
struct Inspection {
  const Options& options;
  std::string location;
  std::string content;
  Json fields;
  Diagnostics& diagnostics;
};

/// The content; or none, after adding the reader's message as an error.
template <class Parsed>
const Parsed* Accepted(const std::variant<Parsed, ParseError>& parsed, std::string_view kind,
                       Inspection& inspection) {
  if (const auto* error = std::get_if<ParseError>(&parsed)) {
    inspection.diagnostics.AddError(inspection.location, error->message,
                                    Format("The Launcher's reader of {}s reports this.", kind));
  }
  return std::get_if<Parsed>(&parsed);
}

void AddArchive(std::size_t recordSize, Inspection& inspection) {
  const bool isChecked = ModeOf(inspection.content) == file::ArchiveMode::kChecked;
  inspection.fields["mode"] = isChecked ? "checked" : "plain";
  CheckRecordSize(recordSize, inspection.content.size(), inspection.location,
                  inspection.diagnostics);
}

void ReadSettings(std::string_view kind, Inspection& inspection) {
  const auto parsed = ParseSettings(inspection.content);
  if (const SettingsFile* settings = Accepted(parsed, kind, inspection)) {
    AddArchive(settings->recordSize, inspection);
    inspection.fields["url"] = settings->url;
    inspection.fields["channel"] = settings->channel;
  }
}

void ReadVersion(std::string_view kind, Inspection& inspection) {
  const auto parsed = ParseVersionFile(inspection.content);
  if (const VersionFile* version = Accepted(parsed, kind, inspection)) {
    AddArchive(version->recordSize, inspection);
    inspection.fields["version"] = VersionText(version->version);
  }
}

void ReadUpdaterManifest(std::string_view kind, Inspection& inspection) {
  const auto parsed = ParseUpdaterManifest(inspection.content);
  if (const std::uint32_t* version = Accepted(parsed, kind, inspection)) {
    inspection.fields["version"] = *version;
  }
}

void ReadGameManifest(std::string_view kind, Inspection& inspection) {
  std::string text;
  const auto parsed = ParseGameManifest(inspection.content, text);
  const sdk::GameUpdateManifest* manifest = Accepted(parsed, kind, inspection);
  if (manifest == nullptr) return;
  std::uint64_t bytes = 0;
  const sdk::FileEntry* largest = &manifest->files.front();
  for (const sdk::FileEntry& entry : manifest->files) {
    bytes += std::min(entry.size, std::numeric_limits<std::uint64_t>::max() - bytes);
    if (entry.size > largest->size) largest = &entry;
  }
  Json& fields = inspection.fields;
  fields["directories"] = manifest->directories.size();
  fields["files"] = manifest->files.size();
  fields["bytes"] = bytes;
  fields["largest"] = ToUtf8(largest->name);
  if (!inspection.options.files) return;
  fields["directoryNames"] = manifest->directories;
  Json& entries = fields["entries"] = Json::array();
  for (const sdk::FileEntry& entry : manifest->files) {
    entries.push_back(
        {{"name", ToUtf8(entry.name)}, {"size", entry.size}, {"digest", entry.digest}});
  }
}

/// The files that the Launcher reads, by the word that an archive or the first line of a manifest
/// begins with.
struct Kind {
  std::string_view header;
  std::string_view name;
  void (*read)(std::string_view kind, Inspection& inspection);
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
  Inspection inspection{options, DisplayPath(path), ReadWholeFile(path), {}, diagnostics};
  const auto kind = std::find_if(
      kKinds.begin(), kKinds.end(),
      [header = HeaderOf(inspection.content)](const Kind& k) { return k.header == header; });
  inspection.fields = {{"file", inspection.location},
                       {"size", inspection.content.size()},
                       {"kind", kind == kKinds.end() ? "unknown" : kind->name}};
  if (kind != kKinds.end()) {
    kind->read(kind->name, inspection);
  } else {
    for (const Kind& reader : kKinds) reader.read(reader.name, inspection);
  }
  if (!console.IsJson()) PrintFields(inspection.fields, console);
  console.Report().update(inspection.fields);
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
