#include "updater/manifest_text.h"

#include <cstring>

namespace ve::sdk {
namespace {

/// Moves what stands before the next carriage return or line feed down to `out`, which must not be
/// above it, and advances both behind it.
void MoveUpToBreak(const char*& at, const char* end, char*& out) noexcept {
  while (end - at >= kStep) {
    const __m128i bytes = LoadStep(at);
    const unsigned found = Matches<'\r', '\n'>(bytes);
    const std::ptrdiff_t count = found != 0 ? std::countr_zero(found) : kStep;
    // A whole step may be stored where that overwrites nothing that is still to be read.
    if (count == kStep || at - out >= kStep) {
      _mm_storeu_si128(reinterpret_cast<__m128i*>(out), bytes);
    } else {
      std::memmove(out, at, static_cast<std::size_t>(count));
    }
    at += count;
    out += count;
    if (found != 0) return;
  }
  while (at != end && *at != '\r' && *at != '\n') *out++ = *at++;
}

}  // namespace

std::size_t StripCarriageReturns(std::string& text) {
  std::size_t lines = 0;
  const char* at = text.data();
  const char* const end = at + text.size();
  char* out = text.data();
  const char* line = out;
  for (;;) {
    MoveUpToBreak(at, end, out);
    if (at == end) break;
    if (*at++ == '\r') {
      // Nearly always its line feed is next, and need not be searched for.
      if (at == end || *at != '\n') continue;
      ++at;
    }
    if (out != line) ++lines;
    *out++ = '\n';
    line = out;
  }
  if (out != line) ++lines;
  text.resize(static_cast<std::size_t>(out - text.data()));
  return lines;
}

std::vector<std::string_view> SplitLines(std::string_view text, char delimiter,
                                         EmptyPieces emptyPieces) {
  std::vector<std::string_view> lines;
  while (!text.empty()) {
    const std::size_t end = text.find(delimiter);
    const std::string_view line = text.substr(0, end);
    if (!line.empty() || emptyPieces == EmptyPieces::kKeep) lines.push_back(line);
    if (end == std::string_view::npos) break;
    text.remove_prefix(end + 1);
  }
  return lines;
}

KeyValue SplitKeyValue(std::string_view line, std::string_view separator) {
  const std::size_t at = line.find(separator);
  if (at == std::string_view::npos) return {line, {}};
  return {line.substr(0, at), line.substr(at + separator.size())};
}

}  // namespace ve::sdk
