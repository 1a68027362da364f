#include "publisher/build/digests.h"

#include "core/windows.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <exception>
#include <mutex>
#include <thread>

#include "core/handle.h"
#include "core/md5.h"
#include "publisher/files/windows_errors.h"

namespace ve::publish {
namespace {

constexpr std::chrono::milliseconds kProgressPause{100};

FileDigest DigestOf(const std::wstring& path, std::span<std::byte> buffer,
                    std::atomic<std::uint64_t>& bytesDone) {
  const UniqueFileHandle file(CreateFileW(
      path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
      OPEN_EXISTING, FILE_FLAG_SEQUENTIAL_SCAN, nullptr));
  if (!file) ThrowWindowsError("read", path, GetLastError());
  Md5 md5;
  FileDigest digest;
  while (true) {
    DWORD read = 0;
    if (ReadFile(file.Get(), buffer.data(), static_cast<DWORD>(buffer.size()), &read, nullptr) ==
        FALSE) {
      ThrowWindowsError("read", path, GetLastError());
    }
    if (read == 0) break;
    md5.Update(buffer.first(read));
    digest.size += read;
    bytesDone += read;
  }
  md5.Finalize();
  digest.md5 = md5.Hex();
  return digest;
}

/// The work that the threads share. Each takes the next file that nobody has.
class Work {
 public:
  explicit Work(std::span<const std::wstring> paths) : paths_(paths), digests_(paths.size()) {}

  void TakeFiles() noexcept {
    try {
      std::vector<std::byte> buffer(kDigestBuffer);
      for (std::size_t index = next_++; index < paths_.size(); index = next_++) {
        digests_[index] = DigestOf(paths_[index], buffer, bytesDone_);
        ++filesDone_;
      }
    } catch (...) {
      next_ = paths_.size();  // The others end after their present file.
      const std::lock_guard lock(mutex_);
      if (!failure_) failure_ = std::current_exception();
    }
    const std::lock_guard lock(mutex_);
    --running_;
    ended_.notify_all();
  }

  /// Calls `progress` until all threads have ended.
  void Watch(const DigestProgress& progress) {
    std::unique_lock lock(mutex_);
    while (!ended_.wait_for(lock, kProgressPause, [this] { return running_ == 0; })) {
      lock.unlock();
      progress(filesDone_, bytesDone_);
      lock.lock();
    }
  }

  void WillRun(std::size_t threads) {
    const std::lock_guard lock(mutex_);
    running_ += threads;
  }

  /// After all threads have ended.
  [[nodiscard]] std::vector<FileDigest> Result(const DigestProgress& progress) {
    if (failure_) std::rethrow_exception(failure_);
    progress(filesDone_, bytesDone_);
    return std::move(digests_);
  }

 private:
  std::span<const std::wstring> paths_;
  std::vector<FileDigest> digests_;
  std::atomic<std::size_t> next_ = 0;
  std::atomic<std::uint64_t> filesDone_ = 0;
  std::atomic<std::uint64_t> bytesDone_ = 0;
  std::mutex mutex_;
  std::condition_variable ended_;
  std::size_t running_ = 0;
  std::exception_ptr failure_;
};

}  // namespace

FileDigest DigestOf(const std::wstring& path) {
  std::vector<std::byte> buffer(kDigestBuffer);
  std::atomic<std::uint64_t> bytesDone = 0;
  return DigestOf(path, buffer, bytesDone);
}

std::vector<FileDigest> FileDigests(std::span<const std::wstring> paths,
                                    const DigestProgress& progress) {
  Work work(paths);
  {
    const std::size_t processors = std::max(1U, std::thread::hardware_concurrency());
    std::vector<std::jthread> threads;
    for (std::size_t count = std::min(processors, paths.size()); count > 0; --count) {
      work.WillRun(1);
      threads.emplace_back([&work] { work.TakeFiles(); });
    }
    work.Watch(progress);
  }
  return work.Result(progress);
}

}  // namespace ve::publish
