#include "publisher/report/console.h"

#include "core/windows.h"

#include <array>
#include <cstdio>
#include <map>

#include "core/format.h"

namespace ve::publish {
namespace {

// In milliseconds.
constexpr std::uint64_t kTerminalPause = 200;
constexpr std::uint64_t kLogPause = 10'000;

// The shape of the JSON object; raised when a change would break existing scripts.
constexpr int kSchema = 1;

constexpr std::size_t kMaxAlike = 10;

void Write(std::FILE* stream, std::string_view text) {
  std::fwrite(text.data(), 1, text.size(), stream);
}

bool IsTerminal() {
  DWORD mode = 0;
  return GetConsoleMode(GetStdHandle(STD_ERROR_HANDLE), &mode) != FALSE;
}

/// The findings in the groups of those with the same hint, each group at the place of its first.
void WriteFindings(std::string_view kind, const std::vector<Diagnostic>& findings) {
  std::map<std::string_view, std::vector<const Diagnostic*>> alike;
  for (const Diagnostic& finding : findings) alike[finding.hint].push_back(&finding);
  for (const Diagnostic& finding : findings) {
    const std::vector<const Diagnostic*>& group = alike[finding.hint];
    if (group.front() != &finding) continue;
    for (std::size_t index = 0; index < group.size() && index < kMaxAlike; ++index) {
      Write(stderr, Format("{}: {}: {}\n", kind, group[index]->subject, group[index]->message));
    }
    if (group.size() > kMaxAlike) {
      Write(stderr, Format("{}: and {} more like these\n", kind, group.size() - kMaxAlike));
    }
    if (!finding.hint.empty()) Write(stderr, Format("  {}\n", finding.hint));
  }
}

Json AsJson(const std::vector<Diagnostic>& findings) {
  Json list = Json::array();
  for (const Diagnostic& finding : findings) {
    list.push_back(
        {{"subject", finding.subject}, {"message", finding.message}, {"hint", finding.hint}});
  }
  return list;
}

std::string FormatProgress(const Progress& progress, std::uint64_t elapsed) {
  auto text = Format("{}: {} of {} files", progress.work, progress.filesDone, progress.files);
  if (progress.bytes == 0) return text;
  text += Format(", {} of {}", FormatByteSize(progress.bytesDone), FormatByteSize(progress.bytes));
  if (progress.bytesDone == 0 || progress.bytesDone > progress.bytes) return text;
  const double done = static_cast<double>(progress.bytesDone) / static_cast<double>(progress.bytes);
  const double left = static_cast<double>(elapsed) * (1 - done) / done / 1000 + 0.5;
  text += Format(", {}%", static_cast<int>(done * 100));
  return text + Format(", {} s left", static_cast<std::uint64_t>(left));
}

}  // namespace

Console::Console(Style style, std::string_view command)
    : style_(style), report_({{"schema", kSchema}, {"command", command}}) {}

void Console::Print(std::string_view line) {
  if (style_ == Style::kText) Write(stdout, Format("{}\n", line));
}

void Console::ShowProgress(const Progress& progress) {
  if (style_ == Style::kJson) return;
  const std::uint64_t now = GetTickCount64();
  if (progress.work != work_) {
    work_ = progress.work;
    workBegan_ = lastShown_ = now;
    return;
  }
  const bool isTerminal = IsTerminal();
  if (now - lastShown_ < (isTerminal ? kTerminalPause : kLogPause)) return;
  lastShown_ = now;
  const std::string text = FormatProgress(progress, now - workBegan_);
  Write(stderr, isTerminal ? Format("\r{}        ", text) : Format("{}\n", text));
  isLineShown_ = isTerminal;
}

void Console::EndProgress() {
  if (isLineShown_) Write(stderr, Format("\r{}\r", std::string(78, ' ')));
  isLineShown_ = false;
  work_ = {};
}

int Console::Finish(const Diagnostics& diagnostics, int failure) {
  EndProgress();
  const int exitCode = diagnostics.HasErrors() ? failure : kDone;
  if (style_ == Style::kJson) {
    report_["exitCode"] = exitCode;
    report_["errors"] = AsJson(diagnostics.errors);
    report_["warnings"] = AsJson(diagnostics.warnings);
    // Names of files need not be valid text.
    Write(stdout, report_.dump(2, ' ', false, Json::error_handler_t::replace) + "\n");
    return exitCode;
  }
  std::fflush(stdout);
  WriteFindings("warning", diagnostics.warnings);
  WriteFindings("error", diagnostics.errors);
  if (exitCode != kDone && !report_.value("published", true)) {
    Write(stderr, "Nothing was published.\n");
  }
  return exitCode;
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
