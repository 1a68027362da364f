// The Windows headers, included in one place. The build defines UNICODE, STRICT, NOMINMAX and
// WIN32_LEAN_AND_MEAN for every translation unit.
#pragma once

#include <windows.h>
