#include <algorithm>
#include <optional>
#include <string>
#include <vector>

#include "archive/updater_settings.h"
#include "core/files.h"
#include "core/format.h"
#include "core/unicode.h"
#include "publisher/build/digests.h"
#include "publisher/channel/channel_check.h"
#include "publisher/channel/channel_swap.h"
#include "publisher/commands/command.h"
#include "publisher/files/paths.h"

namespace ve::publish {
namespace {

struct Options {
  ChannelOptions check;
  std::string channel;
  std::string executable;
};

/// Whether the channel's folder can be checked. An absent one is an error if a publish was
/// interrupted, or if it is the one asked for.
bool HasFolder(const std::wstring& server, std::wstring_view channel, bool isAskedFor,
               Diagnostics& diagnostics) {
  const ChannelFolders folders = FoldersOf(server, channel);
  if (file::Exists(folders.live)) return true;
  if (file::Exists(folders.previous)) {
    diagnostics.AddError(
        DisplayPath(folders.live),
        Format("is missing: a publish was interrupted and left {}", DisplayPath(folders.previous)),
        "Players get no updates. Publish again, which restores the channel first, or rename that "
        "folder.");
  } else if (isAskedFor) {
    diagnostics.AddError(DisplayPath(folders.live), "there is no such folder",
                         "Publish to the channel, or check --server and --channel.");
  }
  return false;
}

void Run(const Options& options, Console& console, Diagnostics& diagnostics) {
  Json& report = console.Report()["channels"] = Json::array();
  ChannelOptions check = options.check;
  const bool isServed = !check.tree.url.empty();
  const bool isAskedFor = !options.channel.empty();
  const std::wstring server = ExtendedLengthPath(check.tree.server);
  if (!options.executable.empty())
    check.executable = DigestFile({ExtendedLengthPath(options.executable)});
  check.configuredUrl = check.tree.url;
  check.mayBeAbsent = isServed && !isAskedFor;
  check.tree = FollowRedirect(check.tree, diagnostics);

  std::vector<Diagnostic> absent;
  for (const std::wstring_view channel : sdk::kReleaseChannels) {
    if (isAskedFor && channel != ToWide(options.channel)) continue;
    if (!isServed && !HasFolder(server, channel, isAskedFor, diagnostics)) continue;
    if (const auto reasons = CheckChannel(check, channel, console, diagnostics)) {
      absent.push_back({check.tree.url,
                        Format("{} cannot be fetched ({})", ToUtf8(channel), *reasons),
                        "Check the URL: it ends before updates/. --channel shows all errors."});
    }
  }
  if (report.empty()) std::ranges::move(absent, std::back_inserter(diagnostics.errors));
  if (report.empty() && !diagnostics.HasErrors()) {
    diagnostics.AddError(DisplayPath(server), "contains no channel",
                         "Pass the folder that contains updates\\alpha, beta, demo or release.");
  }
  if (!diagnostics.HasErrors()) console.Print("No errors: Launchers can update from here.");
}

}  // namespace

void AddVerifyCommand(CLI::App& program, Command& chosen) {
  const auto [command, options] = AddCommand(
      program, chosen, "verify", "Check published channels as players' Launchers read them.",
      "--url https://updates.example.com/ --channel release", Run);
  AddTree(*command, options->check.tree);
  AddChannel(*command, options->channel)->description("The channel; without it, all that exist.");
  command->add_option("--launcher", options->check.launcher,
                      "The executable's name, if it is not the one last published.");
  command->add_option("--exe", options->executable,
                      "A Launcher: check that the published one is the same.");
  command
      ->add_option("--timeout", options->check.tree.timeout,
                   "With --url: seconds to wait for a connection, and for each answer.")
      ->check(CLI::Range(1U, 86'400U))
      ->capture_default_str();
}

}  // namespace ve::publish
