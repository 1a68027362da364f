// A scope guard that acts only while an exception is leaving its scope.
#pragma once

#include <exception>
#include <utility>

namespace ve {

/// Calls `action` in its destructor if more exceptions are in flight then than at its creation,
/// that is, while the stack unwinds through its scope. Made inside a handler, it acts when an
/// exception leaves that handler. A normal end of the scope does nothing. `action` must not throw.
template <class Action>
class [[nodiscard]] ScopeFail {
 public:
  explicit ScopeFail(Action action) : action_(std::move(action)) {}
  ScopeFail(const ScopeFail&) = delete;
  ScopeFail& operator=(const ScopeFail&) = delete;
  ~ScopeFail() {
    if (std::uncaught_exceptions() > exceptionsAtCreation_) action_();
  }

 private:
  Action action_;
  int exceptionsAtCreation_ = std::uncaught_exceptions();
};

}  // namespace ve
