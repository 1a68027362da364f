#include "publisher/channel/launcher_executable.h"

#include "core/windows.h"

#include <cstddef>
#include <cstring>

#include "core/handle.h"
#include <nlohmann/json.hpp>

namespace ve::publish {

NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(LauncherRecord, executable, size, md5, version,
                                   keepsNonEmptyDirectories, isSigned)

namespace {

struct ModulePolicy {
  using Value = HMODULE;
  static Value Empty() noexcept { return nullptr; }
  static bool Close(Value module) noexcept { return FreeLibrary(module) != FALSE; }
};
using UniqueModule = Unique<ModulePolicy>;

// Where VS_VERSIONINFO holds its VS_FIXEDFILEINFO: after three 16-bit numbers and the text
// "VS_VERSION_INFO", at the next multiple of four.
// https://learn.microsoft.com/windows/win32/menurc/vs-versioninfo
constexpr std::size_t kFixedFileInfoOffset = 40;

std::optional<VS_FIXEDFILEINFO> ReadFixedFileInfo(const std::wstring& path) {
  // As a data file: nothing of it runs, and no DLL that it imports is loaded.
  const UniqueModule module(LoadLibraryExW(
      path.c_str(), nullptr, LOAD_LIBRARY_AS_DATAFILE | LOAD_LIBRARY_AS_IMAGE_RESOURCE));
  if (!module) return {};
  const HRSRC resource = FindResourceW(module.Get(), MAKEINTRESOURCEW(VS_VERSION_INFO), RT_VERSION);
  VS_FIXEDFILEINFO fixed;
  if (resource == nullptr ||
      SizeofResource(module.Get(), resource) < kFixedFileInfoOffset + sizeof(fixed)) {
    return {};
  }
  const void* const data = LockResource(LoadResource(module.Get(), resource));
  if (data == nullptr) return {};
  std::memcpy(&fixed, static_cast<const std::byte*>(data) + kFixedFileInfoOffset, sizeof(fixed));
  if (fixed.dwSignature != VS_FFI_SIGNATURE) return {};
  return fixed;
}

/// The content from the signature "PE" on; empty if it is not an executable.
std::string_view PortableExecutable(std::string_view content) {
  if (!content.starts_with("MZ") || content.size() < sizeof(IMAGE_DOS_HEADER)) return {};
  IMAGE_DOS_HEADER header;
  std::memcpy(&header, content.data(), sizeof(header));
  if (header.e_lfanew < 0 || static_cast<std::size_t>(header.e_lfanew) >= content.size()) return {};
  content.remove_prefix(static_cast<std::size_t>(header.e_lfanew));
  return content.starts_with(std::string_view("PE\0\0", 4)) ? content : std::string_view();
}

}  // namespace

bool IsExecutable(std::string_view content) { return !PortableExecutable(content).empty(); }

bool IsSigned(std::string_view content) {
  content = PortableExecutable(content);
  IMAGE_NT_HEADERS64 headers;
  if (content.size() < sizeof(headers)) return false;
  std::memcpy(&headers, content.data(), sizeof(headers));
  return headers.OptionalHeader.Magic == IMAGE_NT_OPTIONAL_HDR64_MAGIC &&
         headers.OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_SECURITY].Size != 0;
}

std::optional<std::uint32_t> ExecutableVersion(const std::wstring& path) {
  const auto fixed = ReadFixedFileInfo(path);
  return fixed ? std::optional<std::uint32_t>(HIWORD(fixed->dwFileVersionMS)) : std::nullopt;
}

bool KeepsNonEmptyDirectories(const std::wstring& path) {
  const auto fixed = ReadFixedFileInfo(path);
  return fixed && (fixed->dwFileFlags & VS_FF_SPECIALBUILD) != 0;
}

std::string LauncherRecordText(const LauncherRecord& record) {
  return nlohmann::json(record).dump(2) + "\n";
}

std::optional<LauncherRecord> ParseLauncherRecord(std::string_view text) {
  try {
    return nlohmann::json::parse(text).get<LauncherRecord>();
  } catch (const nlohmann::json::exception&) {
    return {};
  }
}

}  // namespace ve::publish
