#include "publisher/diagnostics.h"

#include <utility>

namespace ve::publish {

void Diagnostics::AddError(std::string subject, std::string message, std::string hint) {
  refusals.push_back({std::move(subject), std::move(message), std::move(hint)});
}

void Diagnostics::AddWarning(std::string subject, std::string message, std::string hint) {
  warnings.push_back({std::move(subject), std::move(message), std::move(hint)});
}

}  // namespace ve::publish
