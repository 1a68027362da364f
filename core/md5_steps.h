// The 64 steps of MD5 (RFC 1321, section 3.4), for md5.cpp, which takes one block at a time, and for
// md5_lanes.cpp, which takes one block of each of four buffers.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>

namespace ve::detail {

// How fast MD5 of one buffer can be is decided by one chain of dependent operations: every step
// needs the result of the step before, `x`, the first argument of the auxiliary function. So each
// step adds first what does not need it, and the auxiliary functions are written so that as little
// as possible follows it: the steps of the rounds take 5, 4, 4 and 5 cycles, 288 for a block.

/// Rotates to the left, like `RotateLeft` of lanes.
inline std::uint32_t RotateLeft(std::uint32_t word, int count) { return std::rotl(word, count); }

/// Returns the sum. Compilers do not move additions across it: clang would add `x` before operands
/// that are known earlier, which costs a quarter of the speed.
inline std::uint32_t KeepSum(std::uint32_t sum) {
#if defined(__GNUC__) || defined(__clang__)
  asm("" : "+r"(sum));
#endif
  return sum;
}

// Each adds the auxiliary function F, G, H or I to `sum`.
struct Round1 {
  template <class Word>
  static Word AddAuxiliary(Word sum, Word x, Word y, Word z) {
    return sum + (((y ^ z) & x) ^ z);
  }
};
struct Round2 {
  // A choice between disjoint bits, so "or" may be "+", and only one of its halves needs `x`.
  template <class Word>
  static Word AddAuxiliary(Word sum, Word x, Word y, Word z) {
    return KeepSum(sum + (~z & y)) + (z & x);
  }
};
struct Round3 {
  template <class Word>
  static Word AddAuxiliary(Word sum, Word x, Word y, Word z) {
    return sum + (x ^ (y ^ z));
  }
};
struct Round4 {
  template <class Word>
  static Word AddAuxiliary(Word sum, Word x, Word y, Word z) {
    return sum + (y ^ (x | ~z));
  }
};

template <class Round, class Word>
void Step(Word& a, Word b, Word c, Word d, Word word, int shift, std::uint32_t constant) {
  a = RotateLeft(Round::AddAuxiliary(KeepSum(a + word + Word(constant)), b, c, d), shift) + b;
}

/// Adds one block to the state. `Word` is one 32-bit word, or one of each lane; `block` yields its
/// sixteen words.
template <class Word, class Block>
void AddBlock(Word& stateA, Word& stateB, Word& stateC, Word& stateD, const Block& block) {
  Word a = stateA;
  Word b = stateB;
  Word c = stateC;
  Word d = stateD;

  // Round 1.
  Step<Round1>(a, b, c, d, block[0], 7, 0xd76aa478);
  Step<Round1>(d, a, b, c, block[1], 12, 0xe8c7b756);
  Step<Round1>(c, d, a, b, block[2], 17, 0x242070db);
  Step<Round1>(b, c, d, a, block[3], 22, 0xc1bdceee);
  Step<Round1>(a, b, c, d, block[4], 7, 0xf57c0faf);
  Step<Round1>(d, a, b, c, block[5], 12, 0x4787c62a);
  Step<Round1>(c, d, a, b, block[6], 17, 0xa8304613);
  Step<Round1>(b, c, d, a, block[7], 22, 0xfd469501);
  Step<Round1>(a, b, c, d, block[8], 7, 0x698098d8);
  Step<Round1>(d, a, b, c, block[9], 12, 0x8b44f7af);
  Step<Round1>(c, d, a, b, block[10], 17, 0xffff5bb1);
  Step<Round1>(b, c, d, a, block[11], 22, 0x895cd7be);
  Step<Round1>(a, b, c, d, block[12], 7, 0x6b901122);
  Step<Round1>(d, a, b, c, block[13], 12, 0xfd987193);
  Step<Round1>(c, d, a, b, block[14], 17, 0xa679438e);
  Step<Round1>(b, c, d, a, block[15], 22, 0x49b40821);
  // Round 2.
  Step<Round2>(a, b, c, d, block[1], 5, 0xf61e2562);
  Step<Round2>(d, a, b, c, block[6], 9, 0xc040b340);
  Step<Round2>(c, d, a, b, block[11], 14, 0x265e5a51);
  Step<Round2>(b, c, d, a, block[0], 20, 0xe9b6c7aa);
  Step<Round2>(a, b, c, d, block[5], 5, 0xd62f105d);
  Step<Round2>(d, a, b, c, block[10], 9, 0x02441453);
  Step<Round2>(c, d, a, b, block[15], 14, 0xd8a1e681);
  Step<Round2>(b, c, d, a, block[4], 20, 0xe7d3fbc8);
  Step<Round2>(a, b, c, d, block[9], 5, 0x21e1cde6);
  Step<Round2>(d, a, b, c, block[14], 9, 0xc33707d6);
  Step<Round2>(c, d, a, b, block[3], 14, 0xf4d50d87);
  Step<Round2>(b, c, d, a, block[8], 20, 0x455a14ed);
  Step<Round2>(a, b, c, d, block[13], 5, 0xa9e3e905);
  Step<Round2>(d, a, b, c, block[2], 9, 0xfcefa3f8);
  Step<Round2>(c, d, a, b, block[7], 14, 0x676f02d9);
  Step<Round2>(b, c, d, a, block[12], 20, 0x8d2a4c8a);
  // Round 3.
  Step<Round3>(a, b, c, d, block[5], 4, 0xfffa3942);
  Step<Round3>(d, a, b, c, block[8], 11, 0x8771f681);
  Step<Round3>(c, d, a, b, block[11], 16, 0x6d9d6122);
  Step<Round3>(b, c, d, a, block[14], 23, 0xfde5380c);
  Step<Round3>(a, b, c, d, block[1], 4, 0xa4beea44);
  Step<Round3>(d, a, b, c, block[4], 11, 0x4bdecfa9);
  Step<Round3>(c, d, a, b, block[7], 16, 0xf6bb4b60);
  Step<Round3>(b, c, d, a, block[10], 23, 0xbebfbc70);
  Step<Round3>(a, b, c, d, block[13], 4, 0x289b7ec6);
  Step<Round3>(d, a, b, c, block[0], 11, 0xeaa127fa);
  Step<Round3>(c, d, a, b, block[3], 16, 0xd4ef3085);
  Step<Round3>(b, c, d, a, block[6], 23, 0x04881d05);
  Step<Round3>(a, b, c, d, block[9], 4, 0xd9d4d039);
  Step<Round3>(d, a, b, c, block[12], 11, 0xe6db99e5);
  Step<Round3>(c, d, a, b, block[15], 16, 0x1fa27cf8);
  Step<Round3>(b, c, d, a, block[2], 23, 0xc4ac5665);
  // Round 4.
  Step<Round4>(a, b, c, d, block[0], 6, 0xf4292244);
  Step<Round4>(d, a, b, c, block[7], 10, 0x432aff97);
  Step<Round4>(c, d, a, b, block[14], 15, 0xab9423a7);
  Step<Round4>(b, c, d, a, block[5], 21, 0xfc93a039);
  Step<Round4>(a, b, c, d, block[12], 6, 0x655b59c3);
  Step<Round4>(d, a, b, c, block[3], 10, 0x8f0ccc92);
  Step<Round4>(c, d, a, b, block[10], 15, 0xffeff47d);
  Step<Round4>(b, c, d, a, block[1], 21, 0x85845dd1);
  Step<Round4>(a, b, c, d, block[8], 6, 0x6fa87e4f);
  Step<Round4>(d, a, b, c, block[15], 10, 0xfe2ce6e0);
  Step<Round4>(c, d, a, b, block[6], 15, 0xa3014314);
  Step<Round4>(b, c, d, a, block[13], 21, 0x4e0811a1);
  Step<Round4>(a, b, c, d, block[4], 6, 0xf7537e82);
  Step<Round4>(d, a, b, c, block[11], 10, 0xbd3af235);
  Step<Round4>(c, d, a, b, block[2], 15, 0x2ad7d2bb);
  Step<Round4>(b, c, d, a, block[9], 21, 0xeb86d391);

  stateA = stateA + a;
  stateB = stateB + b;
  stateC = stateC + c;
  stateD = stateD + d;
}

}  // namespace ve::detail
