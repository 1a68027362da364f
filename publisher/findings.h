// What a command has to say against its input: all of it at once, not the first thing only.
#pragma once

#include <string>
#include <vector>

namespace ve::publish {

/// One remark: what it is about (mostly a file's name), what is wrong, and the way out. UTF-8.
struct Finding {
  std::string subject;
  std::string rule;
  std::string remedy;
};

struct Findings {
  std::vector<Finding> refusals;  ///< With one of these, nothing is published.
  std::vector<Finding> warnings;

  void Refuse(std::string subject, std::string rule, std::string remedy);
  void Warn(std::string subject, std::string rule, std::string remedy);
  [[nodiscard]] bool Refused() const noexcept { return !refusals.empty(); }
};

}  // namespace ve::publish
