#include "ui/progress_window.h"

#include <commctrl.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <deque>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <initializer_list>
#include <iostream>
#include <memory>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include "core/format.h"
#include "core/unicode.h"
#include "support/replaced_call.h"

extern "C" {
extern void* VE_IMPORTED(AdjustWindowRect);
extern void* VE_IMPORTED(CreateWindowExW);
extern void* VE_IMPORTED(DestroyWindow);
extern void* VE_IMPORTED(DispatchMessageW);
extern void* VE_IMPORTED(GetClientRect);
extern void* VE_IMPORTED(GetSystemMetrics);
extern void* VE_IMPORTED(InitCommonControlsEx);
extern void* VE_IMPORTED(PeekMessageW);
extern void* VE_IMPORTED(RegisterClassW);
extern void* VE_IMPORTED(SendMessageW);
extern void* VE_IMPORTED(SetWindowTextW);
extern void* VE_IMPORTED(Sleep);
extern void* VE_IMPORTED(TranslateMessage);
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
  /// `before` is set first: the window's thread may call the new procedure at once.
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
    shared_->entries.resize(total);
    // The thread shares what it uses: a window that stays fails the test and is left behind.
    std::thread([shared = shared_] {
      shared->result = ProgressThread(shared->entries, shared->finished, shared->counter);
      shared->ended = true;
    }).detach();
    started_ = true;
    ASSERT_TRUE(Eventually([] { return FindProgressWindows().size() == 1; }));
    window_ = FindProgressWindows().front();
    ASSERT_TRUE(Eventually([this] { return FindLabel(window_) != nullptr; }));
  }
  void Finish() {
    finished_ = true;
    ASSERT_TRUE(Eventually([this] { return shared_->ended.load(); })) << "the window stays";
    started_ = false;
    EXPECT_EQ(shared_->result, 0U);
    EXPECT_THAT(FindProgressWindows(), IsEmpty());
  }
  ~ProgressThreadTest() override {
    finished_ = true;
    EXPECT_TRUE(!started_ || Eventually([this] { return shared_->ended.load(); }));
  }

 private:
  struct Shared {
    std::vector<int> entries;
    std::atomic<bool> finished = false;
    std::atomic<std::uint32_t> counter = 0;
    unsigned result = 1;
    std::atomic<bool> ended = false;
  };
  std::shared_ptr<Shared> shared_ = std::make_shared<Shared>();
  bool started_ = false;

 protected:
  std::atomic<bool>& finished_ = shared_->finished;
  std::atomic<std::uint32_t>& counter_ = shared_->counter;
  HWND window_ = nullptr;
};

TEST(ProgressWindow, TheWindowClassHasOnlyAProcedureAndAName) {
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

TEST(ProgressWindow, TheWindowClassStaysRegistered) {
  { const ProgressWindow window(1); }
  WNDCLASSW registered{};
  EXPECT_TRUE(GetClassInfoW(GetModuleHandleW(nullptr), L"UpdaterWindow", &registered));
  const ProgressWindow again(1);
  EXPECT_EQ(FindProgressWindows().size(), 1U);
}

TEST(ProgressWindow, TheWindowIsInTheMiddleOfTheScreen) {
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

TEST(ProgressWindow, TheLabelIsAtTheTopLeft) {
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

TEST(ProgressWindow, TheBarIsInTheMiddleOfTheClientArea) {
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

TEST(ProgressWindow, ItsControlsAreDestroyedWithIt) {
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

/// Records how the class is registered. Only before the process has made its first progress window.
class ClassRecorder {
 public:
  ClassRecorder() { recorded_.clear(); }
  [[nodiscard]] static const std::vector<std::string>& Recorded() { return recorded_; }

 private:
  static ATOM WINAPI Register(const WNDCLASSW* given) {
    WNDCLASSW rest = *given;
    const bool isPlain = rest.lpfnWndProc == &DefWindowProcW &&
                         rest.hInstance == GetModuleHandleW(nullptr) &&
                         std::wstring_view(rest.lpszClassName) == L"UpdaterWindow";
    rest.lpfnWndProc = nullptr;
    rest.hInstance = nullptr;
    rest.lpszClassName = nullptr;
    const bool isZero = std::ranges::all_of(std::as_bytes(std::span(&rest, 1)),
                                            [](std::byte byte) { return byte == std::byte{0}; });
    recorded_.emplace_back(isPlain && isZero ? "plain class" : "another class");
    return 0;
  }

  inline static std::vector<std::string> recorded_;
  test::ReplacedCall register_{VE_IMPORTED(RegisterClassW), &Register};
};

TEST(ProgressWindow, OnlyTheFirstOfAProcessRegistersTheClass) {
  // In a process of its own: another test may have made the first window.
  EXPECT_EXIT(
      {
        {
          const ClassRecorder recorder;
          for (int i = 0; i < 3; ++i) {
            const ProgressWindow window(1);
          }
        }
        for (const std::string& call : ClassRecorder::Recorded()) std::cerr << call << '\n';
        std::exit(0);
      },
      testing::ExitedWithCode(0), "^plain class\n$");
}

/// Records how the common controls are initialised. Only before the process has made its first
/// progress window.
class ControlsRecorder {
 public:
  ControlsRecorder() { recorded_.clear(); }
  [[nodiscard]] static const std::vector<std::string>& Recorded() { return recorded_; }

 private:
  static BOOL WINAPI InitControls(const INITCOMMONCONTROLSEX* controls) {
    recorded_.push_back(Format("controls {} {}", controls->dwSize, controls->dwICC));
    return FALSE;
  }

  inline static std::vector<std::string> recorded_;
  test::ReplacedCall controls_{VE_IMPORTED(InitCommonControlsEx), &InitControls};
};

TEST(ProgressWindow, OnlyTheFirstOfAProcessInitialisesTheBarsClassAndNoOther) {
  // In a process of its own: another test may have made the first window.
  EXPECT_EXIT(
      {
        {
          const ControlsRecorder recorder;
          for (int i = 0; i < 3; ++i) {
            const ProgressWindow window(1);
          }
        }
        for (const std::string& call : ControlsRecorder::Recorded()) std::cerr << call << '\n';
        std::exit(0);
      },
      testing::ExitedWithCode(0), "^controls 8 32\n$");
}

/// Replaces the calls about windows and messages and records them in their order, with their
/// arguments. The windows are the numbers 1 (the window), 2 (the bar) and 3 (the label), in the
/// order of their creation.
class FakeDesktop {
 public:
  explicit FakeDesktop(LONG clientHeight = 150) {
    clientHeight_ = clientHeight;
    calls_.clear();
    messages_.clear();
    windows_ = 0;
    pumps_ = 0;
    onSleep_ = nullptr;
    onText_ = nullptr;
  }
  FakeDesktop(const FakeDesktop&) = delete;
  FakeDesktop& operator=(const FakeDesktop&) = delete;

  [[nodiscard]] static const std::vector<std::string>& Calls() { return calls_; }
  /// Forgets the calls made until now.
  static void Clear() { calls_.clear(); }

  /// Puts a message into the queue.
  static void Post(UINT message) { messages_.push_back(message); }
  static void OnSleep(std::function<void()> call) { onSleep_ = std::move(call); }
  static void OnText(std::function<void()> call) { onText_ = std::move(call); }

 private:
  static std::string Text(const wchar_t* text) {
    return text == nullptr ? "null" : "'" + ToUtf8(text) + "'";
  }
  static std::string Number(HWND window) {
    return Format("{}", reinterpret_cast<std::uintptr_t>(window));
  }
  template <class Integer>
  static std::string Join(const char* name, std::initializer_list<Integer> numbers) {
    std::string text = name;
    for (const Integer number : numbers) text += Format(" {}", number);
    return text;
  }

  static int WINAPI Metrics(int index) {
    calls_.push_back(Format("metric {}", index));
    switch (index) {
      case 0:
        return 1001;
      case 1:
        return 801;
      case 20:
        return 17;
      default:
        return 5;
    }
  }
  static BOOL WINAPI Adjust(RECT* rectangle, DWORD style, BOOL menu) {
    calls_.push_back(Join<LONG>("adjust", {rectangle->left, rectangle->top, rectangle->right,
                                           rectangle->bottom, static_cast<LONG>(style), menu}));
    *rectangle = {rectangle->left - 3, rectangle->top - 5, rectangle->right + 7,
                  rectangle->bottom + 9};
    return TRUE;
  }
  static BOOL WINAPI Client(HWND window, RECT* rectangle) {
    calls_.push_back("client " + Number(window));
    *rectangle = {0, 0, 380, clientHeight_};
    return TRUE;
  }
  static HWND WINAPI Create(DWORD extendedStyle, const wchar_t* className, const wchar_t* text,
                            DWORD style, int x, int y, int width, int height, HWND parent,
                            HMENU menu, HINSTANCE, void* data) {
    calls_.push_back("create " + Text(className) + " " + Text(text) +
                     Join<DWORD>("", {extendedStyle, style}) +
                     Join<int>("", {x, y, width, height}) + ", parent " + Number(parent) +
                     (menu == nullptr && data == nullptr ? "" : ", menu or data"));
    return reinterpret_cast<HWND>(++windows_);
  }
  static LRESULT WINAPI Send(HWND window, UINT message, WPARAM wide, LPARAM argument) {
    calls_.push_back("send " + Number(window) + Format(" {} {} {}", message, wide, argument));
    return 0;
  }
  static BOOL WINAPI SetText(HWND window, const wchar_t* text) {
    calls_.push_back("text " + Number(window) + " " + Text(text));
    if (onText_) onText_();
    return TRUE;
  }
  static BOOL WINAPI Destroy(HWND window) {
    calls_.push_back("destroy " + Number(window));
    return TRUE;
  }
  static BOOL WINAPI Peek(MSG* message, HWND window, UINT first, UINT last, UINT remove) {
    calls_.push_back("peek " + Number(window) + Join<UINT>("", {first, last, remove}));
    // A loop that does not end is a failure rather than a hang.
    if (++pumps_ > 1000) throw std::runtime_error("the messages are pumped again and again");
    if (messages_.empty()) return FALSE;
    *message = {};
    message->message = messages_.front();
    messages_.pop_front();
    return TRUE;
  }
  static BOOL WINAPI Translate(const MSG* message) {
    calls_.push_back(Format("translate {}", message->message));
    return FALSE;
  }
  static LRESULT WINAPI Dispatch(const MSG* message) {
    calls_.push_back(Format("dispatch {}", message->message));
    return 0;
  }
  static void WINAPI Wait(DWORD milliseconds) {
    calls_.push_back(Format("sleep {}", milliseconds));
    if (onSleep_) onSleep_();
  }

  inline static std::vector<std::string> calls_;
  inline static std::deque<UINT> messages_;
  inline static LONG clientHeight_ = 0;
  inline static std::uintptr_t windows_ = 0;
  inline static int pumps_ = 0;
  inline static std::function<void()> onSleep_;
  inline static std::function<void()> onText_;
  test::ReplacedCall metrics_{VE_IMPORTED(GetSystemMetrics), &Metrics};
  test::ReplacedCall adjust_{VE_IMPORTED(AdjustWindowRect), &Adjust};
  test::ReplacedCall client_{VE_IMPORTED(GetClientRect), &Client};
  test::ReplacedCall create_{VE_IMPORTED(CreateWindowExW), &Create};
  test::ReplacedCall send_{VE_IMPORTED(SendMessageW), &Send};
  test::ReplacedCall setText_{VE_IMPORTED(SetWindowTextW), &SetText};
  test::ReplacedCall destroy_{VE_IMPORTED(DestroyWindow), &Destroy};
  test::ReplacedCall peek_{VE_IMPORTED(PeekMessageW), &Peek};
  test::ReplacedCall translate_{VE_IMPORTED(TranslateMessage), &Translate};
  test::ReplacedCall dispatch_{VE_IMPORTED(DispatchMessageW), &Dispatch};
  test::ReplacedCall wait_{VE_IMPORTED(Sleep), &Wait};
};

constexpr const char* kPeek = "peek 0 0 0 1";  // Of any window, every message, removed.
constexpr const char* kSleep = "sleep 10";
constexpr const char* kStepBar = "send 2 1029 0 0";  // PBM_STEPIT

TEST(ProgressWindowCalls, TheWindowsAreCreatedOneInTheOther) {
  std::vector<std::string> calls;
  {
    const FakeDesktop desktop;
    const ProgressWindow window(70000);
    // The order of the queries is free; the arguments and what follows from them are not.
    for (const std::string& call : FakeDesktop::Calls()) {
      if (!call.starts_with("metric")) calls.push_back(call);
    }
    EXPECT_THAT(FakeDesktop::Calls(), testing::IsSupersetOf({"metric 0", "metric 1", "metric 20"}));
    EXPECT_EQ(FakeDesktop::Calls().size(), calls.size() + 3);
  }
  EXPECT_THAT(calls,
              ElementsAre("adjust 0 0 386 160 0 0",
                          "create 'UpdaterWindow' 'Downloading...' 0 268435464 304 316 393 169, "
                          "parent 0",
                          "client 1", "adjust 0 0 364 17 0 0",
                          "create 'msctls_progress32' null 0 1342177280 4 62 371 26, parent 1",
                          "send 2 1025 0 292552704",  // PBM_SETRANGE, 0 to 4464.
                          "send 2 1028 1 0",          // PBM_SETSTEP
                          "create 'STATIC' '0 / 70000' 0 1342177280 16 16 300 32, parent 1"));
}

TEST(ProgressWindowCalls, ABarHigherThanTheWindowIsCentredWithHalvesCutTowardZero) {
  const FakeDesktop desktop(/*clientHeight=*/21);
  const ProgressWindow window(1);
  EXPECT_THAT(
      FakeDesktop::Calls(),
      testing::Contains("create 'msctls_progress32' null 0 1342177280 4 -2 371 26, parent 1"));
}

TEST(ProgressWindowCalls, AStepSetsTheTextThenStepsTheBar) {
  const FakeDesktop desktop;
  ProgressWindow window(3);
  FakeDesktop::Clear();
  window.Step();
  window.Step();
  EXPECT_THAT(FakeDesktop::Calls(),
              ElementsAre("text 3 '1 / 3'", kStepBar, "text 3 '2 / 3'", kStepBar));
}

TEST(ProgressWindowCalls, TheLabelCountsBeyond16Bits) {
  const FakeDesktop desktop;
  ProgressWindow window(70000);
  for (int file = 0; file < 70000; ++file) {
    FakeDesktop::Clear();
    window.Step();
  }
  EXPECT_THAT(FakeDesktop::Calls(), ElementsAre("text 3 '70000 / 70000'", kStepBar));
}

TEST(ProgressWindowCalls, TheWindowIsDestroyedBeforeItsLabelAndTheLabelBeforeTheBar) {
  const FakeDesktop desktop;
  {
    const ProgressWindow window(3);
    FakeDesktop::Clear();
  }
  EXPECT_THAT(FakeDesktop::Calls(), ElementsAre("destroy 1", "destroy 3", "destroy 2"));
}

TEST(RunProgressWindow, ARoundPumpsMessagesSleepsTakesTheCountAndSteps) {
  const FakeDesktop desktop;
  std::atomic<bool> finished = false;
  std::atomic<std::uint32_t> counter = 0;
  std::vector<std::uint32_t> countersInSteps;
  int rounds = 0;
  FakeDesktop::OnSleep([&] {
    if (++rounds == 1) FakeDesktop::Clear();
    // Counted during the sleep, so shown in the same round.
    if (rounds == 2) counter = 2;
    if (rounds == 4) finished = true;
  });
  FakeDesktop::OnText([&] { countersInSteps.push_back(counter.exchange(1)); });
  FakeDesktop::Post(WM_APP);
  RunProgressWindow(9, finished, counter);
  // The third round shows what was counted during the steps of the second, the fourth what was
  // counted in the third.
  EXPECT_THAT(FakeDesktop::Calls(),
              ElementsAre(kPeek, kSleep, "text 3 '1 / 9'", kStepBar, "text 3 '2 / 9'", kStepBar,  //
                          kPeek, kSleep, "text 3 '3 / 9'", kStepBar,                              //
                          kPeek, kSleep, "text 3 '4 / 9'", kStepBar,                              //
                          "destroy 1", "destroy 3", "destroy 2"));
  // The count was set to 0 before the first step of its round.
  EXPECT_THAT(countersInSteps, ElementsAre(0U, 1U, 0U, 0U));
}

TEST(RunProgressWindow, EveryRoundPumpsAllMessagesBeforeItsSleep) {
  const FakeDesktop desktop;
  std::atomic<bool> finished = false;
  std::atomic<std::uint32_t> counter = 0;
  int rounds = 0;
  FakeDesktop::OnSleep([&] {
    finished = ++rounds == 2;
    FakeDesktop::Post(WM_QUIT);
  });
  FakeDesktop::Post(WM_PAINT);
  FakeDesktop::Post(WM_TIMER);
  RunProgressWindow(1, finished, counter);
  std::vector<std::string> calls = FakeDesktop::Calls();
  calls.erase(calls.begin(), std::find(calls.begin(), calls.end(), kPeek));
  EXPECT_THAT(calls, ElementsAre(kPeek, "translate 15", "dispatch 15", kPeek, "translate 275",
                                 "dispatch 275", kPeek, kSleep,  //
                                 kPeek, "translate 18", "dispatch 18", kPeek, kSleep, "destroy 1",
                                 "destroy 3", "destroy 2"));
}

TEST(RunProgressWindow, ManyFilesOfOneRoundAreAllShown) {
  const FakeDesktop desktop;
  std::atomic<bool> finished = false;
  std::atomic<std::uint32_t> counter = 70000;
  FakeDesktop::OnSleep([&] { FakeDesktop::Clear(); });
  std::uint32_t shown = 0;
  FakeDesktop::OnText([&] { finished = ++shown == 70000; });
  RunProgressWindow(70000, finished, counter);
  EXPECT_EQ(FakeDesktop::Calls().size(), 2 * 70000U + 3);
  EXPECT_EQ(FakeDesktop::Calls()[2 * 69999], "text 3 '70000 / 70000'");
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

TEST(PumpMessages, AQuitIsTranslatedAndDispatchedLikeEveryMessage) {
  const FakeDesktop desktop;
  FakeDesktop::Post(WM_QUIT);
  FakeDesktop::Post(WM_KEYDOWN);
  EXPECT_TRUE(PumpMessages());
  EXPECT_THAT(FakeDesktop::Calls(), ElementsAre(kPeek, "translate 18", "dispatch 18", kPeek,
                                                "translate 256", "dispatch 256", kPeek));
}

TEST(PumpMessages, ReturnsWhetherAQuitWasAmongThem) {
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
  counter_ = 0x80000002U;
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
