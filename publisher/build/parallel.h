// Work on many items on all processors.
#pragma once

#include <cstddef>
#include <functional>

namespace ve::publish {

[[nodiscard]] std::size_t ProcessorCount();  ///< At least 1.

/// Calls `work` for every index below `count`, on `threads` threads; `thread`, below `threads`, tells
/// which of them calls. Calls `watch` on the calling thread ten times a second and once at the end. After an
/// exception of `work` no index is begun any more, and the first exception is thrown here.
void ForEachInParallel(std::size_t count, std::size_t threads,
                       const std::function<void(std::size_t index, std::size_t thread)>& work,
                       const std::function<void()>& watch);

}  // namespace ve::publish
