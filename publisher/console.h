// What a command tells: lines for people, or one JSON object for scripts.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "publisher/diagnostics.h"
#include <nlohmann/json.hpp>

namespace ve::publish {

using Json = nlohmann::ordered_json;

/// The exit codes.
inline constexpr int kDone = 0;
inline constexpr int kRefused = 1;  ///< The input was refused, a check failed, or the work did.
inline constexpr int kWrongUsage = 2;

/// Standard output (the report), standard error (remarks and progress). All texts are UTF-8.
class Console {
 public:
  enum class Style { kText, kJson };

  explicit Console(Style style) : style_(style) {}

  /// A line of the report, for people only: a script reads the same from `Report`.
  void Say(std::string_view line);

  /// The object that is printed at the end when JSON was asked for; commands add their fields.
  [[nodiscard]] Json& Report() noexcept { return report_; }

  /// Shows how far long work is, at most a few times a second, when standard error is a terminal
  /// and the report is for people.
  void ShowProgress(std::string_view work, std::uint64_t filesDone, std::uint64_t files,
                    std::uint64_t bytesDone, std::uint64_t bytes);
  /// Takes the progress line away again.
  void EndProgress();

  /// Prints the remarks (or the JSON object, which holds them as "refusals" and "warnings") and
  /// returns the exit code.
  [[nodiscard]] int Finish(const Diagnostics& diagnostics);

 private:
  Style style_;
  Json report_ = Json::object();
  std::uint64_t lastProgress_ = 0;  // In milliseconds of the system's uptime.
  bool progressShown_ = false;
};

/// A number of bytes for people: "1.4 MB".
[[nodiscard]] std::string FormatByteSize(std::uint64_t bytes);

}  // namespace ve::publish
