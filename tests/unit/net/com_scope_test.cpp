#include "net/com_scope.h"

#include "core/windows.h"

#include <objbase.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <thread>
#include <vector>

#include "net/download.h"
#include "support/loopback_server.h"
#include "support/replaced_call.h"

extern "C" {
extern void* VE_IMPORTED(CoInitialize);
extern void* VE_IMPORTED(CoUninitialize);
}

namespace ve {
namespace {

using testing::ElementsAre;

/// CoInitialize returns S_FALSE if COM is initialised on this thread already.
bool ComIsInitialized() {
  const HRESULT result = CoInitialize(nullptr);
  CoUninitialize();
  return result == S_FALSE;
}

TEST(ComScope, InitializesComForItsTime) {
  EXPECT_FALSE(ComIsInitialized());
  {
    const ComScope scope;
    EXPECT_TRUE(ComIsInitialized());
  }
  EXPECT_FALSE(ComIsInitialized());
}

TEST(ComScope, TheApartmentIsSingleThreaded) {
  const ComScope scope;
  EXPECT_EQ(CoInitializeEx(nullptr, COINIT_MULTITHREADED), RPC_E_CHANGED_MODE);
}

TEST(ComScope, OnlyTheLastOfNestedScopesUninitializes) {
  {
    const ComScope outer;
    { const ComScope inner; }
    EXPECT_TRUE(ComIsInitialized());
  }
  EXPECT_FALSE(ComIsInitialized());
}

/// Records the calls about COM while it exists. COM is not initialised.
class ComRecorder {
 public:
  explicit ComRecorder(HRESULT result) {
    calls_.clear();
    result_ = result;
  }
  [[nodiscard]] static const std::vector<std::string>& Calls() { return calls_; }

 private:
  static HRESULT WINAPI Initialize(void* reserved) {
    calls_.emplace_back(reserved == nullptr ? "initialize" : "initialize with an argument");
    return result_;
  }
  static void WINAPI Uninitialize() { calls_.emplace_back("uninitialize"); }

  inline static std::vector<std::string> calls_;
  inline static HRESULT result_ = S_OK;
  test::ReplacedCall initialize_{VE_IMPORTED(CoInitialize), &Initialize};
  test::ReplacedCall uninitialize_{VE_IMPORTED(CoUninitialize), &Uninitialize};
};

TEST(ComScope, EveryInitializationIsUndoneWhateverItsResult) {
  for (const HRESULT result : {S_OK, S_FALSE, RPC_E_CHANGED_MODE, E_OUTOFMEMORY}) {
    const ComRecorder recorder(result);
    {
      const ComScope outer;
      const ComScope inner;
      EXPECT_THAT(ComRecorder::Calls(), ElementsAre("initialize"));
    }
    { const ComScope again; }
    EXPECT_THAT(ComRecorder::Calls(),
                ElementsAre("initialize", "uninitialize", "initialize", "uninitialize"));
  }
}

TEST(ComScope, ADownloadHoldsOneForItsWholeTime) {
  const ComRecorder recorder(S_OK);
  test::LoopbackServer server;
  server.Script("/file", test::Ok("content"));
  EXPECT_TRUE(Download(server.Url("/file")).Succeeded());
  EXPECT_THAT(ComRecorder::Calls(), ElementsAre("initialize", "uninitialize"));
  EXPECT_FALSE(Download(server.Url("/missing")).Succeeded());
  EXPECT_THAT(ComRecorder::Calls(),
              ElementsAre("initialize", "uninitialize", "initialize", "uninitialize"));
}

TEST(ComScope, TheCountIsOneForAllThreads) {
  const ComScope scope;
  std::thread([] {
    const ComScope other;
    EXPECT_FALSE(ComIsInitialized());  // The count was above 0, so nothing was done here.
  }).join();
  EXPECT_TRUE(ComIsInitialized());
}

TEST(ComScope, IsReleasedAfterEveryDownload) {
  test::LoopbackServer server;
  server.Script("/file", test::Ok("content"));
  EXPECT_TRUE(Download(server.Url("/file")).Succeeded());
  EXPECT_FALSE(ComIsInitialized());
  EXPECT_FALSE(Download(server.Url("/missing")).Succeeded());
  EXPECT_FALSE(ComIsInitialized());
  EXPECT_FALSE(Download(L"").Succeeded());
  EXPECT_FALSE(ComIsInitialized());
}

}  // namespace
}  // namespace ve
