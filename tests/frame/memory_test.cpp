// Memory functions, atomics, spin locks and the two helpers.
#include "tov.h"

#include <windows.h>

#include <malloc.h>
#include <process.h>

#include <cstdint>
#include <cstring>
#include <gtest/gtest.h>
#include <vector>

namespace {

TEST(Memory, CallocZeroFillsAndRefusesAWrappingProduct) {
  auto *p = static_cast<unsigned char *>(TOV_calloc(nullptr, 100, 3));
  ASSERT_NE(p, nullptr);
  EXPECT_EQ(_msize(p), 300u);
  for (int i = 0; i < 300; ++i) ASSERT_EQ(p[i], 0) << i;
  TOV_free(p);

  // (2^32 + 1) * (2^32) wraps to 2^32 in 64 bits; (2^63) * 2 wraps to 0.
  EXPECT_EQ(TOV_calloc(nullptr, (size_t{1} << 32) + 1, size_t{1} << 32), nullptr);
  EXPECT_EQ(TOV_calloc(nullptr, size_t{1} << 63, 2), nullptr);
  EXPECT_EQ(TOV_calloc(nullptr, SIZE_MAX, SIZE_MAX), nullptr);
}

TEST(Memory, DuplicatesCopyTheTerminatorAndNothingMore) {
  char *s = TOV_strdup(nullptr, "");
  ASSERT_NE(s, nullptr);
  EXPECT_EQ(_msize(s), 1u);
  EXPECT_EQ(s[0], '\0');
  TOV_free(s);

  s = TOV_strdup(nullptr, "hello");
  ASSERT_NE(s, nullptr);
  EXPECT_EQ(_msize(s), 6u);
  EXPECT_STREQ(s, "hello");
  TOV_free(s);

  wchar_t *w = TOV_wcsdup(nullptr, L"");
  ASSERT_NE(w, nullptr);
  EXPECT_EQ(_msize(w), 2u);
  TOV_free(w);

  w = TOV_wcsdup(nullptr, L"h\u00e9llo");
  ASSERT_NE(w, nullptr);
  EXPECT_EQ(_msize(w), 12u);
  EXPECT_EQ(std::wcscmp(w, L"h\u00e9llo"), 0);
  TOV_free(w);
}

TEST(Memory, ReallocKeepsContentsAndFreeOfNullIsHarmless) {
  auto *p = static_cast<char *>(TOV_realloc(nullptr, nullptr, 4)); // null block: an allocation
  ASSERT_NE(p, nullptr);
  std::memcpy(p, "abc", 4);
  p = static_cast<char *>(TOV_realloc(nullptr, p, 4096));
  ASSERT_NE(p, nullptr);
  EXPECT_STREQ(p, "abc");
  // A failed realloc leaves the old block valid.
  EXPECT_EQ(TOV_realloc(nullptr, p, SIZE_MAX - 64), nullptr);
  EXPECT_STREQ(p, "abc");
  TOV_free(p);
  TOV_free(nullptr);
  EXPECT_EQ(TOV_ValidateHeapPtr(nullptr), 1);
}

TEST(Helpers, Align32MeasuresFromBaseAndHonoursTheLimit) {
  uint8_t buf[16];
  uint8_t *b = buf;
  EXPECT_EQ(TOV_align32(b, b + 5, b + 8), b + 8);
  EXPECT_EQ(TOV_align32(b, b + 5, b + 7), nullptr);
  EXPECT_EQ(TOV_align32(b, b + 4, b + 4), b + 4); // the limit itself is allowed
  EXPECT_EQ(TOV_align32(b, b + 0, b + 0), b);
  EXPECT_EQ(TOV_align32(b + 1, b + 2, b + 16), b + 5); // from base, not from address 0
  EXPECT_EQ(TOV_align32(b, b + 4, nullptr), nullptr);  // a null limit refuses everything
}

TEST(Helpers, StrnzcpyAlwaysTerminatesInsideSize) {
  char dst[8];
  std::memset(dst, '#', sizeof dst);
  TOV_strnzcpy(dst, "abcdef", 4);
  EXPECT_STREQ(dst, "abc");
  EXPECT_EQ(dst[4], '#');

  std::memset(dst, '#', sizeof dst);
  TOV_strnzcpy(dst, "abcdef", 1);
  EXPECT_EQ(dst[0], '\0');
  EXPECT_EQ(dst[1], '#');

  std::memset(dst, '#', sizeof dst);
  TOV_strnzcpy(dst, "ab", 6); // pads with zero bytes up to size - 1
  EXPECT_EQ(std::memcmp(dst, "ab\0\0\0\0#", 7), 0);
}

TEST(Atomics, ReturnTheDocumentedValue) {
  int64_t x = 0;
  EXPECT_EQ(TOV_AtomicDecrement(&x), -1);
  EXPECT_EQ(TOV_AtomicIncrement(&x), 0);
  EXPECT_EQ(TOV_AtomicExchange(&x, INT64_MIN), 0);
  EXPECT_EQ(x, INT64_MIN);
  EXPECT_EQ(TOV_AtomicExchangeAdd(&x, 5), INT64_MIN);
  EXPECT_EQ(x, INT64_MIN + 5);

  x = 5; // comparand second, new value third
  EXPECT_EQ(TOV_AtomicCmpExchange(&x, 5, 9), 5);
  EXPECT_EQ(x, 9);
  x = 6;
  EXPECT_EQ(TOV_AtomicCmpExchange(&x, 5, 9), 6);
  EXPECT_EQ(x, 6);
  x = int64_t{1} << 40; // all 64 bits take part
  EXPECT_EQ(TOV_AtomicCmpExchange(&x, 0, 1), int64_t{1} << 40);
}

TEST(SpinLock, TryEnterAndLeave) {
  TOV_SpinLock lock = 0;
  EXPECT_EQ(TOV_TryEnterSpinLock(&lock), 1);
  EXPECT_EQ(lock, 1);
  EXPECT_EQ(TOV_TryEnterSpinLock(&lock), 0);
  EXPECT_EQ(lock, 1);
  TOV_LeaveSpinLock(&lock);
  EXPECT_EQ(lock, 0);
  TOV_LeaveSpinLock(&lock); // leaving a free lock leaves it free
  EXPECT_EQ(lock, 0);
  TOV_EnterSpinLock(&lock);
  EXPECT_EQ(lock, 1);
  TOV_LeaveSpinLock(&lock);
}

// ---- Under contention -------------------------------------------------------

constexpr int kThreads = 4;
constexpr int kRounds = 200000;

struct Shared {
  alignas(8) volatile int64_t counter = 0;
  alignas(8) volatile int64_t added = 0;
  alignas(8) TOV_SpinLock lock = 0;
  // Guarded by lock; always updated together.
  int64_t a = 0;
  int64_t b = 0;
  bool torn = false;
};

template <typename Body> void runThreads(Body body) {
  struct Ctx {
    Body *body;
    int index;
  };
  std::vector<Ctx> ctx;
  for (int i = 0; i < kThreads; ++i) ctx.push_back({&body, i});
  std::vector<HANDLE> threads;
  for (auto &c : ctx) {
    const uintptr_t h = _beginthreadex(
        nullptr, 0,
        [](void *p) -> unsigned {
          auto *c = static_cast<Ctx *>(p);
          (*c->body)(c->index);
          return 0;
        },
        &c, 0, nullptr);
    ASSERT_NE(h, 0u);
    threads.push_back(reinterpret_cast<HANDLE>(h));
  }
  WaitForMultipleObjects(static_cast<DWORD>(threads.size()), threads.data(), TRUE, INFINITE);
  for (HANDLE h : threads) CloseHandle(h);
}

TEST(Contention, AtomicsLoseNoUpdate) {
  Shared s;
  runThreads([&](int) {
    for (int i = 0; i < kRounds; ++i) {
      TOV_AtomicIncrement(&s.counter);
      TOV_AtomicExchangeAdd(&s.added, 3);
      if (i % 2) TOV_AtomicDecrement(&s.counter);
    }
  });
  EXPECT_EQ(s.counter, int64_t{kThreads} * kRounds / 2);
  EXPECT_EQ(s.added, int64_t{kThreads} * kRounds * 3);
}

TEST(Contention, CmpExchangeLoopLosesNoUpdate) {
  Shared s;
  runThreads([&](int) {
    for (int i = 0; i < kRounds; ++i) {
      int64_t seen = s.counter;
      for (;;) {
        const int64_t old = TOV_AtomicCmpExchange(&s.counter, seen, seen + 1);
        if (old == seen) break;
        seen = old;
      }
    }
  });
  EXPECT_EQ(s.counter, int64_t{kThreads} * kRounds);
}

TEST(Contention, SpinLockExcludesAndNoUpdateIsTorn) {
  Shared s;
  int64_t acquired[kThreads] = {};
  runThreads([&](int index) {
    for (int i = 0; i < kRounds; ++i) {
      if (index == 0 && i % 7 == 0) {
        if (!TOV_TryEnterSpinLock(&s.lock)) continue;
      } else {
        TOV_EnterSpinLock(&s.lock);
      }
      ++acquired[index];
      if (s.a != s.b) s.torn = true;
      const int64_t next = s.a + 1;
      s.a = next;
      s.b = next;
      TOV_LeaveSpinLock(&s.lock);
    }
  });
  EXPECT_FALSE(s.torn);
  int64_t total = 0;
  for (int64_t n : acquired) total += n;
  EXPECT_EQ(s.a, total);
  EXPECT_EQ(s.b, total);
  EXPECT_GE(total, int64_t{kThreads - 1} * kRounds);
  EXPECT_EQ(s.lock, 0);
}

} // namespace
