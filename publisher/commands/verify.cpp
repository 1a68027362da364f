#include <algorithm>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "archive/updater_settings.h"
#include "core/directory_walk.h"
#include "core/files.h"
#include "core/format.h"
#include "core/unicode.h"
#include "publisher/channel/channel_check.h"
#include "publisher/commands/command.h"
#include "publisher/files/paths.h"
#include "publisher/files/server_layout.h"
#include "publisher/files/whole_file.h"

namespace ve::publish {
namespace {

struct Options {
  ChannelOptions channelOptions;
  std::string channel;
};

bool IsChannel(std::wstring_view name) {
  return std::find(sdk::kReleaseChannels.begin(), sdk::kReleaseChannels.end(), name) !=
         sdk::kReleaseChannels.end();
}

/// The channels that have a folder; remarks on what else is among them.
std::vector<std::wstring> ChannelsInFolder(const std::wstring& server, Diagnostics& diagnostics) {
  const std::wstring updates = JoinPath(server, L"updates");
  std::vector<std::wstring> channels;
  if (file::Exists(updates)) {
    file::WalkDirectory(updates, [&](const file::DirectoryEntry& entry) {
      const std::wstring name(entry.path.substr(updates.size() + 1));
      if (IsChannel(name) && entry.IsDirectory()) {
        channels.push_back(name);
      } else {
        diagnostics.AddWarning(DisplayPath(entry.path), "is no channel",
                               "No Launcher ever asks for it.");
      }
      return file::WalkAction::kSkip;
    });
  }
  if (channels.empty()) {
    diagnostics.AddError(DisplayPath(server), "holds no channel",
                         "Channels are its folders updates\\alpha, beta, demo and release.");
  }
  return channels;
}

std::string Reason(const DownloadResult& download) {
  std::string reason = ToUtf8(download.Error());
  while (reason.ends_with('\n') || reason.ends_with('\r')) reason.pop_back();
  return reason;
}

/// Why the channel does not answer; none if it does.
std::optional<std::string> Silence(const TreeOptions& options, std::wstring_view channel) {
  const PublishedTree tree(options, channel);
  std::string reasons;
  for (const std::wstring_view name : {kVersionName, kUpdaterManifestName}) {
    const DownloadResult download = tree.Fetch(name);
    if (download.Succeeded()) return {};
    reasons += Format("{}{}: {}", reasons.empty() ? "" : ", ", ToUtf8(name), Reason(download));
  }
  return reasons;
}

std::vector<std::wstring> AnsweringChannels(const TreeOptions& options, Diagnostics& diagnostics) {
  std::vector<std::wstring> channels;
  std::vector<Diagnostic> silent;
  for (const std::wstring_view channel : sdk::kReleaseChannels) {
    if (auto reasons = Silence(options, channel)) {
      silent.push_back({options.url, Format("{} does not answer ({})", ToUtf8(channel), *reasons),
                        "Name the channel to see all that is wrong with it."});
    } else {
      channels.emplace_back(channel);
    }
  }
  if (channels.empty()) diagnostics.errors = std::move(silent);
  return channels;
}

/// Most servers have none. Where it is followed to is checked with each channel.
void CheckServedRedirect(const std::string& url, Diagnostics& diagnostics) {
  const std::wstring place = Format(L"{}{}", ToWide(url), kRedirectName);
  const DownloadResult download = DownloadChecked(place, ToUtf8(place), diagnostics);
  if (download.Succeeded() || download.Error() == kNotFound) return;
  diagnostics.AddWarning(ToUtf8(place), Format("cannot be fetched: {}", Reason(download)),
                         "Launchers go on as if there were no redirection.");
}

void CheckBase(const TreeOptions& options, Diagnostics& diagnostics) {
  if (options.url.empty()) {
    const std::wstring redirect = JoinPath(ExtendedLengthPath(options.server), kRedirectName);
    if (!file::Exists(redirect)) return;
    diagnostics.AddWarning(DisplayPath(redirect),
                           Format("sends all players to '{}'", ReadWholeFile(redirect)),
                           "This folder is not what they get; verify that URL too.");
    return;
  }
  if (!options.url.ends_with('/')) {
    diagnostics.AddWarning(options.url, "has no slash at its end, as Launchers need it",
                           Format("Write {}/ unless that is meant.", options.url));
  }
  CheckServedRedirect(options.url, diagnostics);
}

void Run(const Options& options, Console& console, Diagnostics& diagnostics) {
  const TreeOptions& tree = options.channelOptions.tree;
  CheckBase(tree, diagnostics);
  std::vector<std::wstring> channels;
  if (!options.channel.empty()) {
    channels.push_back(ToWide(options.channel));
  } else {
    channels = tree.url.empty() ? ChannelsInFolder(ExtendedLengthPath(tree.server), diagnostics)
                                : AnsweringChannels(tree, diagnostics);
  }
  console.Report()["channels"] = Json::array();
  for (const std::wstring& channel : channels) {
    CheckChannel(options.channelOptions, channel, console, diagnostics);
  }
  if (!diagnostics.HasErrors()) console.Print("All is as players' Launchers need it.");
}

}  // namespace

void AddVerifyCommand(CLI::App& program, Command& chosen) {
  const auto options = std::make_shared<Options>();
  CLI::App* command =
      AddCommand(program, chosen, "verify", "Check a published tree as players' Launchers read it.",
                 "--url https://updates.example.com/ --channel release",
                 [options](Console& console, Diagnostics& diagnostics) {
                   Run(*options, console, diagnostics);
                 });
  ChannelOptions& channel = options->channelOptions;
  CLI::Option_group* tree = command->add_option_group("Tree", "One of");
  AddServer(*tree, channel.tree.server);
  tree->add_option("--url", channel.tree.url, "The server's base URL, with its last slash.");
  tree->require_option(1);
  AddChannel(*command, options->channel)->description("The release channel; without it, all.");
  command
      ->add_option("--launcher", channel.launcher,
                   "The executable's name on a server (in a folder it is found).")
      ->capture_default_str();
}

}  // namespace ve::publish
