#include "core/windows.h"

#include <algorithm>

#include "core/files.h"
#include "core/format.h"
#include "core/unicode.h"
#include "publisher/channel/channel_files.h"
#include "publisher/channel/published_tree.h"
#include "publisher/commands/command.h"
#include "publisher/files/paths.h"
#include "publisher/files/whole_file.h"

namespace ve::publish {
namespace {

struct Options {
  std::string url;
  std::string channel;
  std::string output;
};

void CheckUrl(const std::string& url, Diagnostics& diagnostics) {
  if (!url.starts_with("http://") && !url.starts_with("https://")) {
    diagnostics.AddError(url, "not an http or https URL", "Begin the URL with https://.");
  }
  if (!std::all_of(url.begin(), url.end(), [](char c) { return c > ' ' && c <= '~'; })) {
    diagnostics.AddError(url, "a URL cannot contain spaces or non-ASCII characters",
                         "Encode them: a space as %20.");
  }
  WarnOfBaseUrl(url, "--url", diagnostics);
}

void Run(const Options& options, Console& console, Diagnostics& diagnostics) {
  CheckUrl(options.url, diagnostics);
  const std::wstring output = ExtendedLengthPath(options.output);
  const DWORD attributes = GetFileAttributesW(output.c_str());
  if (options.output.ends_with('/') || options.output.ends_with('\\') ||
      (attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0)) {
    diagnostics.AddError(DisplayPath(output), "is a folder",
                         "Name the file to write, such as Updater\\UpdaterData.vpak.");
  }
  console.Report().update(
      {{"file", DisplayPath(output)}, {"url", options.url}, {"channel", options.channel}});
  if (diagnostics.HasErrors()) return;
  file::MakeDirectories(output.substr(0, output.find_last_of(L'\\')));
  WriteFileAtomically(output, SettingsArchive(ToWide(options.url), ToWide(options.channel)));
  console.Print(
      Format("{}: URL {}, channel {}", DisplayPath(output), options.url, options.channel));
}

}  // namespace

void AddSettingsCommand(CLI::App& program, Command& chosen) {
  const auto [command, options] =
      AddCommand(program, chosen, "settings", "Write an installation's settings: URL and channel.",
                 "--url https://updates.example.com/ --channel release "
                 "--output Updater\\UpdaterData.vpak",
                 Run);
  command->add_option("--url", options->url, "The server's base URL, ending with a slash.")
      ->required();
  AddChannel(*command, options->channel)->required();
  command
      ->add_option("--output", options->output,
                   "The file to write. Its folder is created if it is missing.")
      ->required();
}

}  // namespace ve::publish
