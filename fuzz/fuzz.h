// What the fuzz targets share: a check that reports a broken rule as a
// finding, and heap blocks whose last byte is the last byte the library may
// touch, so that the address sanitizer reports one byte read or written too
// far.
#pragma once

#include <fuzzer/FuzzedDataProvider.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#define FUZZ_CHECK(condition)                                                                      \
  ((condition) ? (void)0 : tovfuzz::fail(#condition, __FILE__, __LINE__))

namespace tovfuzz {

// The byte that marks memory the library must leave alone.
constexpr uint8_t kCanary = 0xA5;

[[noreturn]] inline void fail(const char *what, const char *file, int line) {
  std::fprintf(stderr, "%s:%d: broken rule: %s\n", file, line, what);
  std::abort();
}

// n bytes, filled with `fill`, that end where their heap block ends (a block
// of 0 bytes has no byte that may be touched).
class Tail {
public:
  explicit Tail(size_t n, uint8_t fill = kCanary)
      : p_(static_cast<uint8_t *>(std::malloc(n))), n_(n) {
    if (!p_) std::abort();
    std::memset(p_, fill, n);
  }
  Tail(const void *from, size_t n) : Tail(n) { std::memcpy(p_, from, n); }
  Tail(const Tail &) = delete;
  Tail &operator=(const Tail &) = delete;
  ~Tail() { std::free(p_); }

  uint8_t *data() const { return p_; }
  uint8_t *end() const { return p_ + n_; }
  size_t size() const { return n_; }
  char *chars() const { return reinterpret_cast<char *>(p_); }
  // Whether bytes [from, size) all hold v.
  bool all(uint8_t v, size_t from = 0) const {
    for (size_t i = from; i < n_; ++i)
      if (p_[i] != v) return false;
    return true;
  }

private:
  uint8_t *p_;
  size_t n_;
};

// A zero-terminated copy of n characters whose terminator is the block's
// last byte.
struct CString : Tail {
  CString(const void *text, size_t n) : Tail(n + 1) {
    std::memcpy(data(), text, n);
    data()[n] = 0;
  }
};

} // namespace tovfuzz
