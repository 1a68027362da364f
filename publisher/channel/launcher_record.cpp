#include "publisher/channel/launcher_record.h"

#include "publisher/report/console.h"

namespace ve::publish {

std::string LauncherRecordText(const LauncherRecord& record) {
  const Json json{{"executable", record.executable},
                  {"size", record.size},
                  {"md5", record.md5},
                  {"version", record.version},
                  {"keepsNonEmptyDirectories", record.keepsNonEmptyDirectories},
                  {"isSigned", record.isSigned}};
  return json.dump(2) + "\n";
}

std::optional<LauncherRecord> ParseLauncherRecord(std::string_view text) {
  try {
    const Json json = Json::parse(text);
    LauncherRecord record;
    json.at("executable").get_to(record.executable);
    json.at("size").get_to(record.size);
    json.at("md5").get_to(record.md5);
    json.at("version").get_to(record.version);
    json.at("keepsNonEmptyDirectories").get_to(record.keepsNonEmptyDirectories);
    json.at("isSigned").get_to(record.isSigned);
    return record;
  } catch (const Json::exception&) {
    return {};
  }
}

}  // namespace ve::publish
