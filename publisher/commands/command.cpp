#include "publisher/commands/command.h"

#include <set>

#include "archive/updater_settings.h"
#include "core/unicode.h"

namespace ve::publish {

CLI::Option* AddChannel(CLI::App& command, std::string& channel, const char* name,
                        const char* purpose) {
  std::set<std::string> names;
  for (const std::wstring_view known : sdk::kReleaseChannels) names.insert(ToUtf8(known));
  return command.add_option(name, channel, purpose)->check(CLI::IsMember(names));
}

void AddTree(CLI::App& command, TreeOptions& tree) {
  CLI::Option_group* group = command.add_option_group("Tree", "What to read:");
  AddServer(*group, tree.server);
  const auto isUrl = [](const std::string& text) {
    return std::string(text.starts_with("http") ? "" : "a URL begins with https:// or http://");
  };
  group->add_option("--url", tree.url, "The server's base URL, ending with a slash.")
      ->check(CLI::Validator(isUrl, "URL"));
  group->require_option(1);
}

CLI::Option* AddServer(CLI::App& command, std::string& server) {
  const auto isFolder = [](const std::string& text) {
    return text.find("://") == std::string::npos
               ? std::string()
               : "takes the folder that is served, not the URL '" + text + "'";
  };
  return command.add_option("--server", server, "The folder that is served.")
      ->check(CLI::Validator(isFolder, "FOLDER"));
}

}  // namespace ve::publish
