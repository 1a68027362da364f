#include "publisher/findings.h"

#include <utility>

namespace ve::publish {

void Findings::Refuse(std::string subject, std::string rule, std::string remedy) {
  refusals.push_back({std::move(subject), std::move(rule), std::move(remedy)});
}

void Findings::Warn(std::string subject, std::string rule, std::string remedy) {
  warnings.push_back({std::move(subject), std::move(rule), std::move(remedy)});
}

}  // namespace ve::publish
