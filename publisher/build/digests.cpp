#include "publisher/build/digests.h"

#include "core/windows.h"

#include <algorithm>
#include <array>
#include <memory>
#include <optional>
#include <span>
#include <thread>

#include "core/md5.h"
#include "core/md5_lanes.h"
#include "publisher/build/parallel.h"
#include "publisher/files/whole_file.h"

namespace ve::publish {
namespace {

constexpr std::size_t kPieceSize = std::size_t{1} << 20;
constexpr std::size_t kMemorySize = 17 * kPieceSize;  // Of a thread; a piece is kept free.
constexpr std::size_t kGroupSize = 8;                 // Files that are digested side by side.

/// Some files that one thread reads, one after the other, and then digests side by side.
struct FileGroup {
  std::span<std::byte> memory;  // The thread's: what is not in use yet.
  std::array<FileDigest, kGroupSize> digests{};
  std::array<std::span<const std::byte>, kGroupSize> contents{};

  void Read(std::size_t place, const FileToDigest& file, Counter& bytesDone) try {
    InputFile input(file.path);
    std::optional<OutputFile> copy;
    if (!file.copy.empty()) copy.emplace(file.copy, CREATE_NEW);
    FileDigest& digest = digests[place];
    digest.finalPath = input.FinalPath();
    const std::uint64_t size = input.Size();
    const bool isLarge = size > memory.size() - kPieceSize;  // Digested alone, in pieces.
    const auto room = memory.first(isLarge ? kPieceSize : static_cast<std::size_t>(size));
    auto& content = contents[place];
    Md5 md5;
    do {
      content = input.Read(room);
      if (copy) copy->Write(content);
      if (isLarge) md5.Update(content);
      digest.size += content.size();
      bytesDone += content.size();
    } while (isLarge && !content.empty());
    md5.Finalize();
    if (isLarge) digest.md5 = md5.Hex();
    memory = memory.subspan(content.size());
    if (copy) copy->Finish();
  } catch (const PublishError& error) {
    contents[place] = {};
    digests[place] = {{}, 0, {}, error.GetDiagnostic()};
  }
};

}  // namespace

void DigestFiles(const std::vector<FileToDigest>& files, Counter& bytesDone,
                 const std::function<void(std::size_t index, const FileDigest& digest)>& take,
                 const std::function<void()>& watch) {
  // One for each thread, for all its groups: new memory costs as much time as reading into it.
  std::vector<std::unique_ptr<std::byte[]>> memory(
      std::clamp(std::thread::hardware_concurrency(), 1U, 16U));
  // Neighbours are in different groups: often all of them are large, and need all threads.
  const std::size_t groups =
      std::max((files.size() + kGroupSize - 1) / kGroupSize, std::min(files.size(), memory.size()));
  const auto digestGroup = [&](std::size_t first, std::size_t thread) {
    if (!memory[thread]) memory[thread] = std::make_unique_for_overwrite<std::byte[]>(kMemorySize);
    FileGroup group{{memory[thread].get(), kMemorySize}};
    for (std::size_t index = first; index < files.size(); index += groups) {
      group.Read(index / groups, files[index], bytesDone);
    }
    const std::vector<std::string> digests = Md5HexOfEach(group.contents);
    for (std::size_t index = first; index < files.size(); index += groups) {
      FileDigest& digest = group.digests[index / groups];
      if (!digest.error && digest.md5.empty()) digest.md5 = digests[index / groups];
      take(index, digest);
    }
  };
  ForEachInParallel(groups, memory.size(), digestGroup, watch);
}

FileDigest DigestFile(const FileToDigest& file) {
  FileDigest digest;
  Counter bytesDone = 0;
  const auto take = [&](std::size_t, const FileDigest& read) { digest = read; };
  DigestFiles({file}, bytesDone, take, [] {});
  if (digest.error) throw PublishError(*digest.error);
  return digest;
}

}  // namespace ve::publish
