// What is compared, and with what. Each comparison runs the same work by the Launcher's code and by
// the code that it is held against, in one process, in turns.
#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

namespace ve::bench {

/// Does the work once and returns the nanoseconds that it took, without what was made ready before.
using Work = std::function<double()>;

struct Case {
  std::string name;
  double units;  ///< How much work that is: bytes, lines, characters.
  Work ours;
  Work theirs;
};

/// The nanoseconds of processor time, the kernel's work for it included, that this thread spends on
/// `work`: what others do on the machine meanwhile is not counted.
[[nodiscard]] double Measure(const std::function<void()>& work);

/// Keeps the optimiser from removing work whose result is not used.
void Keep(std::size_t value);

/// MD5 of a buffer by somebody else.
using Digest = std::function<void(const void* bytes, std::size_t size)>;

[[nodiscard]] std::vector<Case> Md5Cases(const Digest& theirs);
[[nodiscard]] std::vector<Case> ManifestCases();
[[nodiscard]] std::vector<Case> FormatCases();

/// A manifest with this many file lines, with CRLF ends.
[[nodiscard]] std::string ManifestText(std::size_t files);

}  // namespace ve::bench
