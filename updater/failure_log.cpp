#include "updater/failure_log.h"

#include <ostream>

#include "core/log.h"

namespace ve::sdk {

void LogUpdaterFailure(std::string_view stage, std::string_view message) {
  WriteLogEntry([stage, message](std::ostream& log) {
    log << "Error while running updater:\n" << stage << message;
  });
}

}  // namespace ve::sdk
