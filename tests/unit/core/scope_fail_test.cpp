#include "core/scope_fail.h"

#include <gtest/gtest.h>
#include <stdexcept>

namespace ve {
namespace {

TEST(ScopeFail, ANormalEndDoesNothing) {
  int calls = 0;
  {
    const ScopeFail guard([&calls] { ++calls; });
  }
  EXPECT_EQ(calls, 0);
}

TEST(ScopeFail, AnExceptionThatLeavesTheScopeCallsTheActionOnce) {
  int calls = 0;
  try {
    const ScopeFail guard([&calls] { ++calls; });
    throw std::runtime_error("x");
  } catch (const std::runtime_error&) {
    EXPECT_EQ(calls, 1);
  }
  EXPECT_EQ(calls, 1);
}

TEST(ScopeFail, AnExceptionCaughtInsideTheScopeDoesNothing) {
  int calls = 0;
  {
    const ScopeFail guard([&calls] { ++calls; });
    EXPECT_THROW(throw std::runtime_error("x"), std::runtime_error);
  }
  EXPECT_EQ(calls, 0);
}

TEST(ScopeFail, InAHandlerThatEndsNormallyItDoesNothing) {
  int calls = 0;
  try {
    throw std::runtime_error("x");
  } catch (const std::runtime_error&) {
    const ScopeFail guard([&calls] { ++calls; });
  }
  EXPECT_EQ(calls, 0);
}

TEST(ScopeFail, InAHandlerANewExceptionCallsTheAction) {
  int calls = 0;
  try {
    try {
      throw std::runtime_error("x");
    } catch (const std::runtime_error&) {
      const ScopeFail guard([&calls] { ++calls; });
      throw std::logic_error("y");
    }
  } catch (const std::logic_error&) {
  }
  EXPECT_EQ(calls, 1);
}

TEST(ScopeFail, InAHandlerARethrowCallsTheAction) {
  int calls = 0;
  try {
    try {
      throw std::runtime_error("x");
    } catch (const std::runtime_error&) {
      const ScopeFail guard([&calls] { ++calls; });
      throw;
    }
  } catch (const std::runtime_error&) {
  }
  EXPECT_EQ(calls, 1);
}

TEST(ScopeFail, AGuardThatLivesDuringUnwindingOnlyDoesNothing) {
  struct Cleanup {
    int& calls;
    ~Cleanup() {
      const ScopeFail guard([this] { ++calls; });
    }
  };
  int calls = 0;
  try {
    const Cleanup cleanup{calls};
    throw std::runtime_error("x");
  } catch (const std::runtime_error&) {
  }
  EXPECT_EQ(calls, 0);
}

}  // namespace
}  // namespace ve
