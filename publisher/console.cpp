#include "publisher/console.h"

#include "core/windows.h"

#include <array>
#include <cstdio>

#include "core/format.h"

namespace ve::publish {
namespace {

constexpr std::uint64_t kProgressPause = 200;  // milliseconds

void Write(std::FILE* stream, std::string_view text) {
  std::fwrite(text.data(), 1, text.size(), stream);
}

bool IsTerminal(DWORD standardHandle) {
  DWORD mode = 0;
  return GetConsoleMode(GetStdHandle(standardHandle), &mode) != FALSE;
}

void WriteFinding(std::string_view kind, const Diagnostic& diagnostic) {
  Write(stderr, Format("{}: {}: {}\n", kind, diagnostic.subject, diagnostic.message));
  if (!diagnostic.hint.empty()) Write(stderr, Format("  {}\n", diagnostic.hint));
}

Json AsJson(const std::vector<Diagnostic>& diagnostics) {
  Json list = Json::array();
  for (const Diagnostic& diagnostic : diagnostics) {
    list.push_back({{"subject", diagnostic.subject},
                    {"message", diagnostic.message},
                    {"hint", diagnostic.hint}});
  }
  return list;
}

}  // namespace

void Console::Say(std::string_view line) {
  if (style_ == Style::kText) Write(stdout, Format("{}\n", line));
}

void Console::ShowProgress(std::string_view work, std::uint64_t filesDone, std::uint64_t files,
                           std::uint64_t bytesDone, std::uint64_t bytes) {
  if (style_ == Style::kJson || !IsTerminal(STD_ERROR_HANDLE)) return;
  const std::uint64_t now = GetTickCount64();
  if (progressShown_ && now - lastProgress_ < kProgressPause) return;
  lastProgress_ = now;
  progressShown_ = true;
  Write(stderr, Format("\r{}: {} of {} files, ", work, filesDone, files));
  Write(stderr, Format("{} of {}        ", FormatByteSize(bytesDone), FormatByteSize(bytes)));
}

void Console::EndProgress() {
  if (progressShown_) Write(stderr, Format("\r{}\r", std::string(78, ' ')));
  progressShown_ = false;
}

int Console::Finish(const Diagnostics& diagnostics) {
  EndProgress();
  if (style_ == Style::kJson) {
    report_["refusals"] = AsJson(diagnostics.refusals);
    report_["warnings"] = AsJson(diagnostics.warnings);
    // Names of files need not be valid text.
    Write(stdout, report_.dump(2, ' ', false, Json::error_handler_t::replace) + "\n");
  } else {
    std::fflush(stdout);
    for (const Diagnostic& warning : diagnostics.warnings) WriteFinding("warning", warning);
    for (const Diagnostic& refusal : diagnostics.refusals) WriteFinding("refused", refusal);
  }
  return diagnostics.Refused() ? kRefused : kDone;
}

std::string FormatByteSize(std::uint64_t bytes) {
  static constexpr std::array<const char*, 5> kUnits{"B", "kB", "MB", "GB", "TB"};
  if (bytes < 1000) return Format("{} B", bytes);
  std::size_t unit = 0;
  std::uint64_t tenths = bytes * 10;
  while (tenths >= 10'000 && unit + 1 < kUnits.size()) {
    tenths /= 1000;
    ++unit;
  }
  return Format("{}.{} {}", tenths / 10, tenths % 10, kUnits[unit]);
}

}  // namespace ve::publish
