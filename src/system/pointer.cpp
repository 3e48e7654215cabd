// Whether memory may be executed, read, written or read as a string: the
// system's tests, which catch the access fault themselves.
#include "tov.h"

#include <windows.h>

namespace {

inline TOV_Status verdict(BOOL bad) {
  return bad ? TOV_ERR_INVALID_PARAMETER : TOV_OK;
}

} // namespace

extern "C" TOV_Status TOV_SysValidateCodePtr(const void *p) noexcept {
  return verdict(IsBadCodePtr(reinterpret_cast<FARPROC>(const_cast<void *>(p))));
}

extern "C" TOV_Status TOV_SysValidateReadPtr(const void *p, uint64_t size) noexcept {
  return verdict(IsBadReadPtr(p, size));
}

extern "C" TOV_Status TOV_SysValidateWritePtr(void *p, uint64_t size) noexcept {
  return verdict(IsBadWritePtr(p, size));
}

extern "C" TOV_Status TOV_SysValidateStringPtr(const void *p, uint64_t maxLength,
                                               int32_t wide) noexcept {
  return verdict(wide ? IsBadStringPtrW(static_cast<const wchar_t *>(p), maxLength)
                      : IsBadStringPtrA(static_cast<const char *>(p), maxLength));
}
