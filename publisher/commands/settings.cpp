#include <algorithm>
#include <memory>

#include "core/files.h"
#include "core/format.h"
#include "core/unicode.h"
#include "publisher/channel/archive_records.h"
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

bool StandsInUrls(char c) { return c > ' ' && c <= '~'; }

void CheckUrl(const std::string& url, Diagnostics& diagnostics) {
  if (!url.starts_with("http://") && !url.starts_with("https://")) {
    diagnostics.AddError(url, "the Launcher asks servers over http and https only",
                         "Begin the URL with https://.");
  }
  if (!std::all_of(url.begin(), url.end(), StandsInUrls)) {
    diagnostics.AddError(url, "a URL holds neither blanks nor characters beyond ASCII",
                         "Encode them, a blank as %20.");
  }
  if (!url.ends_with('/')) {
    diagnostics.AddWarning(
        url, "without a slash at its end, \"updates\" is glued to the URL's last word",
        Format("Write {}/ unless that is meant.", url));
  }
  if (!url.starts_with("https://")) {
    diagnostics.AddWarning(url, "without https anybody on the way can replace the game's files",
                           "Serve over https.");
  }
}

void Run(const Options& options, Console& console, Diagnostics& diagnostics) {
  CheckUrl(options.url, diagnostics);
  const std::wstring output = ExtendedLengthPath(options.output);
  if (!diagnostics.HasErrors()) {
    file::MakeDirectories(output.substr(0, output.find_last_of(L'\\')));
    WriteFileAtomically(output, SettingsArchive(ToWide(options.url), ToWide(options.channel)));
    console.Print(
        Format("{}: URL {}, channel {}", DisplayPath(output), options.url, options.channel));
  }
  console.Report().update(
      {{"file", DisplayPath(output)}, {"url", options.url}, {"channel", options.channel}});
}

}  // namespace

void AddSettingsCommand(CLI::App& program, Command& chosen) {
  const auto options = std::make_shared<Options>();
  CLI::App* command =
      AddCommand(program, chosen, "settings", "Write the settings archive of a distribution.",
                 "--url https://updates.example.com/ --channel release "
                 "--output Updater\\UpdaterData.vpak",
                 [options](Console& console, Diagnostics& diagnostics) {
                   Run(*options, console, diagnostics);
                 });
  command->add_option("--url", options->url, "The server's base URL, with its last slash.")
      ->required();
  AddChannel(*command, options->channel)->required();
  command
      ->add_option("--output", options->output, "The file to write; its folder is made if missing.")
      ->required();
}

}  // namespace ve::publish
