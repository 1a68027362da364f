// Owners of Windows handles and runtime streams: one template, one alias per kind of handle.
//
// An owner closes its handle when its scope ends. Closing that way never disturbs the calling
// thread's last error, so a failing call's code is still there after the owners have gone.
#pragma once

#include "core/windows.h"

#include <cstdio>
#include <utility>

namespace ve {

/// Owns one handle. `Policy` names its type (`Value`), its empty value (`Empty()`) and how it is
/// closed (`Close(value)`, true on success). Movable, not copyable.
template <class Policy>
class Unique {
 public:
  using Value = typename Policy::Value;

  Unique() noexcept = default;
  explicit Unique(Value value) noexcept : value_(value) {}
  Unique(Unique&& other) noexcept : value_(other.Release()) {}
  Unique& operator=(Unique&& other) noexcept {
    Reset(other.Release());
    return *this;
  }
  Unique(const Unique&) = delete;
  Unique& operator=(const Unique&) = delete;
  ~Unique() { Reset(); }

  [[nodiscard]] Value Get() const noexcept { return value_; }
  [[nodiscard]] explicit operator bool() const noexcept { return value_ != Policy::Empty(); }

  /// For calls that hand a handle out through a pointer. Only on an empty owner.
  [[nodiscard]] Value* Receive() noexcept { return &value_; }

  /// Gives the handle up without closing it.
  [[nodiscard]] Value Release() noexcept { return std::exchange(value_, Policy::Empty()); }

  /// Closes what is owned, keeps the last error, and owns `value` from here on.
  void Reset(Value value = Policy::Empty()) noexcept {
    const Value old = std::exchange(value_, value);
    if (old == Policy::Empty()) return;
    const DWORD lastError = GetLastError();
    static_cast<void>(Policy::Close(old));
    SetLastError(lastError);
  }

  /// Closes what is owned and says whether that worked; on false the last error is the call's own.
  [[nodiscard]] bool Close() noexcept { return Policy::Close(Release()); }

 private:
  Value value_ = Policy::Empty();
};

namespace detail {

struct KernelHandlePolicy {
  using Value = HANDLE;
  static Value Empty() noexcept { return nullptr; }
  static bool Close(Value handle) noexcept { return CloseHandle(handle) != FALSE; }
};

// CreateFileW and FindFirstFileW fail with INVALID_HANDLE_VALUE, not with null.
struct FileHandlePolicy {
  using Value = HANDLE;
  static Value Empty() noexcept { return INVALID_HANDLE_VALUE; }
  static bool Close(Value handle) noexcept { return CloseHandle(handle) != FALSE; }
};

struct FindHandlePolicy {
  using Value = HANDLE;
  static Value Empty() noexcept { return INVALID_HANDLE_VALUE; }
  static bool Close(Value handle) noexcept { return FindClose(handle) != FALSE; }
};

struct MappedViewPolicy {
  using Value = const void*;
  static Value Empty() noexcept { return nullptr; }
  static bool Close(Value view) noexcept { return UnmapViewOfFile(view) != FALSE; }
};

struct LocalMemoryPolicy {
  using Value = HLOCAL;
  static Value Empty() noexcept { return nullptr; }
  static bool Close(Value memory) noexcept { return LocalFree(memory) == nullptr; }
};

struct WindowPolicy {
  using Value = HWND;
  static Value Empty() noexcept { return nullptr; }
  static bool Close(Value window) noexcept { return DestroyWindow(window) != FALSE; }
};

struct StreamPolicy {
  using Value = std::FILE*;
  static Value Empty() noexcept { return nullptr; }
  static bool Close(Value stream) noexcept { return std::fclose(stream) == 0; }
};

}  // namespace detail

using UniqueHandle = Unique<detail::KernelHandlePolicy>;      ///< Process, thread, pipe, mapping.
using UniqueFileHandle = Unique<detail::FileHandlePolicy>;    ///< CreateFileW.
using UniqueFindHandle = Unique<detail::FindHandlePolicy>;    ///< FindFirstFileExW.
using UniqueMappedView = Unique<detail::MappedViewPolicy>;    ///< MapViewOfFile.
using UniqueLocalMemory = Unique<detail::LocalMemoryPolicy>;  ///< What the system allocates for us.
using UniqueWindow = Unique<detail::WindowPolicy>;            ///< Only on the window's own thread.
using UniqueStream = Unique<detail::StreamPolicy>;            ///< A stream of the C runtime.

}  // namespace ve
