// Socket sets: socket handles with interest flags and contexts, kept in two
// sorted indexes (by handle for the caller's operations, by system socket to
// map select's answer back), with per-interest counters so that the
// descriptor sets handed to select are sized exactly.
#include "frame/lifecycle.h"
#include "frame/errors.h"
#include "frame/handle.h"
#include "net/socket.h"

#include <winsock2.h>

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace {

struct TOV_FDSEntry {
  uint32_t flags;   // all 32 bits as the caller gave them
  TOV_Skt *handle;  // the associated socket handle
  SOCKET sysSocket; // its system socket, copied at association
  uint64_t context; // the caller's value
};

constexpr uint32_t kInterests[] = {TOV_FDS_READ, TOV_FDS_WRITE, TOV_FDS_EXCEPT};

// Keys of the two indexes, compared as unsigned 64-bit values.
inline uint64_t handleKey(const TOV_FDSEntry *e) noexcept {
  return reinterpret_cast<uintptr_t>(e->handle);
}
inline uint64_t socketKey(const TOV_FDSEntry *e) noexcept {
  return static_cast<uint64_t>(e->sysSocket);
}

struct Slot {
  uint32_t pos; // the matching entry, or where the key goes
  bool found;
};

// Binary search of an index for key: the first position whose key is not
// below it, and whether the entry there has the key.
template <uint64_t (*Key)(const TOV_FDSEntry *)>
Slot search(TOV_FDSEntry *const *index, uint32_t count, uint64_t key) noexcept {
  uint32_t lo = 0, hi = count;
  while (lo < hi) {
    const uint32_t mid = lo + (hi - lo) / 2;
    if (Key(index[mid]) < key)
      lo = mid + 1;
    else
      hi = mid;
  }
  return {lo, lo < count && Key(index[lo]) == key};
}

void insertAt(TOV_FDSEntry **index, uint32_t count, uint32_t pos, TOV_FDSEntry *e) noexcept {
  std::memmove(index + pos + 1, index + pos, (count - pos) * sizeof *index);
  index[pos] = e;
}

void eraseAt(TOV_FDSEntry **index, uint32_t count, uint32_t pos) noexcept {
  std::memmove(index + pos, index + pos + 1, (count - pos - 1) * sizeof *index);
}

// The platform's fd_set with room for any number of sockets.
struct BigFdSet {
  u_int fd_count;
  SOCKET fd_array[];
};
static_assert(offsetof(BigFdSet, fd_array) == offsetof(fd_set, fd_array));

// The read, write and except descriptor sets of one select, freed together.
struct FdSets {
  BigFdSet *sets[3] = {};
  FdSets() = default;
  FdSets(const FdSets &) = delete;
  FdSets &operator=(const FdSets &) = delete;
  ~FdSets() {
    for (BigFdSet *s : sets) TOV_free(s);
  }
  fd_set *platform(int i) const noexcept { return reinterpret_cast<fd_set *>(sets[i]); }
};

} // namespace

struct TOV_FDS {
  uint32_t nextCapacity; // slots at the next growth; doubles at each growth
  uint32_t readCount;
  uint32_t writeCount;
  uint32_t exceptCount;
  uint32_t entryCount;
  uint32_t allocated; // slots in each index
  TOV_FDSEntry **byHandle;
  TOV_FDSEntry **bySocket;

  uint32_t &counter(uint32_t interest) noexcept {
    return interest == TOV_FDS_READ    ? readCount
           : interest == TOV_FDS_WRITE ? writeCount
                                       : exceptCount;
  }
  void countFlags(uint32_t flags, bool add) noexcept {
    for (uint32_t bit : kInterests)
      if (flags & bit) counter(bit) += add ? 1 : static_cast<uint32_t>(-1);
  }
  Slot findHandle(const TOV_Skt *handle) const noexcept {
    return search<handleKey>(byHandle, entryCount, reinterpret_cast<uintptr_t>(handle));
  }
  // Both indexes doubled (or first made); unchanged when memory runs out.
  bool grow() noexcept;
};

bool TOV_FDS::grow() noexcept {
  if (nextCapacity <= allocated) return false; // the slot count cannot grow further
  const size_t bytes = size_t{nextCapacity} * sizeof(TOV_FDSEntry *);
  tov::UniqueBlock<TOV_FDSEntry *> h(
      static_cast<TOV_FDSEntry **>(TOV_malloc(tov::libTag(), bytes)));
  tov::UniqueBlock<TOV_FDSEntry *> s(
      static_cast<TOV_FDSEntry **>(TOV_malloc(tov::libTag(), bytes)));
  if (!h || !s) return false;
  if (allocated != 0) {
    std::memcpy(h.get(), byHandle, allocated * sizeof *byHandle);
    std::memcpy(s.get(), bySocket, allocated * sizeof *bySocket);
  }
  TOV_free(byHandle);
  TOV_free(bySocket);
  byHandle = h.release();
  bySocket = s.release();
  allocated = nextCapacity;
  nextCapacity = nextCapacity > UINT32_MAX / 2 ? UINT32_MAX : nextCapacity * 2;
  return true;
}

extern "C" TOV_Status TOV_FDSCreate(uint32_t sizeHint, TOV_FDS **setOut) noexcept {
  TOV_FRAME(setOut != nullptr);
  auto *set = static_cast<TOV_FDS *>(TOV_calloc(tov::libTag(), 1, sizeof(TOV_FDS)));
  if (set == nullptr) return TOV_ERR_NO_MEMORY;
  set->nextCapacity = sizeHint != 0 ? sizeHint : 1;
  *setOut = set;
  return TOV_OK;
}

extern "C" TOV_Status TOV_FDSDestroy(TOV_FDS **setVar, TOV_FDSCallback callback) noexcept {
  TOV_FRAME(setVar != nullptr);
  TOV_FDS *set = *setVar;
  if (set == nullptr) return TOV_ERR_INVALID_HANDLE; // already destroyed
  for (uint32_t i = 0; i < set->entryCount; ++i) {
    const TOV_FDSEntry *e = set->byHandle[i];
    if (callback == nullptr || callback(e->handle, e->flags, e->context) != TOV_OK) break;
  }
  for (uint32_t i = 0; i < set->entryCount; ++i) TOV_free(set->byHandle[i]);
  TOV_free(set->byHandle);
  TOV_free(set->bySocket);
  TOV_free(set);
  *setVar = nullptr;
  return TOV_OK;
}

extern "C" TOV_Status TOV_FDSAssociate(TOV_FDS *set, TOV_Skt *handle, uint32_t flags,
                                       uint64_t context) noexcept {
  TOV_FRAME(set != nullptr && handle != nullptr && flags != 0);
  SOCKET sock;
  tov::sktSystemSocket(handle, &sock);
  const Slot h = set->findHandle(handle);
  if (h.found) return TOV_ERR_ALREADY_EXISTS;
  // Grown only to insert; the growth keeps every position found above.
  if (set->entryCount == set->allocated && !set->grow()) return TOV_ERR_NO_MEMORY;
  const Slot s = search<socketKey>(set->bySocket, set->entryCount, static_cast<uint64_t>(sock));

  auto *e = static_cast<TOV_FDSEntry *>(TOV_malloc(tov::libTag(), sizeof(TOV_FDSEntry)));
  if (e == nullptr) return TOV_ERR_NO_MEMORY;
  *e = {flags, handle, sock, context};
  insertAt(set->byHandle, set->entryCount, h.pos, e);
  insertAt(set->bySocket, set->entryCount, s.pos, e);
  ++set->entryCount;
  set->countFlags(flags, true);
  return TOV_OK;
}

extern "C" TOV_Status TOV_FDSModify(TOV_FDS *set, TOV_Skt *handle, uint32_t what, uint32_t *flags,
                                    uint64_t *context) noexcept {
  TOV_FRAME(set != nullptr && handle != nullptr &&
            (!(what & TOV_FDS_SET_FLAGS) || flags != nullptr) &&
            (!(what & TOV_FDS_SET_CONTEXT) || context != nullptr));
  const Slot h = set->findHandle(handle);
  if (!h.found) return TOV_ERR_NOT_FOUND;
  TOV_FDSEntry *e = set->byHandle[h.pos];
  const uint32_t oldFlags = e->flags;
  const uint64_t oldContext = e->context;
  if (what & TOV_FDS_SET_FLAGS) {
    const uint32_t changed = oldFlags ^ *flags;
    for (uint32_t bit : kInterests)
      if (changed & bit) set->counter(bit) += (*flags & bit) ? 1 : static_cast<uint32_t>(-1);
    e->flags = *flags;
  }
  if (what & TOV_FDS_SET_CONTEXT) e->context = *context;
  if (flags != nullptr) *flags = oldFlags;
  if (context != nullptr) *context = oldContext;
  return TOV_OK;
}

extern "C" TOV_Status TOV_FDSRemove(TOV_FDS *set, TOV_Skt *handle, uint64_t *context) noexcept {
  TOV_FRAME(set != nullptr && handle != nullptr);
  const Slot h = set->findHandle(handle);
  if (!h.found) return TOV_ERR_NOT_FOUND;
  TOV_FDSEntry *e = set->byHandle[h.pos];
  // Several entries may share a system socket (a number reused after a close
  // the caller did not tell the set about): take this entry's own slot.
  uint32_t s = search<socketKey>(set->bySocket, set->entryCount, socketKey(e)).pos;
  while (set->bySocket[s] != e) ++s;

  set->countFlags(e->flags, false);
  if (context != nullptr) *context = e->context;
  TOV_free(e);
  eraseAt(set->byHandle, set->entryCount, h.pos);
  eraseAt(set->bySocket, set->entryCount, s);
  --set->entryCount;
  return TOV_OK;
}

extern "C" TOV_Status TOV_FDSCount(TOV_FDS *set, uint32_t *count, uint32_t which) noexcept {
  TOV_FRAME(set != nullptr && count != nullptr && which != 0);
  uint32_t sum = 0;
  for (uint32_t bit : kInterests)
    if (which & bit) sum += set->counter(bit);
  *count = sum;
  return TOV_OK;
}

extern "C" TOV_Status TOV_FDSEnumerate(TOV_FDS *set, TOV_FDSCallback callback) noexcept {
  TOV_FRAME(set != nullptr && callback != nullptr);
  for (uint32_t i = 0; i < set->entryCount; ++i) {
    const TOV_FDSEntry *e = set->byHandle[i];
    if (const TOV_Status st = callback(e->handle, e->flags, e->context); st != TOV_OK) return st;
  }
  return TOV_OK;
}

extern "C" TOV_Status TOV_FDSSelect(TOV_FDS *set, uint32_t which, TOV_FDSResult *results,
                                    uint32_t *count, uint32_t timeoutMs) noexcept {
  TOV_FRAME(set != nullptr && which != 0 && count != nullptr &&
            (results != nullptr || *count == 0));
  timeval timeout{static_cast<long>(timeoutMs / 1000), static_cast<long>(timeoutMs % 1000) * 1000};

  FdSets fds;
  for (int i = 0; i < 3; ++i) {
    const uint32_t bit = kInterests[i];
    if (!(which & bit)) continue;
    const uint32_t n = set->counter(bit);
    auto *fs = static_cast<BigFdSet *>(
        TOV_malloc(tov::libTag(), offsetof(BigFdSet, fd_array) + size_t{n} * sizeof(SOCKET)));
    if (fs == nullptr) return TOV_ERR_NO_MEMORY;
    fds.sets[i] = fs;
    fs->fd_count = n;
    uint32_t k = 0;
    for (uint32_t j = 0; j < set->entryCount && k < n; ++j)
      if (set->byHandle[j]->flags & bit) fs->fd_array[k++] = set->byHandle[j]->sysSocket;
  }

  const int ready = select(0, fds.platform(0), fds.platform(1), fds.platform(2),
                           timeoutMs == UINT32_MAX ? nullptr : &timeout);
  if (ready == SOCKET_ERROR) return tov::MapWSALastError();
  if (ready == 0) return TOV_ERR_TIMEOUT;

  const uint32_t room = *count;
  uint32_t n = 0;
  for (const BigFdSet *fs : fds.sets) {
    if (fs == nullptr) continue;
    for (u_int j = 0; j < fs->fd_count; ++j) {
      const uint64_t key = static_cast<uint64_t>(fs->fd_array[j]);
      const Slot s = search<socketKey>(set->bySocket, set->entryCount, key);
      if (!s.found) continue;
      if (n < room) {
        const TOV_FDSEntry *e = set->bySocket[s.pos];
        results[n] = {e->handle, e->flags, e->context};
      }
      ++n;
    }
  }
  *count = n;
  return n > room ? TOV_ERR_BUFFER_TOO_SMALL : TOV_OK;
}
