// Records how the code under test asks for the text of an error.
#pragma once

#include "core/windows.h"

#include <string_view>
#include <vector>

#include "support/replaced_call.h"

extern "C" {
extern void* VE_IMPORTED(FormatMessageW);
extern void* VE_IMPORTED(LocalFree);
}

namespace ve::test {

/// Replaces FormatMessageW and LocalFree while it exists. The text of every error is kText, in a
/// buffer that the recorder owns.
class FormatMessageRecorder {
 public:
  static constexpr std::wstring_view kText = L"a text\r\n";

  struct Arguments {
    DWORD flags;
    const void* source;
    DWORD code;
    DWORD language;
    bool isSizeZero;
    bool hasInserts;

    bool operator==(const Arguments&) const = default;
  };

  /// Without a text the calls fail.
  explicit FormatMessageRecorder(bool hasText = true) {
    hasText_ = hasText;
    recorded_.clear();
    freed_.clear();
  }

  [[nodiscard]] const std::vector<Arguments>& Recorded() const { return recorded_; }
  /// How often the buffer was freed; -1 if anything else was.
  [[nodiscard]] int TimesFreed() const {
    for (const void* memory : freed_) {
      if (memory != kText.data()) return -1;
    }
    return static_cast<int>(freed_.size());
  }

 private:
  static DWORD WINAPI Format(DWORD flags, const void* source, DWORD code, DWORD language,
                             wchar_t* buffer, DWORD size, va_list* inserts) {
    recorded_.push_back({flags, source, code, language, size == 0, inserts != nullptr});
    if (!hasText_ || (flags & FORMAT_MESSAGE_ALLOCATE_BUFFER) == 0) return 0;
    *reinterpret_cast<const wchar_t**>(buffer) = kText.data();
    return static_cast<DWORD>(kText.size());
  }
  static HLOCAL WINAPI Free(HLOCAL memory) {
    if (memory != nullptr) freed_.push_back(memory);
    return nullptr;
  }

  inline static bool hasText_ = true;
  inline static std::vector<Arguments> recorded_;
  inline static std::vector<const void*> freed_;
  ReplacedCall format_{VE_IMPORTED(FormatMessageW), &Format};
  ReplacedCall free_{VE_IMPORTED(LocalFree), &Free};
};

}  // namespace ve::test
