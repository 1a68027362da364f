// COM while downloads run.
#pragma once

namespace ve {

/// Holds COM initialised while at least one scope exists in the process. The count is neither
/// atomic nor per thread, although COM's initialisation is: downloads must not overlap.
class ComScope {
 public:
  ComScope();
  ComScope(const ComScope&) = delete;
  ComScope& operator=(const ComScope&) = delete;
  ~ComScope();
};

}  // namespace ve
