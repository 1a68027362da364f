#include "updater/manifest_text.h"

#include <cstring>

namespace ve::sdk {

std::size_t StripCarriageReturns(std::string& text) {
  std::size_t lines = 0;
  const char* at = text.data();
  const char* const end = at + text.size();
  char* out = text.data();
  const char* line = out;
  for (;;) {
    // What stands before the next byte of interest moves down in one piece.
    const char* const found = FindByte<'\r', '\n'>(at, end);
    if (out != at) std::memmove(out, at, static_cast<std::size_t>(found - at));
    out += found - at;
    if (found == end) break;
    at = found + 1;
    if (*found == '\r') {
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
