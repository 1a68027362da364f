#include "core/md5_lanes.h"

#include "core/windows.h"

#include <cstdint>
#include <gtest/gtest.h>
#include <memory>
#include <random>
#include <vector>

#include "core/md5.h"

namespace ve {
namespace {

struct FreeVirtual {
  void operator()(void* memory) const { VirtualFree(memory, 0, MEM_RELEASE); }
};
using VirtualMemory = std::unique_ptr<void, FreeVirtual>;

using Buffers = std::array<std::span<const std::byte>, kMd5Lanes>;

/// Bytes that differ at every place where two buffers or two blocks might be mixed up.
std::vector<std::byte> Bytes(std::size_t size) {
  std::vector<std::byte> bytes(size);
  std::uint32_t state = 1;
  for (std::byte& byte : bytes) {
    state = state * 1664525U + 1013904223U;
    byte = static_cast<std::byte>(state >> 24);
  }
  return bytes;
}

/// Each buffer has the digest that it has alone.
void ExpectSingleDigests(const Buffers& buffers) {
  const std::vector<std::string> digests = Md5HexOfEach(buffers);
  ASSERT_EQ(digests.size(), kMd5Lanes);
  for (std::size_t lane = 0; lane < kMd5Lanes; ++lane) {
    ASSERT_EQ(digests[lane], Md5Hex(buffers[lane]))
        << "lane " << lane << " of " << buffers[0].size() << ", " << buffers[1].size() << ", "
        << buffers[2].size() << ", " << buffers[3].size();
  }
}

TEST(Md5Lanes, OfTheRfcsTestSuite) {
  const std::vector<std::byte> abc{std::byte{'a'}, std::byte{'b'}, std::byte{'c'}};
  const auto digests = Md5HexOfEach(Buffers{std::span(abc).first(1), {}, abc, {}});
  EXPECT_EQ(digests[0], "0cc175b9c0f1b6a831c399e269772661");
  EXPECT_EQ(digests[1], "d41d8cd98f00b204e9800998ecf8427e");
  EXPECT_EQ(digests[2], "900150983cd24fb0d6963f7d28e17f72");
  EXPECT_EQ(digests[3], "d41d8cd98f00b204e9800998ecf8427e");
}

TEST(Md5Lanes, EveryLengthInEveryLaneBesideOthers) {
  const std::vector<std::byte> bytes = Bytes(2000);
  std::mt19937 random(1);
  for (std::size_t length = 0; length <= 300; ++length) {
    for (std::size_t lane = 0; lane < kMd5Lanes; ++lane) {
      Buffers buffers;
      for (auto& buffer : buffers)
        buffer = std::span(bytes).subspan(random() % 1000, random() % 301);
      buffers[lane] = std::span(bytes).subspan(random() % 1000, length);
      ExpectSingleDigests(buffers);
    }
  }
}

TEST(Md5Lanes, AroundTheEndsOfBlocksInEveryMixture) {
  const std::vector<std::byte> bytes = Bytes(300);
  const std::vector<std::size_t> lengths{0, 1, 55, 56, 63, 64, 65, 128, 192};
  const std::span all(bytes);
  for (const std::size_t first : lengths) {
    for (const std::size_t second : lengths) {
      for (const std::size_t third : lengths) {
        for (const std::size_t fourth : lengths) {
          ExpectSingleDigests({all.first(first), all.subspan(7, second), all.subspan(31, third),
                               all.subspan(64, fourth)});
        }
      }
    }
  }
}

TEST(Md5Lanes, OfAnyNumberOfBuffers) {
  const std::vector<std::byte> bytes = Bytes(5000);
  std::mt19937 random(2);
  for (std::size_t count = 0; count <= 40; ++count) {
    std::vector<std::span<const std::byte>> buffers(count);
    for (auto& buffer : buffers) {
      buffer = std::span(bytes).subspan(random() % 1000, random() % 4000);
    }
    const std::vector<std::string> digests = Md5HexOfEach(buffers);
    ASSERT_EQ(digests.size(), count);
    for (std::size_t index = 0; index < count; ++index) {
      EXPECT_EQ(digests[index], Md5Hex(buffers[index])) << index << " of " << count;
    }
  }
}

TEST(Md5Lanes, OneLongBufferBesideShortOnes) {
  const std::vector<std::byte> bytes = Bytes((std::size_t{1} << 20) + 77);
  const std::span all(bytes);
  for (std::size_t lane = 0; lane < kMd5Lanes; ++lane) {
    Buffers buffers{all.first(64), all.first(5000), all.subspan(9, 64 * 100), all.first(1)};
    buffers[lane] = all;
    ExpectSingleDigests(buffers);
  }
}

TEST(Md5Lanes, ReadsNothingBehindAShorterBuffer) {
  constexpr std::size_t kPage = 4096;
  const VirtualMemory memory(VirtualAlloc(nullptr, 2 * kPage, MEM_RESERVE, PAGE_NOACCESS));
  ASSERT_TRUE(memory);
  ASSERT_TRUE(VirtualAlloc(memory.get(), kPage, MEM_COMMIT, PAGE_READWRITE));
  const std::span page(static_cast<const std::byte*>(memory.get()), kPage);
  const std::vector<std::byte> bytes = Bytes(3 * kPage);
  for (const std::size_t length : {0U, 1U, 63U, 64U, 65U, 1000U}) {
    for (std::size_t lane = 0; lane < kMd5Lanes; ++lane) {
      Buffers buffers;
      buffers.fill(bytes);
      buffers[lane] = page.last(length);
      ExpectSingleDigests(buffers);
    }
  }
}

TEST(Md5Lanes, CountsBitsBeyond32) {
  constexpr std::size_t kSize = (std::size_t{513} << 20) + 1;
  const VirtualMemory memory(VirtualAlloc(nullptr, kSize, MEM_RESERVE | MEM_COMMIT, PAGE_READONLY));
  ASSERT_TRUE(memory);
  const std::span zeros(static_cast<const std::byte*>(memory.get()), kSize);
  // From another implementation.
  const std::string expected = "68cc756b1976a190ee199e2d0453569f";
  EXPECT_EQ(Md5HexOfEach(std::array{zeros, zeros}), std::vector(2, expected));
}

TEST(Md5Lanes, OfFourGibibytesAndMoreOnlyTheRestCounts) {
  const std::vector<std::byte> bytes = Bytes(500);
  // Of these spans only the first 100 and 0 bytes are there, and read.
  constexpr std::size_t kFourGibibytes = std::size_t{1} << 32;
  const auto digests = Md5HexOfEach(
      Buffers{std::span(bytes.data(), kFourGibibytes + 100), std::span(bytes).first(200),
              std::span(bytes.data(), 2 * kFourGibibytes), std::span(bytes)});
  EXPECT_EQ(digests[0], Md5Hex(std::span(bytes.data(), kFourGibibytes + 100)));
  EXPECT_EQ(digests[0], Md5Hex(std::span(bytes).first(100)));
  EXPECT_EQ(digests[1], Md5Hex(std::span(bytes).first(200)));
  EXPECT_EQ(digests[2], Md5Hex(std::span<const std::byte>()));
  EXPECT_EQ(digests[3], Md5Hex(std::span(bytes)));
}

}  // namespace
}  // namespace ve
