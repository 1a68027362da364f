#include "publisher/build/parallel.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <future>
#include <thread>
#include <vector>

namespace ve::publish {
namespace {

constexpr std::chrono::milliseconds kWatchPause{100};

}  // namespace

void ForEachInParallel(std::size_t count, std::size_t threads,
                       const std::function<void(std::size_t index, std::size_t thread)>& work,
                       const std::function<void()>& watch) {
  std::atomic<std::size_t> next = 0;
  const auto takeItems = [&](std::size_t thread) {
    try {
      for (std::size_t index = next++; index < count; index = next++) work(index, thread);
    } catch (...) {
      next = count;
      throw;
    }
  };
  std::vector<std::future<void>> running;
  running.reserve(threads);
  for (std::size_t thread = 0; thread < std::min(threads, count); ++thread) {
    running.push_back(std::async(std::launch::async, takeItems, thread));
  }
  for (const std::future<void>& thread : running) {
    while (thread.wait_for(kWatchPause) != std::future_status::ready) watch();
  }
  watch();
  for (std::future<void>& thread : running) thread.get();
}

}  // namespace ve::publish
