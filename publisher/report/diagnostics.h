// What a command reports against its input: everything that is wrong, not only the first error.
#pragma once

#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace ve::publish {

/// One finding, in UTF-8: what it is about (mostly a file's path), what is wrong, and what to do.
struct Diagnostic {
  std::string subject;
  std::string message;
  std::string hint;  ///< May be empty.
};

struct Diagnostics {
  std::vector<Diagnostic> errors;  ///< With one of these, nothing is published.
  std::vector<Diagnostic> warnings;

  void AddError(std::string subject, std::string message, std::string hint) {
    errors.push_back({std::move(subject), std::move(message), std::move(hint)});
  }
  void AddWarning(std::string subject, std::string message, std::string hint) {
    warnings.push_back({std::move(subject), std::move(message), std::move(hint)});
  }
  [[nodiscard]] bool HasErrors() const noexcept { return !errors.empty(); }
};

/// Ends a command with one error. `main` adds it to the command's diagnostics.
class PublishError : public std::runtime_error {
 public:
  explicit PublishError(Diagnostic diagnostic)
      : std::runtime_error(diagnostic.message), diagnostic_(std::move(diagnostic)) {}
  [[nodiscard]] const Diagnostic& GetDiagnostic() const noexcept { return diagnostic_; }

 private:
  Diagnostic diagnostic_;
};

}  // namespace ve::publish
