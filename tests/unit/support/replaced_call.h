// Replaces a Windows call that the code under test makes, to record its arguments or to make it
// fail.
//
// The program reaches every function of a DLL through a pointer in its import table, and the linker
// names that pointer. A test declares it
//
//   extern "C" void* VE_IMPORTED(CreatePipe);
//
// and replaces what it points to while a ReplacedCall exists:
//
//   const ReplacedCall failing(
//       VE_IMPORTED(CreatePipe), +[](HANDLE*, HANDLE*, SECURITY_ATTRIBUTES*, DWORD) -> BOOL {
//         return FALSE;
//       });
//
// The compiler assumes that the pointer does not change: a function that makes the call itself
// before and after the replacement may use what it read first. Code under test in another file is
// safe.
#pragma once

#include "core/windows.h"

#include <utility>

/// The linker's name for the pointer; such names are otherwise reserved.
#define VE_IMPORTED(function) __imp_##function  // NOLINT(bugprone-reserved-identifier)

namespace ve::test {

class ReplacedCall {
 public:
  template <class Function>
  ReplacedCall(void*& slot, Function* replacement)
      : slot_(slot), original_(Exchange(reinterpret_cast<void*>(replacement))) {}
  ReplacedCall(const ReplacedCall&) = delete;
  ReplacedCall& operator=(const ReplacedCall&) = delete;
  ~ReplacedCall() { Exchange(original_); }

 private:
  void* Exchange(void* function) {
    DWORD protection = 0;
    VirtualProtect(&slot_, sizeof(slot_), PAGE_READWRITE, &protection);
    void* const before = *const_cast<void* volatile*>(&slot_);
    *const_cast<void* volatile*>(&slot_) = function;
    VirtualProtect(&slot_, sizeof(slot_), protection, &protection);
    return before;
  }

  void*& slot_;
  void* original_;
};

}  // namespace ve::test
