// How far long work is.
#pragma once

#include <cstdint>
#include <functional>
#include <string_view>

namespace ve::publish {

/// `work` is one word, such as "Reading"; a new word restarts the clock of the remaining time.
struct Progress {
  std::string_view work;
  std::uint64_t filesDone = 0, files = 0, bytesDone = 0, bytes = 0;
};

/// Called on the thread that started the work.
using ProgressCallback = std::function<void(const Progress&)>;

}  // namespace ve::publish
