#include "publisher/build/digests.h"

#include "core/windows.h"

#include <algorithm>
#include <array>
#include <memory>
#include <optional>
#include <span>

#include "core/md5.h"
#include "core/md5_lanes.h"
#include "publisher/build/parallel.h"
#include "publisher/files/whole_file.h"

namespace ve::publish {
namespace {

constexpr std::size_t kPiece = std::size_t{1} << 20;
// Files that one thread reads before it digests them side by side.
constexpr std::size_t kGroup = 8;
constexpr std::size_t kMemory = 17 * kPiece;  // Of a thread: a group, or a large file's piece.

using Bytes = std::span<const std::byte>;

/// Some files that one thread reads, one after the other, and then digests side by side.
struct SideBySide {
  std::span<std::byte> memory;  // The thread's: what is not in use yet.
  std::array<FileDigest, kGroup> digests{};
  std::array<Bytes, kGroup> contents{};

  void Read(std::size_t place, const FileToDigest& file, Counter& bytesDone) try {
    InputFile input(file.path);
    std::optional<OutputFile> copy;
    if (!file.copy.empty()) copy.emplace(file.copy, CREATE_NEW);
    FileDigest& digest = digests[place];
    digest.finalPath = input.FinalPath();
    const std::uint64_t size = input.Size();
    const bool isLarge = size > memory.size() - kPiece;  // Digested alone, in pieces.
    const auto room = memory.first(isLarge ? kPiece : static_cast<std::size_t>(size));
    Bytes& content = contents[place];
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
    digests[place].error = error.GetDiagnostic();
  }
};

}  // namespace

void DigestFiles(const std::vector<FileToDigest>& files, Counter& bytesDone,
                 const std::function<void(std::size_t index, const FileDigest& digest)>& take,
                 const std::function<void()>& watch) {
  // One for each thread, for all its groups: new memory costs as much time as reading into it.
  std::vector<std::unique_ptr<std::byte[]>> memory(ProcessorCount());
  const auto digestGroup = [&](std::size_t group, std::size_t thread) {
    if (!memory[thread]) memory[thread] = std::make_unique_for_overwrite<std::byte[]>(kMemory);
    const std::size_t begin = group * kGroup;
    const std::size_t count = std::min(kGroup, files.size() - begin);
    SideBySide read{{memory[thread].get(), kMemory}};
    for (std::size_t place = 0; place < count; ++place) {
      read.Read(place, files[begin + place], bytesDone);
    }
    const std::vector<std::string> digests = Md5HexOfEach(read.contents);
    for (std::size_t place = 0; place < count; ++place) {
      FileDigest& digest = read.digests[place];
      if (digest.md5.empty()) digest.md5 = digests[place];
      take(begin + place, digest);
    }
  };
  ForEachInParallel((files.size() + kGroup - 1) / kGroup, memory.size(), digestGroup, watch);
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
