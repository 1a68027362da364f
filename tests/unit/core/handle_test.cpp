#include "core/handle.h"

#include <gtest/gtest.h>
#include <utility>
#include <vector>

namespace ve {
namespace {

std::vector<int> closed;

/// Handles that are numbers; closing one disturbs the last error, and fails for negative ones.
struct NumberPolicy {
  using Value = int;
  static Value Empty() noexcept { return 0; }
  static bool Close(Value value) noexcept {
    closed.push_back(value);
    SetLastError(99);
    return value > 0;
  }
};
using Number = Unique<NumberPolicy>;

class Handle : public testing::Test {
 protected:
  Handle() { closed.clear(); }
};

using Values = std::vector<int>;

TEST_F(Handle, IsClosedOnceAtTheEndOfItsScope) {
  {
    const Number number(1);
    EXPECT_TRUE(number);
    EXPECT_EQ(number.Get(), 1);
    EXPECT_TRUE(closed.empty());
  }
  EXPECT_EQ(closed, Values{1});
}

TEST_F(Handle, AnEmptyOwnerClosesNothing) {
  {
    const Number number;
    EXPECT_FALSE(number);
  }
  EXPECT_TRUE(closed.empty());
}

TEST_F(Handle, ClosingKeepsTheLastError) {
  SetLastError(2);
  { const Number number(1); }
  EXPECT_EQ(GetLastError(), 2U);
  Number number(3);
  number.Reset(4);
  EXPECT_EQ(GetLastError(), 2U);
  number = Number(5);
  EXPECT_EQ(GetLastError(), 2U);
  EXPECT_EQ(closed, (Values{1, 3, 4}));
}

TEST_F(Handle, CloseReturnsWhetherItWorkedAndKeepsTheErrorOfTheCall) {
  Number good(1);
  Number bad(-1);
  SetLastError(2);
  EXPECT_TRUE(good.Close());
  EXPECT_FALSE(bad.Close());
  EXPECT_EQ(GetLastError(), 99U);
  EXPECT_FALSE(good);
  EXPECT_FALSE(bad);
  EXPECT_EQ(closed, (Values{1, -1}));
}

TEST_F(Handle, AMoveLeavesTheSourceEmpty) {
  Number first(1);
  Number second(std::move(first));
  EXPECT_FALSE(first);  // NOLINT(bugprone-use-after-move)
  EXPECT_EQ(second.Get(), 1);
  Number third(3);
  third = std::move(second);
  EXPECT_EQ(closed, Values{3});
  EXPECT_EQ(third.Get(), 1);
}

TEST_F(Handle, AReleasedHandleIsNotClosed) {
  {
    Number number(1);
    EXPECT_EQ(number.Release(), 1);
    EXPECT_FALSE(number);
  }
  EXPECT_TRUE(closed.empty());
}

TEST_F(Handle, AReceivedHandleIsOwned) {
  {
    Number number;
    *number.Receive() = 7;
  }
  EXPECT_EQ(closed, Values{7});
}

TEST_F(Handle, AFileHandleIsEmptyAsTheInvalidValue) {
  EXPECT_EQ(UniqueFileHandle().Get(), INVALID_HANDLE_VALUE);
  EXPECT_EQ(UniqueFindHandle().Get(), INVALID_HANDLE_VALUE);
  EXPECT_EQ(UniqueHandle().Get(), nullptr);
}

TEST_F(Handle, AnEventIsReallyClosed) {
  HANDLE raw = nullptr;
  {
    const UniqueHandle event(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    raw = event.Get();
    ASSERT_TRUE(event);
    EXPECT_TRUE(SetEvent(raw));
  }
  EXPECT_FALSE(SetEvent(raw));
}

}  // namespace
}  // namespace ve
