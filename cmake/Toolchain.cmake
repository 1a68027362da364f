# What every target of this build shares: the language, the view of the Windows headers, warnings as
# errors, and how the programs are linked.
set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}")

# Windows 7 is the oldest system supported. Tests of the library's own code and GoogleTest get the
# same definitions: the Windows headers must look alike in all translation units.
add_compile_definitions(
  UNICODE _UNICODE STRICT NOMINMAX WIN32_LEAN_AND_MEAN
  WINVER=0x0601 _WIN32_WINNT=0x0601)

# ve_warnings: the warnings, for our own code only.
add_library(ve_warnings INTERFACE)

if(MSVC)
  set(CMAKE_MSVC_RUNTIME_LIBRARY "MultiThreaded$<$<CONFIG:Debug>:Debug>")
  # The standard functions that Microsoft's library would rather see replaced by its own.
  target_compile_definitions(ve_warnings INTERFACE _CRT_SECURE_NO_WARNINGS)
  target_compile_options(ve_warnings INTERFACE /W4 /WX /permissive- /utf-8 /Zc:__cplusplus)
  add_compile_options(/guard:cf)
  # 0x800, LOAD_LIBRARY_SEARCH_SYSTEM32: DLLs that the programs import are loaded from there only.
  add_link_options(/guard:cf /CETCOMPAT /DEPENDENTLOADFLAG:0x800)
else()
  target_compile_options(
    ve_warnings
    INTERFACE -Werror
              -Wall
              -Wextra
              -Wpedantic
              -Wconversion
              -Wsign-conversion
              -Wshadow
              -Wold-style-cast
              -Wcast-qual
              -Wcast-align
              -Wnon-virtual-dtor
              -Woverloaded-virtual
              -Wduplicated-cond
              -Wduplicated-branches
              -Wlogical-op
              -Wformat=2
              -Wundef
              -Wextra-semi)
  add_compile_options(-fstack-protector-strong)
  # No DLL but Windows' own; subsystem version 6.0 gives the windows today's metrics. No time stamp: the
  # same sources give the same file.
  add_link_options(-static -fstack-protector-strong
                   -Wl,--major-subsystem-version=6,--minor-subsystem-version=0
                   -Wl,--major-os-version=6,--minor-os-version=0
                   -Wl,--tsaware,--no-insert-timestamp,--gc-sections)
  if(LAUNCHER_CHECKED)
    # mingw-w64 has no sanitizer runtime, so undefined behaviour traps in place. Alignment is left
    # out: an archive's wide strings stand at any byte address and are viewed there, which x86-64
    # allows.
    add_compile_definitions(_GLIBCXX_ASSERTIONS)
    add_compile_options(-fsanitize=undefined -fsanitize-undefined-trap-on-error
                        -fno-sanitize=alignment)
  endif()
endif()
