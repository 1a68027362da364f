#include "core/md5.h"

#include "core/windows.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <span>
#include <sstream>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "core/errors.h"
#include "core/handle.h"
#include "support/temp_folder.h"

namespace ve {
namespace {

using testing::HasSubstr;
using testing::Not;

std::span<const std::byte> BytesOf(std::string_view text) {
  return std::as_bytes(std::span(text.data(), text.size()));
}

struct FreeVirtual {
  void operator()(void* memory) const { VirtualFree(memory, 0, MEM_RELEASE); }
};
using VirtualMemory = std::unique_ptr<void, FreeVirtual>;

TEST(Md5, GivesTheResultsOfTheRfcsTestSuite) {
  EXPECT_EQ(Md5Hex(std::string()), "d41d8cd98f00b204e9800998ecf8427e");
  EXPECT_EQ(Md5Hex(std::string("a")), "0cc175b9c0f1b6a831c399e269772661");
  EXPECT_EQ(Md5Hex(std::string("abc")), "900150983cd24fb0d6963f7d28e17f72");
  EXPECT_EQ(Md5Hex(std::string("message digest")), "f96b697d7cb7938d525a2f31aaf161d0");
  EXPECT_EQ(Md5Hex(std::string("abcdefghijklmnopqrstuvwxyz")), "c3fcd3d76192e4007dfb496cca67e13b");
  EXPECT_EQ(Md5Hex(std::string("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789")),
            "d174ab98d277d9f5a5611c2c9f419d9f");
  EXPECT_EQ(Md5Hex(std::string("1234567890123456789012345678901234567890"
                               "1234567890123456789012345678901234567890")),
            "57edf4a22be3c955ac49da2e2107b67a");
}

TEST(Md5, PaddingIsRightAroundTheEndOfABlock) {
  // Taken from another implementation, over as many letters x.
  const std::pair<std::size_t, const char*> expected[] = {
      {55, "04364420e25c512fd958a70738aa8f72"},  {56, "668a72d5ba17f08e62dabcafad6db14b"},
      {57, "693037871c4a9d3d8685018905cb530a"},  {63, "7dc2ca208106a2f703567bdff99d8981"},
      {64, "c1bb4f81d892b2d57947682aeb252456"},  {65, "1bc932052302d074bdec39795fe00cf6"},
      {119, "ab347a5f68c8a443cfcddc633f12c24f"}, {120, "fb98667f98096de92620b64f46e1c5b5"},
      {121, "e8bb0ccd83750100b37f4831cd5d7ee2"}, {127, "a0b28c1da68705c2ff883fe279b72753"},
      {128, "d69cb61a6ee87200676eb0d4b90edbcb"}, {129, "3926841d393c00c3f36260e5ace10dc1"},
  };
  for (const auto& [length, digest] : expected) {
    EXPECT_EQ(Md5Hex(std::string(length, 'x')), digest) << length;
  }
}

TEST(Md5, ABufferAndAStringGiveTheSame) {
  EXPECT_EQ(Md5Hex(BytesOf("abc")), Md5Hex(std::string("abc")));
  EXPECT_EQ(Md5Hex(BytesOf("")), "d41d8cd98f00b204e9800998ecf8427e");
}

TEST(Md5, PiecesGiveTheSameAsTheWhole) {
  std::string content;
  for (int i = 0; i < 300; ++i) content += static_cast<char>(i * 7);
  const std::string whole = Md5Hex(content);
  for (const std::size_t size : {1U, 3U, 55U, 63U, 64U, 65U, 128U, 299U}) {
    Md5 md5;
    for (std::size_t at = 0; at < content.size(); at += size) {
      md5.Update(BytesOf(std::string_view(content).substr(at, size)));
    }
    md5.Finalize();
    EXPECT_EQ(md5.Hex(), whole) << size;
  }
}

TEST(Md5, ASecondFinalizeChangesNothing) {
  Md5 md5;
  md5.Update(BytesOf("abc"));
  md5.Finalize();
  md5.Finalize();
  EXPECT_EQ(md5.Hex(), "900150983cd24fb0d6963f7d28e17f72");
}

/// The bytes that the object itself consists of.
std::string MemoryOf(const Md5& md5) {
  static_assert(std::is_trivially_copyable_v<Md5>);
  std::string memory(sizeof(md5), '\0');
  std::memcpy(memory.data(), &md5, memory.size());
  return memory;
}

std::string LittleEndian(std::uint32_t number) {
  std::string bytes(sizeof(number), '\0');
  std::memcpy(bytes.data(), &number, bytes.size());
  return bytes;
}

TEST(Md5, FinalizeClearsTheBlockBufferAndTheBitCount) {
  const std::string tail = "the end of the input";
  const std::string input = std::string(70'000 - tail.size(), 'x') + tail;
  constexpr std::uint32_t kBits = 70'000 * 8;
  constexpr std::uint32_t kPaddedBits = (70'000 + 63) / 64 * 64 * 8;
  Md5 md5;
  md5.Update(BytesOf(input));
  EXPECT_THAT(MemoryOf(md5), HasSubstr(tail));
  EXPECT_THAT(MemoryOf(md5), HasSubstr(LittleEndian(kBits)));
  md5.Finalize();
  EXPECT_THAT(MemoryOf(md5), Not(HasSubstr(tail)));
  // Neither as it was nor with the padding counted.
  EXPECT_THAT(MemoryOf(md5), Not(HasSubstr(LittleEndian(kBits))));
  EXPECT_THAT(MemoryOf(md5), Not(HasSubstr(LittleEndian(kPaddedBits))));
}

TEST(Md5, IsWrittenToAStream) {
  Md5 md5;
  md5.Update(BytesOf("abc"));
  md5.Finalize();
  std::ostringstream out;
  out << '<' << md5 << '>';
  EXPECT_EQ(out.str(), "<900150983cd24fb0d6963f7d28e17f72>");
}

// Both of the following are beyond 2^32 bits; the digests come from another implementation.

TEST(Md5, CountsBitsBeyond32OverManyPieces) {
  const std::vector<std::byte> zeros(std::size_t{1} << 20);
  Md5 md5;
  for (int piece = 0; piece < 513; ++piece) md5.Update(zeros);
  md5.Finalize();
  EXPECT_EQ(md5.Hex(), "f3a8799d64129a6fd8a5aa56f199ac54");
}

TEST(Md5, CountsBitsBeyond32InOnePiece) {
  constexpr std::size_t kSize = (std::size_t{513} << 20) + 1;
  const VirtualMemory zeros(VirtualAlloc(nullptr, kSize, MEM_RESERVE | MEM_COMMIT, PAGE_READONLY));
  ASSERT_TRUE(zeros);
  EXPECT_EQ(Md5Hex(std::span(static_cast<const std::byte*>(zeros.get()), kSize)),
            "68cc756b1976a190ee199e2d0453569f");
}

TEST(Md5, OfFourGigabytesAndMoreOnlyTheLowLengthBitsCount) {
  // Address space only: the three bytes that count are all that is ever touched.
  constexpr std::size_t kSize = (std::size_t{1} << 32) + 3;
  const VirtualMemory memory(VirtualAlloc(nullptr, kSize, MEM_RESERVE, PAGE_NOACCESS));
  ASSERT_TRUE(memory);
  ASSERT_TRUE(VirtualAlloc(memory.get(), 4096, MEM_COMMIT, PAGE_READWRITE));
  std::copy_n("abc", 3, static_cast<char*>(memory.get()));
  EXPECT_EQ(Md5Hex(std::span(static_cast<const std::byte*>(memory.get()), kSize)),
            "900150983cd24fb0d6963f7d28e17f72");
}

}  // namespace
}  // namespace ve
