#include "publisher/files/windows_errors.h"

#include "core/windows.h"

#include <filesystem>
#include <string>
#include <system_error>

#include "core/format.h"
#include "publisher/files/paths.h"

namespace ve::publish {
namespace {

const char* HintFor(std::uint32_t code) {
  switch (code) {
    case ERROR_ACCESS_DENIED:
    case ERROR_WRITE_PROTECT:
      return "This account lacks the permission, or the path is a folder, or the file is read-only "
             "or hidden. Use another account, or change the permissions.";
    case ERROR_SHARING_VIOLATION:
    case ERROR_LOCK_VIOLATION:
    case ERROR_DELETE_PENDING:
      return "Another program has it open. Close that program, then run the command again.";
    case ERROR_DISK_FULL:
    case ERROR_HANDLE_DISK_FULL:
      return "Free space on that disk, then run the command again.";
    case ERROR_DIR_NOT_EMPTY:
      return "Close the program that has a file in it open, or delete the folder by hand.";
    case ERROR_FILE_EXISTS:
    case ERROR_ALREADY_EXISTS:
      return "Something else has this name. Remove it, or pass another path.";
    case ERROR_FILE_NOT_FOUND:
    case ERROR_PATH_NOT_FOUND:
    case ERROR_INVALID_NAME:
    case ERROR_DIRECTORY:
      return "Check the spelling of the path, and that nothing removes it meanwhile.";
    case ERROR_BAD_NETPATH:
    case ERROR_BAD_NET_NAME:
      return "Check the connection to the file server.";
    default:
      return "";
  }
}

}  // namespace

Diagnostic DescribeWindowsError(std::string_view operation, std::wstring_view path,
                                std::uint32_t code) {
  const std::string reason = std::system_category().message(static_cast<int>(code));
  return {DisplayPath(path), Format("cannot be {}: {}", operation, reason), HintFor(code)};
}

void ThrowWindowsError(std::string_view operation, std::wstring_view path, std::uint32_t code) {
  throw PublishError(DescribeWindowsError(operation, path, code));
}

Diagnostic DescribeException(const std::exception& error) {
  if (const auto* own = dynamic_cast<const PublishError*>(&error)) return own->GetDiagnostic();
  if (const auto* file = dynamic_cast<const std::filesystem::filesystem_error*>(&error)) {
    return DescribeWindowsError("accessed", file->path1().wstring(),
                                static_cast<std::uint32_t>(file->code().value()));
  }
  return {"publish", error.what(), ""};
}

}  // namespace ve::publish
