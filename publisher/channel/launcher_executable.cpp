#include "publisher/channel/launcher_executable.h"

#include "core/windows.h"

#include <cstddef>
#include <cstring>

#include "core/handle.h"
#include <nlohmann/json.hpp>

namespace ve::publish {

NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(LauncherRecord, executable, size, md5, version, isSigned)

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

}  // namespace

std::optional<ProgramVersion> ReadProgramVersion(const std::wstring& path) {
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
  return ProgramVersion{HIWORD(fixed.dwFileVersionMS),
                        (fixed.dwFileFlags & VS_FF_SPECIALBUILD) != 0};
}

bool IsSigned(std::string_view content) {
  IMAGE_DOS_HEADER start;
  if (content.size() < sizeof(start)) return false;
  std::memcpy(&start, content.data(), sizeof(start));
  const auto offset = static_cast<std::uint32_t>(start.e_lfanew);
  IMAGE_NT_HEADERS64 headers;
  if (offset > content.size() || content.size() - offset < sizeof(headers)) return false;
  std::memcpy(&headers, content.data() + offset, sizeof(headers));
  return headers.Signature == IMAGE_NT_SIGNATURE &&
         headers.OptionalHeader.Magic == IMAGE_NT_OPTIONAL_HDR64_MAGIC &&
         headers.OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_SECURITY].Size != 0;
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
