#include "net/com_scope.h"

#include "core/windows.h"

#include <objbase.h>

#include <gtest/gtest.h>
#include <thread>

#include "net/download.h"
#include "support/loopback_server.h"

namespace ve {
namespace {

/// Initialising COM once more says S_FALSE where it is initialised on this thread already.
bool ComIsInitialized() {
  const HRESULT result = CoInitialize(nullptr);
  CoUninitialize();
  return result == S_FALSE;
}

TEST(ComScope, InitializesComForItsTime) {
  EXPECT_EQ(ComScope::Count(), 0U);
  EXPECT_FALSE(ComIsInitialized());
  {
    const ComScope scope;
    EXPECT_EQ(ComScope::Count(), 1U);
    EXPECT_TRUE(ComIsInitialized());
  }
  EXPECT_EQ(ComScope::Count(), 0U);
  EXPECT_FALSE(ComIsInitialized());
}

TEST(ComScope, TheApartmentIsSingleThreaded) {
  const ComScope scope;
  EXPECT_EQ(CoInitializeEx(nullptr, COINIT_MULTITHREADED), RPC_E_CHANGED_MODE);
}

TEST(ComScope, OnlyTheLastOfNestedScopesUninitializes) {
  {
    const ComScope outer;
    {
      const ComScope inner;
      EXPECT_EQ(ComScope::Count(), 2U);
    }
    EXPECT_EQ(ComScope::Count(), 1U);
    EXPECT_TRUE(ComIsInitialized());
  }
  EXPECT_EQ(ComScope::Count(), 0U);
  EXPECT_FALSE(ComIsInitialized());
}

TEST(ComScope, TheCountIsOneForAllThreads) {
  const ComScope scope;
  std::thread([] {
    const ComScope other;
    EXPECT_EQ(ComScope::Count(), 2U);
    EXPECT_FALSE(ComIsInitialized());  // The count was above 0, so nothing was done here.
  }).join();
  EXPECT_EQ(ComScope::Count(), 1U);
}

TEST(ComScope, IsReleasedAfterEveryDownload) {
  test::LoopbackServer server;
  server.Script("/file", test::Ok("content"));
  EXPECT_TRUE(Download(server.Url("/file")).Succeeded());
  EXPECT_EQ(ComScope::Count(), 0U);
  EXPECT_FALSE(Download(server.Url("/missing")).Succeeded());
  EXPECT_EQ(ComScope::Count(), 0U);
  EXPECT_FALSE(Download(L"").Succeeded());
  EXPECT_EQ(ComScope::Count(), 0U);
  EXPECT_FALSE(ComIsInitialized());
}

}  // namespace
}  // namespace ve
