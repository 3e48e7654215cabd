// Small owners for platform handles and library blocks inside the library.
#pragma once

#include "tov.h"

#include <windows.h>

namespace tov {

// Owns a kernel handle; closes it when it goes out of scope.
class UniqueHandle {
public:
  UniqueHandle() = default;
  explicit UniqueHandle(HANDLE h) noexcept : h_(h) {}
  UniqueHandle(const UniqueHandle &) = delete;
  UniqueHandle &operator=(const UniqueHandle &) = delete;
  UniqueHandle(UniqueHandle &&o) noexcept : h_(o.release()) {}
  UniqueHandle &operator=(UniqueHandle &&o) noexcept {
    reset(o.release());
    return *this;
  }
  ~UniqueHandle() { reset(); }

  HANDLE get() const noexcept { return h_; }
  explicit operator bool() const noexcept { return h_ != nullptr && h_ != INVALID_HANDLE_VALUE; }
  HANDLE release() noexcept {
    HANDLE h = h_;
    h_ = nullptr;
    return h;
  }
  void reset(HANDLE h = nullptr) noexcept {
    if (*this) CloseHandle(h_);
    h_ = h;
  }

private:
  HANDLE h_ = nullptr;
};

// Owns a block from TOV_malloc; frees it with TOV_free.
template <typename T> class UniqueBlock {
public:
  UniqueBlock() = default;
  explicit UniqueBlock(T *p) noexcept : p_(p) {}
  UniqueBlock(const UniqueBlock &) = delete;
  UniqueBlock &operator=(const UniqueBlock &) = delete;
  ~UniqueBlock() { TOV_free(p_); }

  T *get() const noexcept { return p_; }
  T *operator->() const noexcept { return p_; }
  explicit operator bool() const noexcept { return p_ != nullptr; }
  T *release() noexcept {
    T *p = p_;
    p_ = nullptr;
    return p;
  }

private:
  T *p_ = nullptr;
};

} // namespace tov
