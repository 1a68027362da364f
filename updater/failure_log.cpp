#include "updater/failure_log.h"

#include <ostream>

#include "core/format.h"
#include "core/log.h"

namespace ve::sdk {

std::string UpdaterFailureText(std::string_view stage, std::string_view message) {
  return Format("Error while running updater:\n{}{}", stage, message);
}

void LogUpdaterFailure(std::string_view stage, std::string_view message) {
  WriteLogEntry([stage, message](std::ostream& log) { log << UpdaterFailureText(stage, message); });
}

}  // namespace ve::sdk
