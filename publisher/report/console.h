// What a command prints: lines for people, or one JSON object for scripts (docs/publish.schema.json).
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "publisher/report/diagnostics.h"
#include <nlohmann/json.hpp>

namespace ve::publish {

using Json = nlohmann::ordered_json;

/// The exit codes.
inline constexpr int kDone = 0;
inline constexpr int kFailed = 1;  ///< The input was rejected, a check failed, or the work did.
inline constexpr int kWrongUsage = 2;

/// How far long work is. `work` is one word, such as "Reading"; a new word restarts the clock of the
/// remaining time.
struct Progress {
  std::string_view work;
  std::uint64_t filesDone = 0, files = 0, bytesDone = 0, bytes = 0;
};

/// Writes the report to standard output, diagnostics and progress to standard error. All texts are
/// UTF-8.
class Console {
 public:
  enum class Style { kText, kJson };

  Console(Style style, std::string_view command);

  /// Prints a line of the report for people. A script reads the same from `Report`.
  void Print(std::string_view line);

  /// The object that is printed at the end when JSON was asked for; commands add their fields.
  [[nodiscard]] Json& Report() noexcept { return report_; }

  /// Shows percentage and remaining time: on a terminal in one line, renewed a few times a second,
  /// otherwise as a line every ten seconds. Nothing in JSON style. Call it from one thread.
  void ShowProgress(const Progress& progress);
  /// Removes the progress line from the terminal.
  void EndProgress();

  /// Prints the diagnostics, or the JSON object with them as "errors" and "warnings". Where several
  /// have the same hint, prints the first ten and the number of the others. Says that nothing was
  /// published if the report's "published" is false after an error. Returns the exit code: `kDone`,
  /// or `failure` if there are errors.
  [[nodiscard]] int Finish(const Diagnostics& diagnostics, int failure = kFailed);

 private:
  Style style_;
  Json report_;
  std::string_view work_;        // The progress's; empty while none is shown.
  std::uint64_t workBegan_ = 0;  // In milliseconds of the system's uptime, like the next.
  std::uint64_t lastShown_ = 0;
  bool isLineShown_ = false;
};

/// A number of bytes for people: "1.4 MB".
[[nodiscard]] std::string FormatByteSize(std::uint64_t bytes);

}  // namespace ve::publish
