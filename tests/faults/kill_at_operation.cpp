// Counts the operations by which the Launcher changes the disk, asks the server or starts a
// program, and ends the process at one of them, as a power cut would: nothing is unwound, closed or
// flushed.
//
//   LAUNCHER_FAULT_AT      the number of the operation to end at, from 1; none: never
//   LAUNCHER_FAULT_HALF    set: half of what is to be written or copied is on disk by then;
//                          not set: the operation has not begun
//   LAUNCHER_FAULT_RECORD  a file to which a line is added for each operation, before it begins;
//                          lines that begin with "note" are no operations:
//                            note box STYLE OWNER CAPTION   a message box is about to be shown
//                            note exit COM                  exit handlers run; COM is how often COM
//                                                           is initialised at that time
//
// The Launcher itself is not changed: before it begins, the pointers through which it calls these
// functions are made to point here. What it starts does not inherit the variables.

#include "core/windows.h"

#include <objbase.h>
#include <wininet.h>

#include <array>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <cwchar>
#include <io.h>
#include <string>
#include <string_view>

#include "core/unicode.h"
#include "support/replaced_call.h"

extern "C" {
extern void* VE_IMPORTED(CoInitialize);
extern void* VE_IMPORTED(CoUninitialize);
extern void* VE_IMPORTED(CopyFileW);
extern void* VE_IMPORTED(CreateDirectoryW);
extern void* VE_IMPORTED(CreateFileW);
extern void* VE_IMPORTED(CreateProcessW);
extern void* VE_IMPORTED(DeleteFileW);
extern void* VE_IMPORTED(InternetOpenUrlW);
extern void* VE_IMPORTED(MessageBoxW);
extern void* VE_IMPORTED(MoveFileExW);
extern void* VE_IMPORTED(RemoveDirectoryW);
extern void* VE_IMPORTED(SetFileAttributesW);
extern void* VE_IMPORTED(_wfopen);
extern void* VE_IMPORTED(_write);
extern void* VE_IMPORTED(fclose);
extern void* VE_IMPORTED(fopen);
extern void* VE_IMPORTED(fwrite);
}

namespace {

constexpr UINT kKilled = 9;

struct Originals {
  decltype(&CoInitialize) initializeCom;
  decltype(&CoUninitialize) uninitializeCom;
  decltype(&CopyFileW) copyFile;
  decltype(&CreateDirectoryW) createDirectory;
  decltype(&CreateFileW) createFile;
  decltype(&CreateProcessW) createProcess;
  decltype(&DeleteFileW) deleteFile;
  decltype(&InternetOpenUrlW) openUrl;
  decltype(&MessageBoxW) messageBox;
  decltype(&MoveFileExW) moveFile;
  decltype(&RemoveDirectoryW) removeDirectory;
  decltype(&SetFileAttributesW) setFileAttributes;
  decltype(&_wfopen) openWide;
  decltype(&_write) write;
  decltype(&std::fclose) close;
  decltype(&std::fopen) open;
  decltype(&std::fwrite) writeStream;
};
Originals original;

/// The one stream that the Launcher writes at a time.
struct WrittenStream {
  std::FILE* stream;
  std::array<wchar_t, 260> name;
};
WrittenStream written;

long killAt;
bool killHalfWay;
HANDLE recordFile = INVALID_HANDLE_VALUE;
LONG operations;
int comInitializations;

[[noreturn]] void Kill() {
  TerminateProcess(GetCurrentProcess(), kKilled);
  for (;;) Sleep(INFINITE);
}

void Record(const std::string& line) {
  if (recordFile == INVALID_HANDLE_VALUE) return;
  DWORD size = 0;
  WriteFile(recordFile, (line + "\n").data(), static_cast<DWORD>(line.size() + 1), &size, nullptr);
}

/// True if this operation is to be ended at half way; ends the process if it is not to begin.
bool Reached(const char* operation, std::wstring_view subject) {
  const LONG number = InterlockedIncrement(&operations);
  Record(operation + (" " + ve::ToUtf8(subject)));
  if (number != killAt) return false;
  if (!killHalfWay) Kill();
  return true;
}

/// For operations that are done as a whole or not at all.
void ReachedWhole(const char* operation, std::wstring_view subject) {
  if (Reached(operation, subject)) Kill();
}

/// The first half of the source is all that there is of the target.
void CopyHalf(const wchar_t* source, const wchar_t* target) {
  const HANDLE from = original.createFile(source, GENERIC_READ, FILE_SHARE_READ, nullptr,
                                          OPEN_EXISTING, 0, nullptr);
  const HANDLE to =
      original.createFile(target, GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr);
  std::string content(GetFileSize(from, nullptr) / 2, '\0');
  DWORD size = 0;
  ReadFile(from, content.data(), static_cast<DWORD>(content.size()), &size, nullptr);
  WriteFile(to, content.data(), size, &size, nullptr);
}

std::FILE* Opened(std::FILE* stream, std::wstring_view name) {
  written.stream = stream;
  written.name.fill(L'\0');
  name.copy(written.name.data(), written.name.size() - 1);
  return stream;
}

// --- What is called in place of the system's functions ---

HRESULT WINAPI InitializeCom(void* reserved) {
  ++comInitializations;
  return original.initializeCom(reserved);
}

void WINAPI UninitializeCom() {
  --comInitializations;
  original.uninitializeCom();
}

int WINAPI ShowBox(HWND owner, const wchar_t* text, const wchar_t* caption, UINT style) {
  Record("note box " + std::to_string(style) + (owner == nullptr ? " none " : " some ") +
         ve::ToUtf8(caption));
  return original.messageBox(owner, text, caption, style);
}

BOOL WINAPI Copy(const wchar_t* source, const wchar_t* target, BOOL keep) {
  if (Reached("CopyFileW", target)) {
    CopyHalf(source, target);
    Kill();
  }
  return original.copyFile(source, target, keep);
}

BOOL WINAPI MakeDirectory(const wchar_t* path, SECURITY_ATTRIBUTES* security) {
  ReachedWhole("CreateDirectoryW", path);
  return original.createDirectory(path, security);
}

HANDLE WINAPI OpenFile(const wchar_t* path, DWORD access, DWORD share,
                       SECURITY_ATTRIBUTES* security, DWORD disposition, DWORD flags,
                       HANDLE pattern) {
  constexpr DWORD kWriting =
      GENERIC_WRITE | GENERIC_ALL | FILE_WRITE_DATA | FILE_APPEND_DATA | DELETE;
  if ((access & kWriting) != 0 || disposition != OPEN_EXISTING) ReachedWhole("CreateFileW", path);
  return original.createFile(path, access, share, security, disposition, flags, pattern);
}

BOOL WINAPI StartProcess(const wchar_t* application, wchar_t* line, SECURITY_ATTRIBUTES* process,
                         SECURITY_ATTRIBUTES* thread, BOOL inherit, DWORD flags, void* environment,
                         const wchar_t* directory, STARTUPINFOW* startup,
                         PROCESS_INFORMATION* started) {
  ReachedWhole("CreateProcessW", application);
  return original.createProcess(application, line, process, thread, inherit, flags, environment,
                                directory, startup, started);
}

BOOL WINAPI Delete(const wchar_t* path) {
  ReachedWhole("DeleteFileW", path);
  return original.deleteFile(path);
}

HINTERNET WINAPI OpenUrl(HINTERNET session, const wchar_t* url, const wchar_t* headers,
                         DWORD length, DWORD flags, DWORD_PTR context) {
  // The port is another one in every run.
  const wchar_t* const host = std::wcsstr(url, L"//");
  const wchar_t* const path = host != nullptr ? std::wcschr(host + 2, L'/') : nullptr;
  ReachedWhole("InternetOpenUrlW", path != nullptr ? path : url);
  return original.openUrl(session, url, headers, length, flags, context);
}

BOOL WINAPI Move(const wchar_t* from, const wchar_t* to, DWORD flags) {
  ReachedWhole("MoveFileExW", std::wstring(from) + L" " + to);
  return original.moveFile(from, to, flags);
}

BOOL WINAPI RemoveFolder(const wchar_t* path) {
  ReachedWhole("RemoveDirectoryW", path);
  return original.removeDirectory(path);
}

BOOL WINAPI SetAttributes(const wchar_t* path, DWORD attributes) {
  ReachedWhole("SetFileAttributesW", path);
  return original.setFileAttributes(path, attributes);
}

std::FILE* OpenWide(const wchar_t* path, const wchar_t* mode) {
  if (mode[0] == L'r' && std::wcschr(mode, L'+') == nullptr) return original.openWide(path, mode);
  ReachedWhole("_wfopen", path);
  return Opened(original.openWide(path, mode), path);
}

std::FILE* Open(const char* path, const char* mode) {
  if (mode[0] == 'r' && std::strchr(mode, '+') == nullptr) return original.open(path, mode);
  const std::wstring name(path, path + std::strlen(path));
  ReachedWhole("fopen", name);
  return Opened(original.open(path, mode), name);
}

std::size_t WriteStream(const void* data, std::size_t size, std::size_t count, std::FILE* stream) {
  if (stream == written.stream && Reached("fwrite", written.name.data())) {
    original.writeStream(data, 1, size * count / 2, stream);
    std::fflush(stream);
    Kill();
  }
  return original.writeStream(data, size, count, stream);
}

int Write(int file, const void* data, unsigned size) {
  if (Reached("_write", std::to_wstring(size))) {
    original.write(file, data, size / 2);
    Kill();
  }
  return original.write(file, data, size);
}

int Close(std::FILE* stream) {
  if (stream == written.stream) {
    ReachedWhole("fclose", written.name.data());
    written.stream = nullptr;
  }
  return original.close(stream);
}

// --- Before the Launcher begins ---

/// The variable's value, empty if there is none. It is not handed on.
std::wstring TakeVariable(const wchar_t* name) {
  std::array<wchar_t, 512> value{};
  GetEnvironmentVariableW(name, value.data(), static_cast<DWORD>(value.size()));
  SetEnvironmentVariableW(name, nullptr);
  return value.data();
}

template <class Function>
void Replace(void*& slot, Function*& before, Function* replacement) {
  DWORD protection = 0;
  VirtualProtect(&slot, sizeof(slot), PAGE_READWRITE, &protection);
  before = reinterpret_cast<Function*>(slot);
  slot = reinterpret_cast<void*>(replacement);
  VirtualProtect(&slot, sizeof(slot), protection, &protection);
}

const bool kArmed = [] {
  killAt = std::wcstol(TakeVariable(L"LAUNCHER_FAULT_AT").c_str(), nullptr, 10);
  killHalfWay = !TakeVariable(L"LAUNCHER_FAULT_HALF").empty();
  const std::wstring record = TakeVariable(L"LAUNCHER_FAULT_RECORD");
  if (!record.empty()) {
    recordFile = CreateFileW(record.c_str(), FILE_APPEND_DATA, FILE_SHARE_READ, nullptr,
                             OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
  }
  Replace(VE_IMPORTED(CoInitialize), original.initializeCom, &InitializeCom);
  Replace(VE_IMPORTED(CoUninitialize), original.uninitializeCom, &UninitializeCom);
  Replace(VE_IMPORTED(CopyFileW), original.copyFile, &Copy);
  Replace(VE_IMPORTED(CreateDirectoryW), original.createDirectory, &MakeDirectory);
  Replace(VE_IMPORTED(CreateFileW), original.createFile, &OpenFile);
  Replace(VE_IMPORTED(CreateProcessW), original.createProcess, &StartProcess);
  Replace(VE_IMPORTED(DeleteFileW), original.deleteFile, &Delete);
  Replace(VE_IMPORTED(InternetOpenUrlW), original.openUrl, &OpenUrl);
  Replace(VE_IMPORTED(MessageBoxW), original.messageBox, &ShowBox);
  Replace(VE_IMPORTED(MoveFileExW), original.moveFile, &Move);
  Replace(VE_IMPORTED(RemoveDirectoryW), original.removeDirectory, &RemoveFolder);
  Replace(VE_IMPORTED(SetFileAttributesW), original.setFileAttributes, &SetAttributes);
  Replace(VE_IMPORTED(_wfopen), original.openWide, &OpenWide);
  Replace(VE_IMPORTED(_write), original.write, &Write);
  Replace(VE_IMPORTED(fclose), original.close, &Close);
  Replace(VE_IMPORTED(fopen), original.open, &Open);
  Replace(VE_IMPORTED(fwrite), original.writeStream, &WriteStream);
  return true;
}();

/// Records that the process ends through exit(), which destroys what is static.
const struct ExitRecorder {
  ExitRecorder() = default;
  ExitRecorder(const ExitRecorder&) = delete;
  ExitRecorder& operator=(const ExitRecorder&) = delete;
  ~ExitRecorder() { Record("note exit " + std::to_string(comInitializations)); }
} kExitRecorder;

}  // namespace
