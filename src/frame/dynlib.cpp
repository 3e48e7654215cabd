#include "dynlib.h"

namespace tov {

void DynLibraryBase::resolve(DynEntry *entries, size_t count) noexcept {
  HMODULE module = __atomic_load_n(&module_, __ATOMIC_ACQUIRE);
  if (!module) {
    module = load_ == Load::Resident ? GetModuleHandleA(dll_) : LoadLibraryA(dll_);
    HMODULE expected = nullptr;
    // A racer that loaded the library as well gives its reference back.
    if (!__atomic_compare_exchange_n(&module_, &expected, module, false, __ATOMIC_ACQ_REL,
                                     __ATOMIC_ACQUIRE)) {
      if (module && load_ != Load::Resident) FreeLibrary(module);
      module = expected;
    }
  }
  for (size_t i = 0; i < count; ++i) {
    void *fn = module ? reinterpret_cast<void *>(GetProcAddress(module, entries[i].name)) : nullptr;
    __atomic_store_n(&entries[i].fn, fn, __ATOMIC_RELEASE);
  }
  __atomic_store_n(&resolved_, true, __ATOMIC_RELEASE);
}

void DynLibraryBase::forget(DynEntry *entries, size_t count) noexcept {
  __atomic_store_n(&resolved_, false, __ATOMIC_RELEASE);
  for (size_t i = 0; i < count; ++i) __atomic_store_n(&entries[i].fn, nullptr, __ATOMIC_RELEASE);
  HMODULE module = __atomic_exchange_n(&module_, nullptr, __ATOMIC_ACQ_REL);
  if (module && load_ == Load::Owned) FreeLibrary(module);
}

} // namespace tov
