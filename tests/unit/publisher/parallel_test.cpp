#include "publisher/build/parallel.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <gtest/gtest.h>
#include <stdexcept>
#include <thread>

namespace ve::publish {
namespace {

TEST(Parallel, EveryIndexIsWorkedOnOnceAndTheEndIsWatchedHere) {
  for (const std::size_t threads : {1U, 2U, 50U}) {
    std::array<std::atomic<int>, 200> times{};
    std::size_t seen = 0;
    ForEachInParallel(
        times.size(), threads,
        [&](std::size_t index, std::size_t thread) {
          EXPECT_LT(thread, threads);
          ++times[index];
        },
        [&, watcher = std::this_thread::get_id()] {
          EXPECT_EQ(std::this_thread::get_id(), watcher);
          seen = static_cast<std::size_t>(std::count(times.begin(), times.end(), 1));
        });
    EXPECT_EQ(seen, times.size());
  }
}

TEST(Parallel, NoTwoItemsHaveTheSameThreadAtATime) {
  std::array<std::atomic<int>, 4> inUse{};
  ForEachInParallel(
      10'000, inUse.size(),
      [&](std::size_t, std::size_t thread) {
        EXPECT_EQ(++inUse[thread], 1);
        std::this_thread::yield();
        --inUse[thread];
      },
      [] {});
}

TEST(Parallel, WithoutItemsOnlyTheEndIsWatched) {
  int watched = 0;
  ForEachInParallel(
      0, 1, [](std::size_t, std::size_t) { FAIL(); }, [&] { ++watched; });
  EXPECT_EQ(watched, 1);
}

TEST(Parallel, ItIsWatchedWhileTheWorkGoesOn) {
  std::atomic<int> watched = 0;
  ForEachInParallel(
      1, 1,
      [&](std::size_t, std::size_t) {
        while (watched < 3) std::this_thread::yield();
      },
      [&] { ++watched; });
}

TEST(Parallel, AnExceptionEndsTheWorkOfAllThreadsAndIsThrown) {
  constexpr std::size_t kCount =
      1'000'000;  // A millisecond for each would be a quarter of an hour.
  std::atomic<std::size_t> begun = 0;
  const auto work = [&](std::size_t index, std::size_t) {
    ++begun;
    if (index == 3) throw std::runtime_error("three");
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  };
  EXPECT_THROW(ForEachInParallel(kCount, 2, work, [] {}), std::runtime_error);
  EXPECT_LT(begun, kCount);
}

}  // namespace
}  // namespace ve::publish
