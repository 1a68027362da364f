#include <algorithm>
#include <limits>
#include <memory>
#include <variant>

#include "archive/archive_reader.h"
#include "archive/updater_settings.h"
#include "core/errors.h"
#include "core/format.h"
#include "core/unicode.h"
#include "publisher/channel/file_kind.h"
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

/// Tells about one file.
class Inspection {
 public:
  Inspection(const Options& options, Console& console, Diagnostics& diagnostics)
      : options_(options),
        console_(console),
        diagnostics_(diagnostics),
        path_(ExtendedLengthPath(options.file)),
        content_(ReadWholeFile(path_)) {}

  void Run() {
    console_.Print(DisplayPath(path_));
    console_.Report()["file"] = DisplayPath(path_);
    Tell("size", "size", content_.size());
    switch (KindOf(content_)) {
      case FileKind::kSettings:
        ShowSettings();
        break;
      case FileKind::kVersion:
        ShowVersion();
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
  }

 private:
  /// One line of the report, and the same for scripts.
  template <class Value>
  void Tell(std::string_view label, const char* key, const Value& value) {
    console_.Print(Format("  {}: {}", label, value));
    console_.Report()[key] = value;
  }

  void TellKind(const char* kind) { Tell("kind", "kind", std::string(kind)); }

  void Reject(const ParseError& error, std::string_view reader) {
    console_.Report()["rejections"].push_back({{"reader", reader}, {"message", error.message}});
    diagnostics_.AddError(DisplayPath(path_), error.message,
                          Format("The Launcher's reader of {} reports this.", reader));
  }

  void ShowArchive(std::string_view header, std::uint32_t fileVersion, std::size_t recordSize) {
    const bool isChecked = ModeOf(content_) == file::ArchiveMode::kChecked;
    Tell("mode", "mode", std::string(isChecked ? "checked" : "plain"));
    Tell("header", "header", std::string(header));
    Tell("file version", "fileVersion", fileVersion);
    if (content_.size() <= recordSize) return;
    diagnostics_.AddWarning(DisplayPath(path_),
                            Format("{} bytes follow the record", content_.size() - recordSize),
                            "The Launcher does not read them; the file may be damaged.");
  }

  void ShowSettings() {
    TellKind("settings archive");
    const auto parsed = ParseSettings(content_);
    if (const auto* error = std::get_if<ParseError>(&parsed)) {
      return Reject(*error, "settings archives");
    }
    const auto& settings = std::get<SettingsFile>(parsed);
    ShowArchive(sdk::UpdaterSettings::kHeader, sdk::UpdaterSettings::kFileVersion,
                settings.recordSize);
    Tell("URL", "url", settings.url);
    Tell("channel", "channel", settings.channel);
  }

  void ShowVersion() {
    TellKind("game version");
    const auto parsed = ParseVersionFile(content_);
    if (const auto* error = std::get_if<ParseError>(&parsed)) {
      return Reject(*error, "game versions");
    }
    const auto& version = std::get<VersionFile>(parsed);
    ShowArchive(sdk::GameVersion::kHeader, sdk::GameVersion::kFileVersion, version.recordSize);
    Tell("version", "version", VersionText(version.version));
    if (content_.size() < version.recordSize) {
      diagnostics_.AddWarning(DisplayPath(path_), "the file ends before its version does",
                              "The Launcher reads what is missing as 0.0.0.0. Publish again.");
    }
  }

  void ShowGameManifest() {
    TellKind("game manifest");
    std::string text;
    const auto parsed = ParseGameManifest(content_, text);
    if (const auto* error = std::get_if<ParseError>(&parsed)) {
      return Reject(*error, "game manifests");
    }
    const auto& manifest = std::get<sdk::GameUpdateManifest>(parsed);
    std::uint64_t bytes = 0;
    for (const sdk::FileEntry& entry : manifest.files) {
      const std::uint64_t room = std::numeric_limits<std::uint64_t>::max() - bytes;
      bytes += std::min(entry.size, room);
    }
    const sdk::FileEntry& largest =
        *std::max_element(manifest.files.begin(), manifest.files.end(),
                          [](const sdk::FileEntry& left, const sdk::FileEntry& right) {
                            return left.size < right.size;
                          });
    Tell("header", "header", std::string("GameUpdate"));
    Tell("file version", "fileVersion", 1);
    Tell("directories", "directories", manifest.directories.size());
    Tell("files", "files", manifest.files.size());
    console_.Print(Format("  bytes: {} ({})", bytes, FormatByteSize(bytes)));
    console_.Report()["bytes"] = bytes;
    console_.Print(
        Format("  largest: {} ({})", ToUtf8(largest.name), FormatByteSize(largest.size)));
    console_.Report()["largest"] = ToUtf8(largest.name);
    if (options_.files) console_.IsJson() ? ReportFiles(manifest) : PrintFiles(manifest);
  }

  // Of a million files only one of the two lists is made.
  void PrintFiles(const sdk::GameUpdateManifest& manifest) {
    for (const std::string_view directory : manifest.directories) {
      console_.Print(Format("  directory {}", directory));
    }
    for (const sdk::FileEntry& entry : manifest.files) {
      console_.Print(Format("  file {} {} {}", ToUtf8(entry.name), entry.size, entry.digest));
    }
  }

  void ReportFiles(const sdk::GameUpdateManifest& manifest) {
    console_.Report()["directoryNames"] = manifest.directories;
    Json& entries = console_.Report()["entries"] = Json::array();
    for (const sdk::FileEntry& entry : manifest.files) {
      entries.push_back(
          {{"name", ToUtf8(entry.name)}, {"size", entry.size}, {"digest", entry.digest}});
    }
  }

  void ShowUpdaterManifest() {
    TellKind("updater manifest");
    const auto parsed = ParseUpdaterManifest(content_);
    if (const auto* error = std::get_if<ParseError>(&parsed)) {
      return Reject(*error, "updater manifests");
    }
    // The reader takes any file version from 1 on and does not hand it out.
    std::string text = content_;
    sdk::StripCarriageReturns(text);
    const auto lines = sdk::SplitLines(text, '\n', sdk::EmptyPieces::kDrop);
    Tell("header", "header", std::string(lines[0]));
    Tell("file version", "fileVersion",
         sdk::ReadDecimal<std::uint32_t>(sdk::SplitKeyValue(lines[1], ": ").value));
    Tell("version", "version", std::get<std::uint32_t>(parsed));
  }

  void ShowUnknown() {
    TellKind("unknown");
    if (HasArchiveMagic(content_)) {
      Reject(std::get<ParseError>(ParseSettings(content_)), "settings archives");
      return Reject(std::get<ParseError>(ParseVersionFile(content_)), "game versions");
    }
    std::string text;
    Reject(std::get<ParseError>(ParseSettings(content_)), "archives");
    Reject(std::get<ParseError>(ParseGameManifest(content_, text)), "game manifests");
    Reject(std::get<ParseError>(ParseUpdaterManifest(content_)), "updater manifests");
  }

  Options options_;
  Console& console_;
  Diagnostics& diagnostics_;
  std::wstring path_;
  std::string content_;
};

}  // namespace

void AddInspectCommand(CLI::App& program, Command& chosen) {
  const auto options = std::make_shared<Options>();
  CLI::App* command = AddCommand(program, chosen, "inspect",
                                 "Show an archive or a manifest, or why the Launcher rejects it.",
                                 "server\\updates\\release\\game_update.manifest --files",
                                 [options](Console& console, Diagnostics& diagnostics) {
                                   Inspection(*options, console, diagnostics).Run();
                                 });
  command->add_option("file", options->file, "The file; its name does not matter.")->required();
  command->add_flag("--files", options->files,
                    "List the directories and files of a game manifest, too.");
}

}  // namespace ve::publish
