#include "publisher/channel/payload_check.h"

#include <atomic>
#include <map>
#include <mutex>
#include <string>
#include <utility>

#include "core/format.h"
#include "core/unicode.h"
#include "publisher/build/name_rules.h"
#include "publisher/build/parallel.h"
#include "updater/download_messages.h"

namespace ve::publish {
namespace {

void CheckFile(const PublishedTree& tree, const sdk::FileEntry& entry, Diagnostics& diagnostics) {
  constexpr const char* kBadFile =
      "Players would install it as it is, and fetch it again with every update. Publish again.";
  const std::string location = tree.LocationOf(entry.name);
  const FileContent content = tree.Read(entry.name, Keep::kDigest);
  if (!content.error.empty()) {
    diagnostics.AddError(
        location,
        tree.IsServed() ? Format(sdk::kFileDownloadFailed, location, ToUtf8(content.error))
                        : "is listed, but there is no such file",
        "Every update that needs the file ends abnormally, without a log entry. Publish again.");
  } else if (content.size != entry.size) {
    diagnostics.AddError(location,
                         Format("has {} bytes instead of the {} listed", content.size, entry.size),
                         kBadFile);
  } else if (FoldCase(ToWide(content.md5)) != FoldCase(ToWide(entry.digest))) {
    diagnostics.AddError(
        location, Format("has the digest {} instead of the listed {}", content.md5, entry.digest),
        kBadFile);
  } else {
    CheckContentLength(content, location, diagnostics);
  }
}

}  // namespace

void CheckPayload(const PublishedTree& tree, const sdk::GameUpdateManifest& manifest,
                  Console& console, Diagnostics& diagnostics) {
  std::uint64_t bytes = 0;
  for (const sdk::FileEntry& entry : manifest.files) bytes += entry.size;
  std::atomic<std::uint64_t> filesDone = 0;
  std::atomic<std::uint64_t> bytesDone = 0;
  std::mutex mutex;
  std::map<std::size_t, Diagnostic> found;  // By the file's index.
  const auto check = [&](std::size_t index) {
    const sdk::FileEntry& entry = manifest.files[index];
    Diagnostics ofFile;
    try {
      CheckFile(tree, entry, ofFile);
    } catch (const PublishError& error) {
      ofFile.errors.push_back(error.GetDiagnostic());
    }
    ++filesDone;
    bytesDone += entry.size;
    if (!ofFile.HasErrors()) return;
    const std::lock_guard lock(mutex);
    found.emplace(index, std::move(ofFile.errors.front()));
  };
  ForEachInParallel(manifest.files.size(), tree.IsServed() ? kParallelRequests : 0, check, [&] {
    console.ShowProgress({"Checking", filesDone, manifest.files.size(), bytesDone, bytes});
  });
  console.EndProgress();
  for (auto& [index, error] : found) diagnostics.errors.push_back(std::move(error));
}

}  // namespace ve::publish
