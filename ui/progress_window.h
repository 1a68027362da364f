// The progress window and the thread that it lives on.
//
// The window counts files. Only the progress thread touches it; the main thread increments an
// atomic counter and, at the end, sets an atomic flag.
#pragma once

#include "core/windows.h"

#include <atomic>
#include <cstdint>
#include <ranges>

#include "core/handle.h"

namespace ve {

/// The window with its bar and its label. Construct, step and destroy it on one thread. Without a
/// desktop, or once the window is closed, its calls have no effect.
class ProgressWindow {
 public:
  explicit ProgressWindow(std::uint32_t total);
  ProgressWindow(const ProgressWindow&) = delete;
  ProgressWindow& operator=(const ProgressWindow&) = delete;
  ~ProgressWindow();

  /// Counts one more file as done.
  void Step();

 private:
  [[nodiscard]] UniqueWindow MakeBar() const;
  [[nodiscard]] UniqueWindow MakeLabel() const;

  UniqueWindow window_;
  UniqueWindow bar_;
  UniqueWindow label_;
  std::uint32_t shown_ = 0;
  std::uint32_t total_;
};

/// Handles all queued messages of the calling thread. Returns whether WM_QUIT was among them.
bool PumpMessages();

/// Shows the window until `finished`. Every 10 milliseconds, takes the count out of `counter` and
/// steps the window as often. Files counted after the last round are not shown.
void RunProgressWindow(std::uint32_t total, const std::atomic<bool>& finished,
                       std::atomic<std::uint32_t>& counter);

/// The progress thread's procedure: reads the number of `entries`, once, and runs the window.
template <std::ranges::sized_range Entries>
unsigned ProgressThread(const Entries& entries, const std::atomic<bool>& finished,
                        std::atomic<std::uint32_t>& counter) {
  RunProgressWindow(static_cast<std::uint32_t>(std::ranges::size(entries)), finished, counter);
  return 0;
}

}  // namespace ve
