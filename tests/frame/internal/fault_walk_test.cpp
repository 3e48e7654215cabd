// Every call that allocates, walked through its allocations: the n-th is
// refused, for n = 1, 2, ... until the call gets through. At each step the
// call gives TOV_ERR_NO_MEMORY and leaves the caller's variable as
// documented, and once the step's objects are destroyed and the library is
// cleaned up nothing is left: no library block, no kernel handle.
#include "footprint.h"
#include "frame/seams.h"
#include "tov.h"

#include <winsock2.h>

#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>

namespace {

struct Step {
  int n = 0; // the allocation refused
  TOV_Status status = TOV_OK;
  bool refused = false; // whether the call came to its n-th allocation

  // Makes the call with its n-th allocation refused; true when it succeeded.
  template <typename Call> bool run(Call call) {
    tov::seams::failAllocation = n;
    status = call();
    refused = __atomic_exchange_n(&tov::seams::failAllocation, 0, __ATOMIC_RELAXED) <= 0;
    return status == TOV_OK;
  }
};

// What no call writes: a variable that still holds it was left alone.
void *const kUntouched = reinterpret_cast<void *>(uintptr_t{0x7E57});

// A create that writes a handle through its out argument o, and the destroy
// of that handle; a refused create leaves the variable as it was.
template <typename T, typename Make, typename Destroy>
void create(Step &s, Make make, Destroy destroy, T *onRefusal = static_cast<T *>(kUntouched)) {
  T *h = static_cast<T *>(kUntouched);
  if (s.run([&] { return make(&h); })) {
    EXPECT_EQ(destroy(&h), TOV_OK);
  } else {
    EXPECT_EQ(h, onRefusal);
  }
}
#define CREATE(T, make, destroy)                                                                   \
  [](Step &s) {                                                                                    \
    create<T>(                                                                                     \
        s, [&](T **o) { return make; }, destroy);                                                  \
  }

struct Socket {
  TOV_Skt *s = nullptr;
  Socket() { EXPECT_EQ(TOV_SktCreate(AF_INET, SOCK_STREAM, 0, &s), TOV_OK); }
  ~Socket() { EXPECT_EQ(TOV_SktDestroy(&s), TOV_OK); }
};

// A loopback listener with a client connected to it, not yet accepted, and
// a socket set holding the client.
struct Connection {
  Socket listener, client;
  TOV_FDS *set = nullptr;
  Connection() {
    sockaddr_in a{AF_INET, 0, {{{127, 0, 0, 1}}}, {}};
    int32_t length = sizeof a;
    auto *address = reinterpret_cast<sockaddr *>(&a);
    EXPECT_EQ(TOV_SktBind(listener.s, address, sizeof a), TOV_OK);
    EXPECT_EQ(TOV_SktListen(listener.s, 1), TOV_OK);
    EXPECT_EQ(TOV_SktGetLocalAddress(listener.s, address, &length), TOV_OK);
    EXPECT_EQ(TOV_SktConnect(client.s, address, sizeof a), TOV_OK);
    EXPECT_EQ(TOV_FDSCreate(0, &set), TOV_OK);
  }
  ~Connection() { EXPECT_EQ(TOV_FDSDestroy(&set, nullptr), TOV_OK); }
};

void enumInterfaces(Step &s, uint32_t family) {
  TOV_SktInterface found[64];
  found[0].flags = 0x7E57;
  uint32_t count = 64;
  EXPECT_TRUE(s.run([&] { return TOV_SktEnumInterfaces(family, 7, &count, found); }) ||
              found[0].flags == 0x7E57);
}

TOV_Status symbolInfo(char *name, uint64_t size) {
  return TOV_SysGetSymbolInfo(GetCurrentProcessId(), reinterpret_cast<uint64_t>(&TOV_Startup), name,
                              size, nullptr, nullptr, 0, nullptr, nullptr, 0, nullptr, nullptr,
                              nullptr);
}

uint32_t threadBody(void *) {
  return 0;
}
TOV_Status joinThread(TOV_ThreadHandle *h) {
  EXPECT_EQ(TOV_ThreadWait(*h, TOV_WAIT_INFINITE), TOV_OK);
  return TOV_ThreadDestroy(h);
}

struct Case {
  const char *name;
  void (*step)(Step &);
  TOV_Status done = TOV_OK; // the status once no allocation is refused
  // Starts what the library keeps until the clean-up, before handles are
  // counted.
  void (*prepare)() = [] {};
};

const Case kCases[] = {
    {"SktCreate", CREATE(TOV_Skt, TOV_SktCreate(AF_INET, SOCK_STREAM, 0, o), TOV_SktDestroy)},
    {"SktAccept", // the accepted socket is closed again
     [](Step &s) {
       Connection c;
       create<TOV_Skt>(
           s, [&](TOV_Skt **o) { return TOV_SktAccept(c.listener.s, o, nullptr, nullptr); },
           TOV_SktDestroy);
     }},
    {"FDSCreate",
     CREATE(TOV_FDS, TOV_FDSCreate(0, o), [](TOV_FDS **h) { return TOV_FDSDestroy(h, nullptr); })},
    {"FDSAssociate", // both indexes grown, then the entry; a duplicate needs none
     [](Step &s) {
       Connection c;
       uint32_t count = 0;
       EXPECT_EQ(TOV_FDSAssociate(c.set, c.client.s, TOV_FDS_READ, 0), TOV_OK);
       s.run([&] {
         EXPECT_EQ(TOV_FDSAssociate(c.set, c.client.s, TOV_FDS_READ, 0), TOV_ERR_ALREADY_EXISTS);
         return TOV_FDSAssociate(c.set, c.listener.s, TOV_FDS_READ, 0);
       });
       EXPECT_EQ(TOV_FDSCount(c.set, &count, TOV_FDS_READ), TOV_OK);
       EXPECT_EQ(count, s.status == TOV_OK ? 2u : 1u);
     }},
    {"FDSSelect", // one descriptor set per interest
     [](Step &s) {
       Connection c;
       TOV_FDSResult results[2];
       uint32_t count = 2, both = TOV_FDS_READ | TOV_FDS_WRITE;
       EXPECT_EQ(TOV_FDSAssociate(c.set, c.client.s, both, 0), TOV_OK);
       EXPECT_TRUE(s.run([&] { return TOV_FDSSelect(c.set, both, results, &count, 0); }) ||
                   count == 2);
     }},
    {"IOCPortCreate", CREATE(TOV_IOCPort, TOV_IOCPortCreate(0, o), TOV_IOCPortDestroy)},
    {"GetAddrBufList", // the host's copy, then one node per address
     [](Step &s) {
       TOV_AddrBuf *list = nullptr;
       uint16_t port;
       EXPECT_TRUE(s.run([&] { return TOV_GetAddrBufList("localhost:80", &port, &list); }) ||
                   list == nullptr);
       TOV_FreeAddrBufList(list);
     }},
    {"SktEnumInterfaces IPv4", [](Step &s) { enumInterfaces(s, AF_INET); }},
    {"SktEnumInterfaces IPv6", [](Step &s) { enumInterfaces(s, AF_INET6); }},
    {"ThreadCreate", CREATE(void, TOV_ThreadCreate(threadBody, nullptr, 0, o), joinThread)},
    {"ThreadPushDescriptionPtr", // the record, its array, the array's growth
     [](Step &s) {
       uint32_t pushed = 0, depth = 17;
       s.run([&] {
         TOV_Status status = TOV_OK;
         while (pushed < 17 && (status = TOV_ThreadPushDescriptionPtr(&pushed)) == TOV_OK) ++pushed;
         return status;
       });
       void *entries[17];
       EXPECT_EQ(TOV_ThreadGetDescriptionPtrs(0, entries, &depth), TOV_OK);
       EXPECT_EQ(depth, pushed); // the refused push left the stack as it was
       while (depth--) EXPECT_EQ(TOV_ThreadPopDescriptionPtr(), TOV_OK);
     }},
    {"LMutexCreate", CREATE(void, TOV_LMutexCreate(o, 100), TOV_LMutexDestroy)},
    {"CondCreate", CREATE(void, TOV_CondCreate(o), TOV_CondDestroy)},
    {"RWLockCreate", CREATE(void, TOV_RWLockCreate(o), TOV_RWLockDestroy)},
    {"DirOpen", CREATE(void, TOV_DirOpen(".", "*", o), TOV_DirClose)},
    {"ModLoad", // the name with ".dll" added, for the second try
     [](Step &s) {
       TOV_ModHandle module = kUntouched;
       EXPECT_TRUE(s.run([&] { return TOV_ModLoad("tov-absent.x", &module); }) || !module);
     },
     TOV_ERR_MODULE_NOT_FOUND},
    {"ModGetTimeVersion", // the version record; the version reads "0.0.0" until found
     [](Step &s) {
       char version[8] = "x";
       HMODULE kernel = GetModuleHandleA("kernel32.dll");
       EXPECT_TRUE(s.run([&] { return TOV_ModGetTimeVersion(kernel, nullptr, version, 8); }) ||
                   !std::strcmp(version, "0.0.0"));
     }},
    {"ModValidateName",
     [](Step &s) {
       char path[MAX_PATH], description[64] = "x";
       GetModuleFileNameA(GetModuleHandleA("kernel32.dll"), path, MAX_PATH);
       EXPECT_TRUE(s.run([&] { return TOV_ModValidateName(path, 64, description); }) ||
                   !description[0]);
     }},
    {"SysAllocThreadCtx", // the record, under the caller's tag
     [](Step &s) {
       HANDLE go = CreateEventA(nullptr, TRUE, FALSE, nullptr);
       DWORD id;
       HANDLE thread = CreateThread(
           nullptr, 0, [](void *e) -> DWORD { return WaitForSingleObject(e, INFINITE); }, go, 0,
           &id);
       create<void>(
           s, [&](void **o) { return TOV_SysAllocThreadCtx(&s, GetCurrentProcessId(), id, o); },
           [](void **ctx) { return TOV_SysFreeThreadCtx(*ctx); });
       SetEvent(go);
       WaitForSingleObject(thread, INFINITE);
       CloseHandle(thread);
       CloseHandle(go);
     }},
    {"SysGetSymbolInfo", // the symbol record
     [](Step &s) {
       char name[64] = "x";
       EXPECT_TRUE(s.run([&] { return symbolInfo(name, sizeof name); }) || name[0] == 'x');
     },
     TOV_OK, [] { EXPECT_EQ(symbolInfo(nullptr, 0), TOV_OK); }}, // the symbol handler
    {"GetCPUUsageHandle",                                        // the variable is cleared first
     [](Step &s) {
       create<TOV_CPUUsage>(s, TOV_GetCPUUsageHandle, TOV_FreeCPUUsageHandle, nullptr);
     }},
};

int64_t liveBlocks() {
  return tov::seams::allocations - tov::seams::frees;
}

TEST(AllocationFaults, EachRefusalGivesItsStatusAndLeavesNothing) {
  for (const Case &c : kCases) {
    SCOPED_TRACE(c.name);
    // One step, with the library started as the calls need it. Handles are
    // compared before the clean-up, which closes every socket; blocks after
    // it, which frees the description records.
    const auto step = [&c](int n, bool check = true) {
      Step s;
      s.n = n;
      const int64_t blocks = liveBlocks();
      EXPECT_EQ(TOV_Startup(nullptr, 0, nullptr, nullptr), TOV_OK);
      c.prepare();
      const tovtest::HandleFootprint handles = tovtest::handleFootprint();
      c.step(s);
      EXPECT_TRUE(!check || tovtest::handleFootprint() == handles) << "allocation " << n;
      TOV_Cleanup(nullptr);
      EXPECT_TRUE(!check || liveBlocks() == blocks) << "allocation " << n;
      return s;
    };
    step(INT32_MAX, false); // the platform's one-time allocations
    Step s;
    int n = 0;
    while (++n < 50 && (s = step(n)).refused)
      EXPECT_EQ(s.status, TOV_ERR_NO_MEMORY) << "allocation " << n << " refused";
    EXPECT_GT(n, 1) << "nothing allocated";
    EXPECT_EQ(s.status, c.done);
    std::printf("%-26s %d allocation(s)\n", c.name, n - 1);
  }
}

} // namespace
