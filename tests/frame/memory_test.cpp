// Memory functions, atomics, spin locks and the two helpers.
#include "tov.h"

#include <windows.h>

#include <malloc.h>

#include <cstring>
#include <gtest/gtest.h>
#include <thread>
#include <vector>

namespace {

TEST(Memory, BlocksHaveTheirExactSizeAndCallocRefusesAWrappingProduct) {
  // Each block holds exactly what it should: _msize tells its size.
  auto sizeOf = [](void *p) {
    const size_t n = p ? _msize(p) : 0;
    TOV_free(p);
    return n;
  };
  EXPECT_EQ(sizeOf(TOV_strdup(nullptr, "")), 1u); // the terminator and nothing more
  EXPECT_EQ(sizeOf(TOV_wcsdup(nullptr, L"h\u00e9")), 6u);
  auto *p = static_cast<unsigned char *>(TOV_calloc(nullptr, 100, 3));
  ASSERT_NE(p, nullptr);
  for (int i = 0; i < 300; ++i) ASSERT_EQ(p[i], 0) << i;
  EXPECT_EQ(sizeOf(p), 300u);
  // Products that wrap in 64 bits to 2^32 and to 0.
  EXPECT_EQ(TOV_calloc(nullptr, (size_t{1} << 32) + 1, size_t{1} << 32), nullptr);
  EXPECT_EQ(TOV_calloc(nullptr, size_t{1} << 63, 2), nullptr);

  auto *r = static_cast<char *>(TOV_realloc(nullptr, nullptr, 4));
  ASSERT_NE(r, nullptr);
  std::memcpy(r, "abc", 4);
  EXPECT_EQ(TOV_realloc(nullptr, r, SIZE_MAX - 64), nullptr); // the old block stays valid
  EXPECT_STREQ(r, "abc");
  TOV_free(r);
  TOV_free(nullptr);
}

TEST(Helpers, Align32AndStrnzcpy) {
  uint8_t b[16];
  EXPECT_EQ(TOV_align32(b, b + 5, b + 8), b + 8);
  EXPECT_EQ(TOV_align32(b, b + 5, b + 7), nullptr);
  EXPECT_EQ(TOV_align32(b, b + 4, b + 4), b + 4);      // the limit itself is allowed
  EXPECT_EQ(TOV_align32(b + 1, b + 2, b + 16), b + 5); // measured from base
  EXPECT_EQ(TOV_align32(b, b + 4, nullptr), nullptr);  // a null limit refuses everything

  char dst[8];
  std::memset(dst, '#', sizeof dst);
  TOV_strnzcpy(dst, "abcdef", 4);
  EXPECT_EQ(std::memcmp(dst, "abc\0#", 5), 0);
  TOV_strnzcpy(dst, "ab", 6); // zero padding up to size - 1
  EXPECT_EQ(std::memcmp(dst, "ab\0\0\0\0#", 7), 0);
  TOV_strnzcpy(dst, "abcdef", 1);
  EXPECT_EQ(dst[0], '\0');
  dst[0] = '#'; // size 0: nothing written, not even just before the buffer
  EXPECT_EQ(TOV_strnzcpy(dst + 1, "abcdef", 0), dst + 1);
  EXPECT_EQ(std::memcmp(dst, "#b\0\0\0\0#", 7), 0);
}

TEST(Atomics, ReturnTheDocumentedValueAndSpinLocksFlipTheirWord) {
  int64_t x = 0;
  EXPECT_EQ(TOV_AtomicDecrement(&x), -1);
  EXPECT_EQ(TOV_AtomicIncrement(&x), 0);
  EXPECT_EQ(TOV_AtomicExchange(&x, INT64_MIN), 0);
  EXPECT_EQ(TOV_AtomicExchangeAdd(&x, 5), INT64_MIN);
  x = 5; // comparand second, new value third
  EXPECT_EQ(TOV_AtomicCmpExchange(&x, 5, 9), 5);
  EXPECT_EQ(TOV_AtomicCmpExchange(&x, 5, 7), 9);
  EXPECT_EQ(x, 9);

  TOV_SpinLock lock = 0;
  EXPECT_EQ(TOV_TryEnterSpinLock(&lock), 1);
  EXPECT_EQ(TOV_TryEnterSpinLock(&lock), 0);
  EXPECT_EQ(lock, 1);
  TOV_LeaveSpinLock(&lock);
  TOV_LeaveSpinLock(&lock); // leaving a free lock leaves it free
  EXPECT_EQ(lock, 0);
}

// Four threads hammer shared words: no update may be lost or torn.
TEST(Contention, NoUpdateIsLostOrTorn) {
  constexpr int kThreads = 4, kRounds = 200000;
  alignas(8) volatile int64_t counter = 0, viaCas = 0;
  alignas(8) TOV_SpinLock lock = 0;
  int64_t a = 0, b = 0, acquired[kThreads] = {}; // a and b: guarded by lock
  bool torn = false;
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t] {
      for (int i = 0; i < kRounds; ++i) {
        TOV_AtomicExchangeAdd(&counter, 3);
        for (int64_t seen = viaCas, old;
             (old = TOV_AtomicCmpExchange(&viaCas, seen, seen + 1)) != seen;)
          seen = old;
        if (t == 0 && i % 7 == 0) {
          if (!TOV_TryEnterSpinLock(&lock)) continue;
        } else {
          TOV_EnterSpinLock(&lock);
        }
        ++acquired[t];
        torn |= a != b;
        b = a = a + 1;
        TOV_LeaveSpinLock(&lock);
      }
    });
  }
  for (auto &th : threads) th.join();
  EXPECT_EQ(counter, int64_t{3} * kThreads * kRounds);
  EXPECT_EQ(viaCas, int64_t{kThreads} * kRounds);
  EXPECT_FALSE(torn);
  EXPECT_EQ(a, acquired[0] + acquired[1] + acquired[2] + acquired[3]);
}

} // namespace
