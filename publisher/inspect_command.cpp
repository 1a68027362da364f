#include <algorithm>
#include <bit>
#include <limits>
#include <memory>
#include <variant>

#include "archive/archive_reader.h"
#include "archive/updater_settings.h"
#include "core/errors.h"
#include "core/format.h"
#include "core/unicode.h"
#include "publisher/commands.h"
#include "publisher/file_kind.h"
#include "publisher/parsed_files.h"
#include "publisher/paths.h"
#include "publisher/version_text.h"
#include "publisher/whole_file.h"
#include "updater/manifest_text.h"

namespace ve::publish {
namespace {

struct Options {
  std::string file;
  bool files = false;
  bool json = false;
};

/// Tells about one file.
class Inspection {
 public:
  Inspection(const Options& options, Console& console)
      : options_(options),
        console_(console),
        path_(ExtendedLengthPath(options.file)),
        content_(ReadWholeFile(path_)) {}

  int Run() {
    console_.Say(DisplayPath(path_));
    console_.Report()["file"] = DisplayPath(path_);
    Tell("size", "size", content_.size());
    switch (KindOf(content_)) {
      case FileKind::kSettings:
        ShowSettings();
        break;
      case FileKind::kVersion:
        ShowVersion();
        break;
      case FileKind::kOtherArchive:
        ShowOtherArchive();
        break;
      case FileKind::kGameManifest:
        ShowGameManifest();
        break;
      case FileKind::kUpdaterManifest:
        ShowUpdaterManifest();
        break;
      case FileKind::kUnknown:
        ShowUnknown();
        break;
    }
    return console_.Finish(diagnostics_);
  }

 private:
  /// One line of the report, and the same for scripts.
  template <class Value>
  void Tell(std::string_view label, const char* key, const Value& value) {
    console_.Say(Format("  {}: {}", label, value));
    console_.Report()[key] = value;
  }

  void TellKind(const char* kind) { Tell("kind", "kind", std::string(kind)); }

  void Reject(const ParseError& error, std::string_view reader) {
    Json json = {{"reader", reader}, {"message", error.message}, {"offset", error.offset}};
    if (error.line != 0) json["line"] = error.line;
    console_.Report()["rejections"].push_back(json);
    diagnostics_.AddError(
        DisplayPath(path_), error.message,
        Format("So says the Launcher's reader of {}, {}.", reader, FormatLocation(error)));
  }

  void TellArchive(const ArchiveFacts& archive, std::string_view header,
                   std::uint32_t fileVersion) {
    Tell("mode", "mode", std::string(ModeInWords(archive.mode)));
    Tell("header", "header", std::string(header));
    Tell("file version", "fileVersion", fileVersion);
    if (archive.end == content_.size()) return;
    diagnostics_.AddWarning(DisplayPath(path_),
                            Format("{} bytes follow the record, from byte {} on",
                                   content_.size() - archive.end, archive.end),
                            "The Launcher does not read them; the file may be damaged.");
  }

  void ShowSettings() {
    TellKind("settings archive");
    const auto judged = ParseSettings(content_);
    if (const auto* error = std::get_if<ParseError>(&judged)) {
      return Reject(*error, "settings archives");
    }
    const auto& settings = std::get<SettingsFile>(judged);
    TellArchive(settings.archive, sdk::UpdaterSettings::kHeader,
                sdk::UpdaterSettings::kFileVersion);
    Tell("URL", "url", settings.url);
    Tell("channel", "channel", settings.channel);
  }

  void ShowVersion() {
    TellKind("game version");
    const auto judged = ParseVersionFile(content_);
    if (const auto* error = std::get_if<ParseError>(&judged)) {
      return Reject(*error, "game versions");
    }
    const auto& version = std::get<VersionFile>(judged);
    TellArchive(version.archive, sdk::GameVersion::kHeader, sdk::GameVersion::kFileVersion);
    Tell("version", "version", VersionText(version.version));
    if (!version.complete) {
      diagnostics_.AddWarning(DisplayPath(path_), "the file ends before its version does",
                              "The Launcher reads what is missing as 0.0.0.0. Publish again.");
    }
  }

  /// The record is none of the Launcher's; in checked mode its fields tell what they are.
  void ShowOtherArchive() {
    TellKind("archive");
    try {
      file::ArchiveReader reader{std::string_view(content_)};
      Tell("mode", "mode", std::string(ModeInWords(reader.Mode())));
      Tell("header", "header", std::string(reader.ReadString()));
      if (reader.Mode() == file::ArchiveMode::kChecked) TellFields(reader);
      Tell("bytes not understood", "unread", content_.size() - reader.Position());
    } catch (const file::FileException&) {
      // Both readers fail there, and alike.
      return Reject(std::get<ParseError>(ParseSettings(content_)), "archives");
    }
    WarnOfReader(std::get<ParseError>(ParseSettings(content_)), "settings archives");
    WarnOfReader(std::get<ParseError>(ParseVersionFile(content_)), "game versions");
  }

  void WarnOfReader(const ParseError& error, std::string_view reader) {
    diagnostics_.AddWarning(
        DisplayPath(path_), error.message,
        Format("So says the Launcher's reader of {}, {}.", reader, FormatLocation(error)));
  }

  void TellFields(file::ArchiveReader& reader) {
    Json& fields = console_.Report()["fields"] = Json::array();
    try {
      for (;;) {
        const Json field = NextField(reader);
        if (field.is_null()) return;
        console_.Say(Format("  {} at byte {}: {}", field["type"].get<std::string>(),
                            field["offset"].get<std::size_t>(), field["value"].dump()));
        fields.push_back(field);
      }
    } catch (const file::FileException&) {
      // A field that breaks off; it counts as not understood.
    }
  }

  /// The field that begins here, told by its identifier or width; null where none is recognised.
  [[nodiscard]] Json NextField(file::ArchiveReader& reader) const {
    const std::size_t offset = reader.Position();
    std::uint32_t mark = 0;
    if (content_.size() - offset < sizeof(mark)) return {};
    std::copy_n(content_.data() + offset, sizeof(mark), reinterpret_cast<char*>(&mark));
    const auto field = [offset](const char* type, const Json& value) {
      return Json{{"type", type}, {"offset", offset}, {"value", value}};
    };
    if (mark == sizeof(std::uint32_t)) return field("number", reader.ReadU32());
    if (mark == sizeof(file::ArchiveReader::Block16)) {
      return field("block", std::bit_cast<std::array<std::uint8_t, 16>>(reader.ReadBlock16()));
    }
    switch (static_cast<file::ArchiveType>(mark)) {
      case file::ArchiveType::kString:
        return field("string", std::string(reader.ReadString()));
      case file::ArchiveType::kWideString:
        return field("wide string", ToUtf8(reader.ReadWideString()));
      case file::ArchiveType::kData:
        return field("bytes of data", reader.ReadData().size());
      case file::ArchiveType::kSystemTime:
        return field("time", reader.ReadTime());
      default:
        return {};
    }
  }

  void ShowGameManifest() {
    TellKind("game manifest");
    std::string text;
    const auto judged = ParseGameManifest(content_, text);
    if (const auto* error = std::get_if<ParseError>(&judged)) {
      return Reject(*error, "game manifests");
    }
    const auto& manifest = std::get<sdk::GameUpdateManifest>(judged);
    std::uint64_t bytes = 0;
    sdk::FileEntry largest = sdk::EntryOf(manifest.fileLines.front());
    for (const std::string_view line : manifest.fileLines) {
      sdk::FileEntry entry = sdk::EntryOf(line);
      const std::uint64_t room = std::numeric_limits<std::uint64_t>::max() - bytes;
      bytes += std::min(entry.size, room);
      if (entry.size > largest.size) largest = std::move(entry);
    }
    Tell("header", "header", std::string("GameUpdate"));
    Tell("file version", "fileVersion", 1);
    Tell("directories", "directories", manifest.directories.size());
    Tell("files", "files", manifest.fileLines.size());
    console_.Say(Format("  bytes: {} ({})", bytes, FormatByteSize(bytes)));
    console_.Report()["bytes"] = bytes;
    console_.Say(Format("  largest: {} ({})", ToUtf8(largest.name), FormatByteSize(largest.size)));
    console_.Report()["largest"] = ToUtf8(largest.name);
    if (options_.files) options_.json ? ReportFiles(manifest) : PrintFiles(manifest);
  }

  // Of a million files only one of the two lists is made.
  void PrintFiles(const sdk::GameUpdateManifest& manifest) {
    for (const std::string_view directory : manifest.directories) {
      console_.Say(Format("  directory {}", directory));
    }
    for (const std::string_view line : manifest.fileLines) {
      const sdk::FileEntry entry = sdk::EntryOf(line);
      console_.Say(Format("  file {} {} {}", ToUtf8(entry.name), entry.size, entry.digest));
    }
  }

  void ReportFiles(const sdk::GameUpdateManifest& manifest) {
    console_.Report()["directoryNames"] = manifest.directories;
    Json& entries = console_.Report()["entries"] = Json::array();
    for (const std::string_view line : manifest.fileLines) {
      const sdk::FileEntry entry = sdk::EntryOf(line);
      entries.push_back(
          {{"name", ToUtf8(entry.name)}, {"size", entry.size}, {"digest", entry.digest}});
    }
  }

  void ShowUpdaterManifest() {
    TellKind("updater manifest");
    const auto judged = ParseUpdaterManifest(content_);
    if (const auto* error = std::get_if<ParseError>(&judged)) {
      return Reject(*error, "updater manifests");
    }
    // The reader takes any file version from 1 on and does not hand it out.
    std::string text = content_;
    sdk::StripCarriageReturns(text);
    const auto lines = sdk::SplitLines(text, '\n', sdk::EmptyPieces::kDrop);
    Tell("header", "header", std::string(lines[0]));
    Tell("file version", "fileVersion",
         sdk::ReadDecimal<std::uint32_t>(sdk::SplitKeyValue(lines[1], ": ").value));
    Tell("version", "version", std::get<std::uint32_t>(judged));
  }

  void ShowUnknown() {
    TellKind("unknown");
    std::string text;
    Reject(std::get<ParseError>(ParseSettings(content_)), "archives");
    Reject(std::get<ParseError>(ParseGameManifest(content_, text)), "game manifests");
    Reject(std::get<ParseError>(ParseUpdaterManifest(content_)), "updater manifests");
  }

  Options options_;
  Console& console_;
  Diagnostics diagnostics_;
  std::wstring path_;
  std::string content_;
};

}  // namespace

void AddInspectCommand(CLI::App& program, Command& chosen) {
  CLI::App* command = AddCommand(program, chosen, "inspect",
                                 "Show an archive or a manifest, or why the Launcher rejects it.",
                                 "server\\updates\\release\\game_update.manifest --files");
  const auto options = std::make_shared<Options>();
  command->add_option("file", options->file, "The file; its name does not matter.")->required();
  command->add_flag("--files", options->files,
                    "List the directories and files of a game manifest, too.");
  command->callback([options, &chosen] {
    options->json = chosen.json;
    chosen.run = [options](Console& console) { return Inspection(*options, console).Run(); };
  });
}

}  // namespace ve::publish
