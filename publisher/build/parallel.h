// Work on many items on all processors.
#pragma once

#include <cstddef>
#include <functional>

namespace ve::publish {

/// Calls `work` once for each index below `count`, on up to `threads` threads, with the thread's
/// number. Meanwhile calls `watch` here, ten times a second and once at the end. An exception of
/// `work` keeps all threads from further indices; when they have ended, throws one of theirs.
void ForEachInParallel(std::size_t count, std::size_t threads,
                       const std::function<void(std::size_t index, std::size_t thread)>& work,
                       const std::function<void()>& watch);

}  // namespace ve::publish
