// Work on many items on all processors.
#pragma once

#include <cstddef>
#include <functional>

namespace ve::publish {

/// Calls `work` once for each index below `count`, on up to `threads` threads, with the number of the
/// thread. Meanwhile calls `watch` here, ten times a second and once at the end. After an exception of
/// `work` the threads take no further index; when all have ended, throws the exception of one of them.
void ForEachInParallel(std::size_t count, std::size_t threads,
                       const std::function<void(std::size_t index, std::size_t thread)>& work,
                       const std::function<void()>& watch);

}  // namespace ve::publish
