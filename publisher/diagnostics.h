// What a command has to say against its input: all of it at once, not the first thing only.
#pragma once

#include <string>
#include <vector>

namespace ve::publish {

/// One remark: what it is about (mostly a file's name), what is wrong, and the way out. UTF-8.
struct Diagnostic {
  std::string subject;
  std::string message;
  std::string hint;
};

struct Diagnostics {
  std::vector<Diagnostic> refusals;  ///< With one of these, nothing is published.
  std::vector<Diagnostic> warnings;

  void AddError(std::string subject, std::string message, std::string hint);
  void AddWarning(std::string subject, std::string message, std::string hint);
  [[nodiscard]] bool Refused() const noexcept { return !refusals.empty(); }
};

}  // namespace ve::publish
