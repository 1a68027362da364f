#include "publisher/channel/swap_process.h"

#include "core/windows.h"

#include <array>
#include <cstddef>
#include <system_error>
#include <vector>

#include "core/format.h"
#include "core/handle.h"
#include "core/unicode.h"
#include "publisher/files/paths.h"
#include "publisher/report/console.h"

namespace ve::publish {
namespace {

// The first argument of the second process. No command has this name, and no help tells of it.
constexpr std::wstring_view kSwapArgument = L"swap-channel-folders";

// What the second process waits for before it touches anything.
constexpr std::string_view kGo = "go";

struct Pipe {
  UniqueHandle readEnd;
  UniqueHandle writeEnd;
};

[[noreturn]] void ThrowNotStarted(DWORD code) {
  const std::string reason = std::system_category().message(static_cast<int>(code));
  throw PublishError({"publish",
                      Format("the process that swaps the folders cannot be started: {}", reason),
                      "Publish again. What is served has not changed."});
}

void Require(BOOL succeeded) {
  if (succeeded == FALSE) ThrowNotStarted(GetLastError());
}

Pipe MakePipe() {
  Pipe pipe;
  Require(CreatePipe(pipe.readEnd.Receive(), pipe.writeEnd.Receive(), nullptr, 0));
  return pipe;
}

/// The list of what a process inherits: these handles, and no others.
class InheritedHandles {
 public:
  explicit InheritedHandles(std::array<HANDLE, 2> handles) : handles_(handles) {
    SIZE_T size = 0;
    InitializeProcThreadAttributeList(nullptr, 1, 0, &size);
    memory_.resize(size);
    Require(InitializeProcThreadAttributeList(Get(), 1, 0, &size));
    Require(UpdateProcThreadAttribute(Get(), 0, PROC_THREAD_ATTRIBUTE_HANDLE_LIST, handles_.data(),
                                      sizeof(handles_), nullptr, nullptr));
    for (const HANDLE handle : handles_) {
      Require(SetHandleInformation(handle, HANDLE_FLAG_INHERIT, HANDLE_FLAG_INHERIT));
    }
  }
  InheritedHandles(const InheritedHandles&) = delete;
  InheritedHandles& operator=(const InheritedHandles&) = delete;
  ~InheritedHandles() { DeleteProcThreadAttributeList(Get()); }

  [[nodiscard]] LPPROC_THREAD_ATTRIBUTE_LIST Get() {
    return reinterpret_cast<LPPROC_THREAD_ATTRIBUTE_LIST>(memory_.data());
  }

 private:
  std::array<HANDLE, 2> handles_;  // The list refers to them.
  std::vector<std::byte> memory_;
};

std::wstring OwnPath() {
  std::wstring path(MAX_PATH, L'\0');
  for (;;) {
    const DWORD length = GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size()));
    Require(length != 0 ? TRUE : FALSE);
    if (length < path.size()) return path.substr(0, length);
    path.resize(path.size() * 2);
  }
}

/// An argument as the C runtime takes it apart. Paths hold no quotes; a backslash at the end would
/// make one of the closing quote.
std::wstring Quoted(std::wstring_view path) {
  return Format(path.ends_with(L'\\') ? L"\"{}\\\"" : L"\"{}\"", path);
}

UniqueHandle StartSwapProcess(const std::wstring& server, std::wstring_view channel, HANDLE input,
                              HANDLE output) {
  const std::wstring program = OwnPath();
  std::wstring commandLine =
      Format(L"{} {} {} {}", Quoted(program), kSwapArgument, Quoted(server), channel);
  InheritedHandles inherited({input, output});
  STARTUPINFOEXW startup{};
  startup.StartupInfo.cb = sizeof(startup);
  startup.StartupInfo.dwFlags = STARTF_USESTDHANDLES;
  startup.StartupInfo.hStdInput = input;
  startup.StartupInfo.hStdOutput = output;
  startup.lpAttributeList = inherited.Get();
  PROCESS_INFORMATION started{};
  Require(CreateProcessW(program.c_str(), commandLine.data(), nullptr, nullptr, TRUE,
                         CREATE_NO_WINDOW | EXTENDED_STARTUPINFO_PRESENT, nullptr, nullptr,
                         &startup.StartupInfo, &started));
  const UniqueHandle thread(started.hThread);
  return UniqueHandle(started.hProcess);
}

std::string ReadToEnd(HANDLE pipe) {
  std::string text;
  std::array<char, 512> piece;
  DWORD size = 0;
  while (ReadFile(pipe, piece.data(), static_cast<DWORD>(piece.size()), &size, nullptr) != FALSE &&
         size > 0) {
    text.append(piece.data(), size);
  }
  return text;
}

/// That nobody may be there any more to read it is no failure.
void WriteText(HANDLE pipe, std::string_view text) {
  DWORD written = 0;
  WriteFile(pipe, text.data(), static_cast<DWORD>(text.size()), &written, nullptr);
}

/// What became of the swap, in the form in which it is handed over.
Json Swap(const std::wstring& server, std::wstring_view channel) {
  try {
    return {{"removed", SwapIn(FoldersOf(server, channel))}};
  } catch (const PublishError& error) {
    const Diagnostic& words = error.GetDiagnostic();
    return {{"subject", words.subject}, {"message", words.message}, {"hint", words.hint}};
  } catch (const std::exception& error) {
    return {{"subject", "publish"}, {"message", error.what()}, {"hint", ""}};
  }
}

bool ResultOf(const std::string& report) {
  const Json result = Json::parse(report, nullptr, false);
  if (result.is_discarded()) {
    throw PublishError({"publish", "the process that swaps the folders did not come to its end",
                        "See with publish verify what is served, and publish again."});
  }
  if (result.contains("removed")) return result["removed"].get<bool>();
  throw PublishError({result["subject"], result["message"], result["hint"]});
}

}  // namespace

bool SwapInApart(const std::wstring& server, std::wstring_view channel, const ChannelLock& lock) {
  Pipe order = MakePipe();
  Pipe report = MakePipe();
  const UniqueHandle process =
      StartSwapProcess(server, channel, order.readEnd.Get(), report.writeEnd.Get());
  order.readEnd.Reset();
  report.writeEnd.Reset();
  // The lock is not inherited: if this process ends while it starts the other one, that may stay
  // for ever before its first step, and would keep the channel locked.
  HANDLE ofTheOther = nullptr;
  if (DuplicateHandle(GetCurrentProcess(), lock.Get(), process.Get(), &ofTheOther, 0, FALSE,
                      DUPLICATE_SAME_ACCESS) != FALSE) {
    WriteText(order.writeEnd.Get(), kGo);
  }
  order.writeEnd.Reset();
  const std::string text = ReadToEnd(report.readEnd.Get());
  WaitForSingleObject(process.Get(), INFINITE);  // Until it has let go of the lock.
  return ResultOf(text);
}

std::optional<int> RunAsSwapProcess(int count, const wchar_t* const* arguments) {
  if (count != 4 || arguments[1] != kSwapArgument) return {};
  // Without its order the first process has ended, and nothing may be changed without the lock.
  if (ReadToEnd(GetStdHandle(STD_INPUT_HANDLE)) != kGo) return kFailed;
  const Json result = Swap(arguments[2], arguments[3]);
  WriteText(GetStdHandle(STD_OUTPUT_HANDLE),
            result.dump(-1, ' ', false, Json::error_handler_t::replace));
  return kDone;
}

}  // namespace ve::publish
