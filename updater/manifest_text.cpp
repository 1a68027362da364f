#include "updater/manifest_text.h"

namespace ve::sdk {

void StripCarriageReturns(std::string& text) { std::erase(text, '\r'); }

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
