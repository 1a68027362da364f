#include "ui/progress_window.h"

#include <commctrl.h>

#include <array>
#include <atomic>
#include <cstdlib>
#include <functional>
#include <future>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <iostream>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "core/format.h"
#include "support/replaced_call.h"

extern "C" {
extern void* VE_IMPORTED(InitCommonControlsEx);
extern void* VE_IMPORTED(RegisterClassW);
extern void* VE_IMPORTED(DestroyWindow);
extern void* VE_IMPORTED(Sleep);
}

namespace ve {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

std::wstring TextOf(HWND window) {
  std::array<wchar_t, 256> text{};
  GetWindowTextW(window, text.data(), static_cast<int>(text.size()));
  return text.data();
}

std::wstring ClassOf(HWND window) {
  std::array<wchar_t, 256> name{};
  GetClassNameW(window, name.data(), static_cast<int>(name.size()));
  return name.data();
}

/// The progress windows of this process; other processes on the desktop may have theirs.
std::vector<HWND> FindProgressWindows() {
  std::vector<HWND> found;
  EnumWindows(
      [](HWND window, LPARAM argument) -> BOOL {
        DWORD process = 0;
        GetWindowThreadProcessId(window, &process);
        if (process == GetCurrentProcessId() && ClassOf(window) == L"UpdaterWindow") {
          reinterpret_cast<std::vector<HWND>*>(argument)->push_back(window);
        }
        return TRUE;
      },
      reinterpret_cast<LPARAM>(&found));
  return found;
}

HWND FindLabel(HWND window) { return FindWindowExW(window, nullptr, L"STATIC", nullptr); }
HWND FindBar(HWND window) { return FindWindowExW(window, nullptr, PROGRESS_CLASSW, nullptr); }

/// Whether the condition becomes true, however slow the machine is within reason.
bool Eventually(const std::function<bool()>& condition) {
  for (int attempt = 0; attempt < 6000; ++attempt) {
    if (condition()) return true;
    Sleep(10);
  }
  return false;
}

RECT InParent(HWND child) {
  RECT rectangle{};
  GetWindowRect(child, &rectangle);
  MapWindowPoints(nullptr, GetParent(child), reinterpret_cast<POINT*>(&rectangle), 2);
  return rectangle;
}

SIZE FrameAdjusted(LONG width, LONG height) {
  RECT rectangle{0, 0, width, height};
  AdjustWindowRect(&rectangle, 0, FALSE);
  return {rectangle.right, rectangle.bottom};
}

/// What is sent to a label and its bar from now on. One recorder at a time.
class StepRecorder {
 public:
  explicit StepRecorder(HWND window) {
    steps_.clear();
    onText_ = nullptr;
    Subclass(FindLabel(window), &RecordLabel, label_);
    Subclass(FindBar(window), &RecordBar, bar_);
  }

  /// Called on the window's thread, in the middle of every step.
  void OnText(std::function<void()> call) { onText_ = std::move(call); }

  /// Only while the window's thread does not step.
  [[nodiscard]] static const std::vector<std::wstring>& Steps() { return steps_; }

 private:
  /// What is called on the window's thread as soon as it is installed finds the procedure before.
  static void Subclass(HWND control, WNDPROC procedure, std::atomic<WNDPROC>& before) {
    before = reinterpret_cast<WNDPROC>(GetWindowLongPtrW(control, GWLP_WNDPROC));
    SetWindowLongPtrW(control, GWLP_WNDPROC, reinterpret_cast<LONG_PTR>(procedure));
  }
  static LRESULT CALLBACK RecordLabel(HWND window, UINT message, WPARAM wide, LPARAM argument) {
    if (message == WM_SETTEXT) {
      steps_.emplace_back(reinterpret_cast<const wchar_t*>(argument));
      if (onText_) onText_();
    }
    return CallWindowProcW(label_, window, message, wide, argument);
  }
  static LRESULT CALLBACK RecordBar(HWND window, UINT message, WPARAM wide, LPARAM argument) {
    if (message == PBM_STEPIT) steps_.emplace_back(L"bar");
    return CallWindowProcW(bar_, window, message, wide, argument);
  }

  inline static std::atomic<WNDPROC> label_ = nullptr;
  inline static std::atomic<WNDPROC> bar_ = nullptr;
  inline static std::function<void()> onText_;
  inline static std::vector<std::wstring> steps_;
};

/// A progress thread with its window on the screen.
class ProgressThreadTest : public testing::Test {
 protected:
  void Start(std::size_t total) {
    entries_.resize(total);
    thread_ = std::thread([this] { result_ = ProgressThread(entries_, finished_, counter_); });
    ASSERT_TRUE(Eventually([] { return FindProgressWindows().size() == 1; }));
    window_ = FindProgressWindows().front();
    ASSERT_TRUE(Eventually([this] { return FindLabel(window_) != nullptr; }));
  }
  void Finish() {
    finished_ = true;
    thread_.join();
    EXPECT_EQ(result_, 0U);
    EXPECT_THAT(FindProgressWindows(), IsEmpty());
  }
  ~ProgressThreadTest() override {
    finished_ = true;
    if (thread_.joinable()) thread_.join();
  }

  std::atomic<bool> finished_ = false;
  std::atomic<std::uint32_t> counter_ = 0;
  HWND window_ = nullptr;

 private:
  std::vector<int> entries_;
  unsigned result_ = 1;
  std::thread thread_;
};

void ExpectPlacement(const Placement& placement, int x, int y, int width, int height) {
  EXPECT_EQ(placement.x, x);
  EXPECT_EQ(placement.y, y);
  EXPECT_EQ(placement.width, width);
  EXPECT_EQ(placement.height, height);
}

TEST(Centered, TakesRightAndBottomForTheSize) {
  ExpectPlacement(Centered(1000, 800, {0, 0, 386, 160}), 307, 320, 386, 160);
}

TEST(Centered, WhatTheFrameAddsAtTheLeftAndTopDoesNotCount) {
  ExpectPlacement(Centered(1000, 800, {-8, -31, 394, 168}), 303, 316, 394, 168);
}

TEST(Centered, HalvesAreCutTowardZeroAlsoBelowIt) {
  ExpectPlacement(Centered(101, 100, {0, 0, 50, 49}), 25, 25, 50, 49);
  ExpectPlacement(Centered(100, 100, {0, 0, 103, 105}), -1, -2, 103, 105);
}

TEST(ProgressWindow, ItsClassIsPlain) {
  const ProgressWindow window(1);
  WNDCLASSW registered{};
  ASSERT_TRUE(GetClassInfoW(GetModuleHandleW(nullptr), L"UpdaterWindow", &registered));
  EXPECT_EQ(registered.style, 0U);
  EXPECT_EQ(registered.cbClsExtra, 0);
  EXPECT_EQ(registered.cbWndExtra, 0);
  EXPECT_EQ(registered.hIcon, nullptr);
  EXPECT_EQ(registered.hCursor, nullptr);
  EXPECT_EQ(registered.hbrBackground, nullptr);
  EXPECT_EQ(registered.lpszMenuName, nullptr);
  EXPECT_EQ(registered.lpfnWndProc, &DefWindowProcW);
}

TEST(ProgressWindow, ItsClassStaysWhenItGoes) {
  { const ProgressWindow window(1); }
  WNDCLASSW registered{};
  EXPECT_TRUE(GetClassInfoW(GetModuleHandleW(nullptr), L"UpdaterWindow", &registered));
  const ProgressWindow again(1);
  EXPECT_EQ(FindProgressWindows().size(), 1U);
}

TEST(ProgressWindow, TheWindowStandsInTheMiddleOfTheScreen) {
  const ProgressWindow progress(1);
  ASSERT_EQ(FindProgressWindows().size(), 1U);
  const HWND window = FindProgressWindows().front();
  EXPECT_EQ(TextOf(window), L"Downloading...");
  EXPECT_EQ(GetParent(window), nullptr);
  EXPECT_EQ(GetMenu(window), nullptr);

  const SIZE size = FrameAdjusted(386, 160);
  RECT rectangle{};
  GetWindowRect(window, &rectangle);
  EXPECT_EQ(rectangle.right - rectangle.left, size.cx);
  EXPECT_EQ(rectangle.bottom - rectangle.top, size.cy);
  EXPECT_EQ(rectangle.left, (GetSystemMetrics(SM_CXSCREEN) - size.cx) / 2);
  EXPECT_EQ(rectangle.top, (GetSystemMetrics(SM_CYSCREEN) - size.cy) / 2);
}

TEST(ProgressWindow, TheWindowIsVisibleAndHasNoSystemMenu) {
  const ProgressWindow progress(1);
  ASSERT_EQ(FindProgressWindows().size(), 1U);
  const HWND window = FindProgressWindows().front();
  // The system gives every overlapped window a caption and clips its siblings.
  const auto style = static_cast<DWORD>(GetWindowLongPtrW(window, GWL_STYLE));
  EXPECT_EQ(style & ~DWORD{WS_CAPTION | WS_CLIPSIBLINGS}, 0x10000008U);
  const auto extendedStyle = static_cast<DWORD>(GetWindowLongPtrW(window, GWL_EXSTYLE));
  EXPECT_EQ(extendedStyle & ~DWORD{WS_EX_WINDOWEDGE}, 0U);
}

TEST(ProgressWindow, TheLabelStandsAtTheTopLeft) {
  const ProgressWindow progress(12);
  ASSERT_EQ(FindProgressWindows().size(), 1U);
  const HWND label = FindLabel(FindProgressWindows().front());
  ASSERT_NE(label, nullptr);
  EXPECT_EQ(TextOf(label), L"0 / 12");
  EXPECT_EQ(GetWindowLongPtrW(label, GWL_STYLE), 0x50000000);
  EXPECT_EQ(GetDlgCtrlID(label), 0);
  const RECT place = InParent(label);
  EXPECT_EQ(place.left, 16);
  EXPECT_EQ(place.top, 16);
  EXPECT_EQ(place.right - place.left, 300);
  EXPECT_EQ(place.bottom - place.top, 32);
}

TEST(ProgressWindow, TheBarStandsInTheMiddleOfTheClientArea) {
  const ProgressWindow progress(12);
  ASSERT_EQ(FindProgressWindows().size(), 1U);
  const HWND window = FindProgressWindows().front();
  const HWND bar = FindBar(window);
  ASSERT_NE(bar, nullptr);
  EXPECT_EQ(TextOf(bar), L"");
  EXPECT_EQ(GetWindowLongPtrW(bar, GWL_STYLE) & 0x50000000, 0x50000000);
  EXPECT_EQ(GetDlgCtrlID(bar), 0);
  RECT client{};
  GetClientRect(window, &client);
  const SIZE size = FrameAdjusted(client.right - 16, GetSystemMetrics(SM_CYVSCROLL));
  const RECT place = InParent(bar);
  EXPECT_EQ(place.right - place.left, size.cx);
  EXPECT_EQ(place.bottom - place.top, size.cy);
  EXPECT_EQ(place.left, (client.right - size.cx) / 2);
  EXPECT_EQ(place.top, (client.bottom - size.cy) / 2);
}

void ExpectRange(std::uint32_t total, LRESULT most, const wchar_t* text) {
  const ProgressWindow progress(total);
  ASSERT_EQ(FindProgressWindows().size(), 1U);
  const HWND window = FindProgressWindows().front();
  EXPECT_EQ(SendMessageW(FindBar(window), PBM_GETRANGE, TRUE, 0), 0);
  EXPECT_EQ(SendMessageW(FindBar(window), PBM_GETRANGE, FALSE, 0), most);
  EXPECT_EQ(SendMessageW(FindBar(window), PBM_GETPOS, 0, 0), 0);
  EXPECT_EQ(TextOf(FindLabel(window)), text);
}

TEST(ProgressWindow, TheBarsRangeIsTheTotalIn16Bits) {
  ExpectRange(0, 0, L"0 / 0");
  ExpectRange(5, 5, L"0 / 5");
  ExpectRange(40000, 40000, L"0 / 40000");
  ExpectRange(65535, 65535, L"0 / 65535");
  ExpectRange(65536, 0, L"0 / 65536");
  ExpectRange(70000, 4464, L"0 / 70000");
}

TEST(ProgressWindow, AStepCountsOneFileInTheLabelAndTheBar) {
  ProgressWindow progress(3);
  ASSERT_EQ(FindProgressWindows().size(), 1U);
  const HWND window = FindProgressWindows().front();
  progress.Step();
  EXPECT_EQ(TextOf(FindLabel(window)), L"1 / 3");
  EXPECT_EQ(SendMessageW(FindBar(window), PBM_GETPOS, 0, 0), 1);
  progress.Step();
  EXPECT_EQ(TextOf(FindLabel(window)), L"2 / 3");
  EXPECT_EQ(SendMessageW(FindBar(window), PBM_GETPOS, 0, 0), 2);
}

TEST(ProgressWindow, TheLabelCountsOnWhenTheBarIsFull) {
  ProgressWindow progress(65536 + 3);
  ASSERT_EQ(FindProgressWindows().size(), 1U);
  const HWND window = FindProgressWindows().front();
  for (int file = 0; file < 3; ++file) progress.Step();
  EXPECT_EQ(SendMessageW(FindBar(window), PBM_GETPOS, 0, 0), 3);
  progress.Step();
  EXPECT_EQ(TextOf(FindLabel(window)), L"4 / 65539");
}

TEST(ProgressWindow, DestroyingItTakesItsControlsAlong) {
  HWND label = nullptr;
  HWND bar = nullptr;
  {
    const ProgressWindow progress(1);
    ASSERT_EQ(FindProgressWindows().size(), 1U);
    label = FindLabel(FindProgressWindows().front());
    bar = FindBar(FindProgressWindows().front());
    ASSERT_TRUE(IsWindow(label));
    ASSERT_TRUE(IsWindow(bar));
  }
  EXPECT_THAT(FindProgressWindows(), IsEmpty());
  EXPECT_FALSE(IsWindow(label));
  EXPECT_FALSE(IsWindow(bar));
}

/// The calls that prepare the making of windows, recorded and not made. Only before the process has
/// made its first progress window.
class Preparations {
 public:
  Preparations() { made_.clear(); }
  [[nodiscard]] static const std::vector<std::string>& Made() { return made_; }

 private:
  static BOOL WINAPI InitControls(const INITCOMMONCONTROLSEX* controls) {
    made_.push_back(Format("controls {} {}", controls->dwSize, controls->dwICC));
    return FALSE;
  }
  static ATOM WINAPI Register(const WNDCLASSW*) {
    made_.emplace_back("class");
    return 0;
  }

  inline static std::vector<std::string> made_;
  test::ReplacedCall controls_{VE_IMPORTED(InitCommonControlsEx), &InitControls};
  test::ReplacedCall register_{VE_IMPORTED(RegisterClassW), &Register};
};

TEST(ProgressWindow, TheFirstOneOfAProcessAloneRegistersItsClassAndPreparesTheBars) {
  // Other tests of the same process may have made the first one.
  EXPECT_EXIT(
      {
        {
          const Preparations preparations;
          for (int i = 0; i < 3; ++i) {
            const ProgressWindow window(1);
          }
        }
        for (const std::string& call : Preparations::Made()) std::cerr << call << '\n';
        std::exit(0);
      },
      testing::ExitedWithCode(0), "^class\ncontrols 8 32\n$");
}

TEST(ProgressWindow, IsDestroyedBeforeItsLabelAndThatBeforeItsBar) {
  static std::vector<HWND> destroyed;
  destroyed.clear();
  static void* real = VE_IMPORTED(DestroyWindow);
  const auto destroy = [](HWND window) -> BOOL {
    destroyed.push_back(window);
    return reinterpret_cast<decltype(&DestroyWindow)>(real)(window);
  };
  std::optional<ProgressWindow> progress(std::in_place, 1);
  ASSERT_EQ(FindProgressWindows().size(), 1U);
  const HWND window = FindProgressWindows().front();
  const HWND label = FindLabel(window);
  const HWND bar = FindBar(window);
  const test::ReplacedCall call(VE_IMPORTED(DestroyWindow), +destroy);
  progress.reset();
  EXPECT_THAT(destroyed, ElementsAre(window, label, bar));
}

TEST(RunProgressWindow, SleepsForTenMillisecondsInEveryRound) {
  static std::vector<DWORD> slept;
  static std::atomic<bool> finished;
  slept.clear();
  finished = false;
  const test::ReplacedCall call(
      VE_IMPORTED(Sleep), +[](DWORD milliseconds) {
        slept.push_back(milliseconds);
        finished = slept.size() == 3;
      });
  std::atomic<std::uint32_t> counter = 0;
  RunProgressWindow(1, finished, counter);
  EXPECT_THAT(slept, ElementsAre(10U, 10U, 10U));
}

TEST(PumpMessages, HandlesAllQueuedMessages) {
  static std::vector<WPARAM> handled;
  handled.clear();
  const HWND window =
      CreateWindowExW(0, L"STATIC", L"", 0, 0, 0, 0, 0, HWND_MESSAGE, nullptr, nullptr, nullptr);
  ASSERT_NE(window, nullptr);
  const WNDPROC record = [](HWND target, UINT message, WPARAM number, LPARAM argument) -> LRESULT {
    if (message == WM_APP) handled.push_back(number);
    return DefWindowProcW(target, message, number, argument);
  };
  SetWindowLongPtrW(window, GWLP_WNDPROC, reinterpret_cast<LONG_PTR>(record));
  for (WPARAM number = 1; number <= 3; ++number) PostMessageW(window, WM_APP, number, 0);
  EXPECT_FALSE(PumpMessages());
  EXPECT_THAT(handled, ElementsAre(1U, 2U, 3U));
  DestroyWindow(window);
}

TEST(PumpMessages, SaysWhetherAQuitWasAmongThem) {
  EXPECT_FALSE(PumpMessages());
  PostThreadMessageW(GetCurrentThreadId(), WM_NULL, 0, 0);
  PostThreadMessageW(GetCurrentThreadId(), WM_QUIT, 0, 0);
  PostThreadMessageW(GetCurrentThreadId(), WM_NULL, 0, 0);
  EXPECT_TRUE(PumpMessages());
  EXPECT_FALSE(PumpMessages());
  PostQuitMessage(0);
  EXPECT_TRUE(PumpMessages());
}

TEST_F(ProgressThreadTest, TheTotalIsTheNumberOfEntries) {
  Start(7);
  EXPECT_EQ(TextOf(FindLabel(window_)), L"0 / 7");
  Finish();
}

TEST_F(ProgressThreadTest, WithoutFilesTheWindowWaitsForTheFlagToo) {
  Start(0);
  EXPECT_EQ(TextOf(FindLabel(window_)), L"0 / 0");
  EXPECT_EQ(FindProgressWindows().size(), 1U);
  Finish();
}

TEST_F(ProgressThreadTest, FilesOfOneRoundAreShownOneByOne) {
  Start(9);
  StepRecorder recorder(window_);
  // In the first step a sixth file is counted; it has to wait for the next round.
  std::vector<std::uint32_t> countersInSteps;
  recorder.OnText([&] {
    if (StepRecorder::Steps().size() == 1) counter_ = 1;
    countersInSteps.push_back(counter_);
    if (countersInSteps.size() == 6) finished_ = true;
  });
  counter_ = 5;
  ASSERT_TRUE(Eventually([this] { return finished_.load(); }));
  Finish();
  EXPECT_THAT(StepRecorder::Steps(),
              ElementsAre(L"1 / 9", L"bar", L"2 / 9", L"bar", L"3 / 9", L"bar", L"4 / 9", L"bar",
                          L"5 / 9", L"bar", L"6 / 9", L"bar"));
  // The counter is emptied once a round: the five were shown without a look at it in between.
  EXPECT_THAT(countersInSteps, ElementsAre(1U, 1U, 1U, 1U, 1U, 0U));
}

TEST_F(ProgressThreadTest, WhatIsCountedAfterTheFlagIsNotShown) {
  Start(9);
  StepRecorder recorder(window_);
  recorder.OnText([this] {
    counter_ = 4;
    finished_ = true;
  });
  counter_ = 1;
  ASSERT_TRUE(Eventually([this] { return finished_.load(); }));
  Finish();
  EXPECT_THAT(StepRecorder::Steps(), ElementsAre(L"1 / 9", L"bar"));
  EXPECT_EQ(counter_, 4U);
}

TEST_F(ProgressThreadTest, ACountThatIsNegativeAsASignedNumberIsDropped) {
  Start(9);
  StepRecorder recorder(window_);
  recorder.OnText([this] { finished_ = true; });
  counter_ = 0x80000000U;
  ASSERT_TRUE(Eventually([this] { return counter_ == 0; }));
  counter_ = 1;
  ASSERT_TRUE(Eventually([this] { return finished_.load(); }));
  Finish();
  EXPECT_THAT(StepRecorder::Steps(), ElementsAre(L"1 / 9", L"bar"));
}

TEST_F(ProgressThreadTest, AFlagThatIsSetAlreadyGivesAWindowThatGoesAtOnce) {
  static std::vector<std::wstring> made;
  made.clear();
  const HHOOK hook = SetWindowsHookExW(
      WH_CBT,
      [](int code, WPARAM window, LPARAM argument) -> LRESULT {
        if (code == HCBT_CREATEWND) made.push_back(ClassOf(reinterpret_cast<HWND>(window)));
        return CallNextHookEx(nullptr, code, window, argument);
      },
      nullptr, GetCurrentThreadId());
  ASSERT_NE(hook, nullptr);
  finished_ = true;
  counter_ = 3;
  RunProgressWindow(5, finished_, counter_);
  UnhookWindowsHookEx(hook);
  EXPECT_THAT(made, testing::Contains(L"UpdaterWindow"));
  EXPECT_THAT(FindProgressWindows(), IsEmpty());
  EXPECT_EQ(counter_, 3U);
}

TEST_F(ProgressThreadTest, ClosingTheWindowDoesNotEndTheThread) {
  Start(9);
  PostMessageW(window_, WM_CLOSE, 0, 0);
  ASSERT_TRUE(Eventually([this] { return !IsWindow(window_); }));
  // Steps go to handles that are gone, without effect.
  counter_ = 3;
  EXPECT_TRUE(Eventually([this] { return counter_ == 0; }));
  Finish();
}

TEST_F(ProgressThreadTest, AQuitMessageDoesNotEndTheWindow) {
  Start(9);
  PostThreadMessageW(GetWindowThreadProcessId(window_, nullptr), WM_QUIT, 0, 0);
  // Two rounds later at the earliest the message has been handled.
  for (int round = 0; round < 2; ++round) {
    counter_ = 1;
    ASSERT_TRUE(Eventually([this] { return counter_ == 0; }));
  }
  EXPECT_TRUE(IsWindow(window_));
  EXPECT_TRUE(Eventually([this] { return TextOf(FindLabel(window_)) == L"2 / 9"; }));
  Finish();
}

}  // namespace
}  // namespace ve
