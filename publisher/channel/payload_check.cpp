#include "publisher/channel/payload_check.h"

#include "core/windows.h"

#include <algorithm>
#include <atomic>
#include <exception>
#include <future>
#include <map>
#include <mutex>
#include <optional>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include "core/format.h"
#include "core/md5.h"
#include "core/unicode.h"
#include "publisher/build/digests.h"
#include "publisher/files/paths.h"
#include "updater/download_messages.h"

namespace ve::publish {
namespace {

constexpr const char* kBadFile =
    "Players would install it as it is, and fetch it again with every update. Publish again.";

/// What a file is in fact.
struct FileFacts {
  std::uint64_t size;
  std::string digest;  ///< Empty where the size tells enough.
};

/// The wrong facts in words; empty if they are right. That a digest is not in lowercase is no
/// matter of the file.
std::string Difference(const sdk::FileEntry& entry, const FileFacts& facts) {
  if (facts.size != entry.size) {
    return Format("has {} bytes instead of the {} listed", facts.size, entry.size);
  }
  std::string listed(entry.digest);
  std::transform(listed.begin(), listed.end(), listed.begin(),
                 [](char c) { return c >= 'A' && c <= 'F' ? static_cast<char>(c + 32) : c; });
  if (facts.digest == listed) return {};
  return Format("has the digest {} instead of the listed {}", facts.digest, entry.digest);
}

/// Compares the files one by one; several threads may do so in a folder.
class PayloadCheck {
 public:
  PayloadCheck(const PublishedTree& tree, const sdk::GameUpdateManifest& manifest)
      : tree_(tree), manifest_(manifest) {
    for (const sdk::FileEntry& entry : manifest.files) bytes_ += entry.size;
  }

  /// Takes file after file until none is left. `console` is for the one thread that may use it.
  void Work(Console* console) {
    for (;;) {
      const std::size_t index = next_++;
      if (index >= manifest_.files.size()) return;
      const sdk::FileEntry& entry = manifest_.files[index];
      if (auto diagnostic = Check(entry)) {
        const std::lock_guard lock(mutex_);
        diagnostics_.emplace(index, std::move(*diagnostic));
      }
      bytesDone_ += entry.size;
      ++filesDone_;
      if (console != nullptr) {
        console->ShowProgress({"Checking", filesDone_, manifest_.files.size(), bytesDone_, bytes_});
      }
    }
  }

  /// In the order of the manifest.
  void Tell(Diagnostics& diagnostics) {
    for (auto& [index, diagnostic] : diagnostics_)
      diagnostics.errors.push_back(std::move(diagnostic));
  }

 private:
  [[nodiscard]] std::optional<Diagnostic> Check(const sdk::FileEntry& entry) const {
    return tree_.IsServed() ? CheckServed(entry) : CheckInFolder(entry);
  }

  [[nodiscard]] std::optional<Diagnostic> CheckServed(const sdk::FileEntry& entry) const {
    const std::string place = tree_.LocationOf(entry.name);
    Diagnostics length;
    DownloadResult download = tree_.Fetch(entry.name, length);
    if (!download.Succeeded()) {
      return Diagnostic{place, Format(sdk::kFileDownloadFailed, place, ToUtf8(download.Error())),
                        "Every update that needs the file ends abnormally, without a log entry."};
    }
    FileFacts facts{download.Body().size(), {}};
    if (facts.size == entry.size) facts.digest = Md5Hex(download.Body());
    if (auto diagnostic = Judge(entry, facts)) return diagnostic;
    // The listed size tells more than the announced one.
    return length.HasErrors() ? std::optional(length.errors.front()) : std::nullopt;
  }

  [[nodiscard]] std::optional<Diagnostic> CheckInFolder(const sdk::FileEntry& entry) const {
    const std::wstring path = JoinPath(tree_.Folder(), entry.name);
    WIN32_FILE_ATTRIBUTE_DATA data{};
    if (GetFileAttributesExW(path.c_str(), GetFileExInfoStandard, &data) == FALSE ||
        (data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0) {
      return Diagnostic{tree_.LocationOf(entry.name), "is listed, but there is no such file",
                        "Every update that needs the file ends abnormally. Publish again."};
    }
    FileFacts facts{(std::uint64_t{data.nFileSizeHigh} << 32) | data.nFileSizeLow, {}};
    try {
      std::atomic<std::uint64_t> bytesRead = 0;
      if (facts.size == entry.size) facts.digest = DigestOf(path, bytesRead).md5;
    } catch (const std::system_error& error) {
      return Diagnostic{tree_.LocationOf(entry.name), Format("cannot be read: {}", error.what()),
                        ""};
    }
    return Judge(entry, facts);
  }

  [[nodiscard]] std::optional<Diagnostic> Judge(const sdk::FileEntry& entry,
                                                const FileFacts& facts) const {
    std::string difference = Difference(entry, facts);
    if (difference.empty()) return {};
    return Diagnostic{tree_.LocationOf(entry.name), std::move(difference), kBadFile};
  }

  const PublishedTree& tree_;
  const sdk::GameUpdateManifest& manifest_;
  std::uint64_t bytes_ = 0;
  std::atomic<std::size_t> next_ = 0;
  std::atomic<std::uint64_t> filesDone_ = 0;
  std::atomic<std::uint64_t> bytesDone_ = 0;
  std::mutex mutex_;
  std::map<std::size_t, Diagnostic> diagnostics_;  // Guarded by the mutex; by the file's index.
};

}  // namespace

void CheckPayload(const PublishedTree& tree, const sdk::GameUpdateManifest& manifest,
                  Console& console, Diagnostics& diagnostics) {
  PayloadCheck check(tree, manifest);
  // Downloads must not overlap.
  const unsigned helpers =
      tree.IsServed() ? 0 : std::max(1U, std::thread::hardware_concurrency()) - 1;
  std::vector<std::future<void>> others;
  for (unsigned helper = 0; helper < helpers; ++helper) {
    others.push_back(std::async(std::launch::async, &PayloadCheck::Work, &check, nullptr));
  }
  check.Work(&console);
  for (std::future<void>& other : others) other.get();
  console.EndProgress();
  check.Tell(diagnostics);
}

}  // namespace ve::publish
