// Platform libraries that may be missing are found by name at run time. A
// DynLibrary holds one library's module and a table of entry points; a call
// through it gives a fixed failure value while the entry point is missing.
//
// Tables are written without a lock: every racer looks up the same values,
// so the stores are idempotent. Each slot is read and written atomically.
#pragma once

#include <windows.h>

#include <cstddef>
#include <utility>

namespace tov {

struct DynEntry {
  const char *name;
  void *fn; // null while missing
};

class DynLibraryBase {
public:
  enum class Load {
    Resident, // already in the process (kernel32): found with GetModuleHandleA
    Owned,    // loaded with LoadLibraryA and freed again by forget()
    Kept,     // loaded with LoadLibraryA and kept until the process ends
  };

  constexpr DynLibraryBase(const char *dll, Load load) : dll_(dll), load_(load) {}

  // Forgets every entry point and, for an owned library, unloads it, so that
  // the next call looks everything up again.
  void forget(DynEntry *entries, size_t count) noexcept;

protected:
  void resolve(DynEntry *entries, size_t count) noexcept;
  bool resolved() const noexcept { return __atomic_load_n(&resolved_, __ATOMIC_ACQUIRE); }

private:
  const char *dll_;
  Load load_;
  HMODULE module_ = nullptr;
  bool resolved_ = false;
};

template <size_t N> class DynLibrary : public DynLibraryBase {
public:
  template <typename... Names>
  constexpr DynLibrary(const char *dll, Load load, Names... names)
      : DynLibraryBase(dll, load), entries_{DynEntry{names, nullptr}...} {
    static_assert(sizeof...(Names) == N);
  }

  // The entry point at index i, typed as Fn; null when it is missing.
  template <typename Fn> Fn *get(size_t i) noexcept {
    if (!resolved()) resolve(entries_, N);
    return reinterpret_cast<Fn *>(__atomic_load_n(&entries_[i].fn, __ATOMIC_ACQUIRE));
  }

  // Calls entry i with args, or returns fail when it is missing.
  template <typename Fn, typename R, typename... Args> R call(size_t i, R fail, Args &&...args) {
    Fn *fn = get<Fn>(i);
    return fn ? fn(std::forward<Args>(args)...) : fail;
  }

  void forget() noexcept { DynLibraryBase::forget(entries_, N); }

private:
  DynEntry entries_[N];
};

template <typename... Names>
DynLibrary(const char *, DynLibraryBase::Load, Names...) -> DynLibrary<sizeof...(Names)>;

} // namespace tov
