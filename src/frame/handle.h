// Small owners for platform handles and library blocks inside the library.
#pragma once

#include "frame/errors.h"
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

// TOV_OK, or the mapped last error when CloseHandle refuses h.
inline TOV_Status closeKernelHandle(HANDLE h) noexcept {
  return CloseHandle(h) ? TOV_OK : MapLastSystemError();
}

// What a destroy finds in the caller's variable: the platform's own handle,
// or a library record around a platform object.
enum class Holds { PlatformHandle, Record };

// The destroy rule of the families whose destroy closes what the caller's
// variable holds: close(value) closes the platform object and gives the
// status, and the variable is cleared whatever that was. A record is freed
// after its close; a variable that holds no record any more gives
// TOV_ERR_INVALID_HANDLE and closes nothing. A platform handle goes to the
// platform as it is, null included, and the platform answers for it.
template <Holds kind, typename T, typename Close>
TOV_Status closeAndClear(T **variable, Close close) noexcept {
  T *value = *variable;
  if constexpr (kind == Holds::Record) {
    if (!value) return TOV_ERR_INVALID_HANDLE;
  }
  const TOV_Status status = close(value);
  if constexpr (kind == Holds::Record) TOV_free(value);
  *variable = nullptr;
  return status;
}

} // namespace tov
