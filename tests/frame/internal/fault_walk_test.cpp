// Every call that allocates, walked through its allocations: the n-th is
// refused, for n = 1, 2, ... until the call gets through. At each step the
// call gives its documented status and leaves the caller's variable as it
// was, and once the step's objects are destroyed and the library is cleaned
// up nothing is left: no library block, no kernel handle.
#include "footprint.h"
#include "frame/seams.h"
#include "tov.h"

#include <winsock2.h>

#include <gtest/gtest.h>

#include <cstdio>

namespace {

struct Step {
  int n = 0; // the allocation refused
  TOV_Status status = TOV_OK;
  bool refused = false; // whether the call came to its n-th allocation
  tovtest::HandleFootprint handles;
  bool handlesLeft = false;
  int64_t blocksLeft = 0;

  // Makes the call with its n-th allocation refused; true when it succeeded.
  template <typename Call> bool run(Call call) {
    tov::seams::failAllocation = n;
    status = call();
    refused = __atomic_exchange_n(&tov::seams::failAllocation, 0, __ATOMIC_RELAXED) <= 0;
    return status == TOV_OK;
  }
};

// What no call writes: a variable that still holds it was left alone.
template <typename T> T *untouched() {
  return reinterpret_cast<T *>(uintptr_t{0x7E57});
}

// A create that writes its handle through out, and the handle's destroy.
template <typename T, typename Make, typename Destroy>
void create(Step &s, Make make, Destroy destroy) {
  T *h = untouched<T>();
  if (s.run([&] { return make(&h); })) {
    EXPECT_EQ(destroy(&h), TOV_OK);
  } else {
    EXPECT_EQ(h, untouched<T>());
  }
}

struct Socket {
  TOV_Skt *s = nullptr;
  Socket() { EXPECT_EQ(TOV_SktCreate(AF_INET, SOCK_STREAM, 0, &s), TOV_OK); }
  ~Socket() { EXPECT_EQ(TOV_SktDestroy(&s), TOV_OK); }
};

// A loopback listener with a client connected to it, not yet accepted.
struct Connection {
  Socket listener, client;
  Connection() {
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    int32_t length = sizeof a;
    auto *address = reinterpret_cast<sockaddr *>(&a);
    EXPECT_EQ(TOV_SktBind(listener.s, address, sizeof a), TOV_OK);
    EXPECT_EQ(TOV_SktListen(listener.s, 1), TOV_OK);
    EXPECT_EQ(TOV_SktGetLocalAddress(listener.s, address, &length), TOV_OK);
    EXPECT_EQ(TOV_SktConnect(client.s, address, sizeof a), TOV_OK);
  }
};

// A socket set with c's client in it for reading and writing.
struct Set {
  TOV_FDS *set = nullptr;
  explicit Set(TOV_Skt *member = nullptr) {
    EXPECT_EQ(TOV_FDSCreate(0, &set), TOV_OK);
    if (member) {
      EXPECT_EQ(TOV_FDSAssociate(set, member, TOV_FDS_READ | TOV_FDS_WRITE, 0), TOV_OK);
    }
  }
  ~Set() { EXPECT_EQ(TOV_FDSDestroy(&set, nullptr), TOV_OK); }
};

void enumInterfaces(Step &s, uint32_t family) {
  TOV_SktInterface found[64];
  found[0].flags = 0x7E57;
  uint32_t count = 64;
  if (!s.run([&] { return TOV_SktEnumInterfaces(family, 7, &count, found); })) {
    EXPECT_EQ(found[0].flags, 0x7E57u);
  }
}

std::string kernelPath() {
  char path[MAX_PATH];
  GetModuleFileNameA(GetModuleHandleA("kernel32.dll"), path, MAX_PATH);
  return path;
}

TOV_Status symbolInfo(char *name, uint64_t size) {
  return TOV_SysGetSymbolInfo(GetCurrentProcessId(), reinterpret_cast<uint64_t>(&TOV_Startup), name,
                              size, nullptr, nullptr, 0, nullptr, nullptr, 0, nullptr, nullptr,
                              nullptr);
}

struct Case {
  const char *name;
  void (*step)(Step &);
  TOV_Status done = TOV_OK; // the status once no allocation is refused
  // Starts what the library then keeps until the clean-up, before the
  // handles are counted.
  void (*prepare)() = [] {};
};

const Case kCases[] = {
    {"SktCreate",
     [](Step &s) {
       create<TOV_Skt>(
           s, [](TOV_Skt **o) { return TOV_SktCreate(AF_INET, SOCK_STREAM, 0, o); },
           TOV_SktDestroy);
     }},
    {"SktAccept", // the accepted socket is closed again
     [](Step &s) {
       Connection c;
       create<TOV_Skt>(
           s, [&](TOV_Skt **o) { return TOV_SktAccept(c.listener.s, o, nullptr, nullptr); },
           TOV_SktDestroy);
     }},
    {"FDSCreate",
     [](Step &s) {
       create<TOV_FDS>(
           s, [](TOV_FDS **o) { return TOV_FDSCreate(0, o); },
           [](TOV_FDS **o) { return TOV_FDSDestroy(o, nullptr); });
     }},
    {"FDSAssociate", // the first entry: both indexes, then the entry
     [](Step &s) {
       Socket member;
       Set set;
       s.run([&] { return TOV_FDSAssociate(set.set, member.s, TOV_FDS_READ, 0); });
       uint32_t count = 0;
       EXPECT_EQ(TOV_FDSCount(set.set, &count, TOV_FDS_READ), TOV_OK);
       EXPECT_EQ(count, s.status == TOV_OK ? 1u : 0u);
     }},
    {"FDSSelect", // one descriptor set per interest
     [](Step &s) {
       Connection c;
       Set set(c.client.s);
       TOV_FDSResult results[2];
       uint32_t count = 2;
       if (!s.run([&] {
             return TOV_FDSSelect(set.set, TOV_FDS_READ | TOV_FDS_WRITE, results, &count, 0);
           })) {
         EXPECT_EQ(count, 2u);
       }
     }},
    {"IOCPortCreate",
     [](Step &s) {
       create<TOV_IOCPort>(
           s, [](TOV_IOCPort **o) { return TOV_IOCPortCreate(0, o); }, TOV_IOCPortDestroy);
     }},
    {"GetAddrBufList", // the host's copy, then one node per address
     [](Step &s) {
       TOV_AddrBuf *list = nullptr;
       uint16_t port;
       if (s.run([&] { return TOV_GetAddrBufList("localhost:80", &port, &list); })) {
         TOV_FreeAddrBufList(list);
       } else {
         EXPECT_EQ(list, nullptr);
       }
     }},
    {"SktEnumInterfaces IPv4", [](Step &s) { enumInterfaces(s, AF_INET); }},
    {"SktEnumInterfaces IPv6", [](Step &s) { enumInterfaces(s, AF_INET6); }},
    {"ThreadCreate", // the record, before any thread starts
     [](Step &s) {
       create<void>(
           s,
           [](TOV_ThreadHandle *o) {
             return TOV_ThreadCreate([](void *) -> uint32_t { return 0; }, nullptr, 0, o);
           },
           [](TOV_ThreadHandle *h) {
             EXPECT_EQ(TOV_ThreadWait(*h, TOV_WAIT_INFINITE), TOV_OK);
             return TOV_ThreadDestroy(h);
           });
     }},
    {"ThreadPushDescriptionPtr", // the record, its array, the array's growth
     [](Step &s) {
       uint32_t pushed = 0;
       s.run([&] {
         TOV_Status status = TOV_OK;
         while (pushed < 17 && (status = TOV_ThreadPushDescriptionPtr(&pushed)) == TOV_OK) ++pushed;
         return status;
       });
       void *entries[17];
       uint32_t depth = 17;
       EXPECT_EQ(TOV_ThreadGetDescriptionPtrs(0, entries, &depth), TOV_OK);
       EXPECT_EQ(depth, pushed); // the refused push left the stack as it was
       while (depth--) EXPECT_EQ(TOV_ThreadPopDescriptionPtr(), TOV_OK);
     }},
    {"LMutexCreate",
     [](Step &s) {
       create<void>(
           s, [](TOV_LMutexHandle *o) { return TOV_LMutexCreate(o, 100); }, TOV_LMutexDestroy);
     }},
    {"CondCreate", [](Step &s) { create<void>(s, TOV_CondCreate, TOV_CondDestroy); }},
    {"RWLockCreate", [](Step &s) { create<void>(s, TOV_RWLockCreate, TOV_RWLockDestroy); }},
    {"DirOpen",
     [](Step &s) {
       create<void>(
           s, [](TOV_DirHandle *o) { return TOV_DirOpen(".", "*", o); }, TOV_DirClose);
     }},
    {"ModLoad", // the name with ".dll" added for the second try
     [](Step &s) {
       TOV_ModHandle module = untouched<void>();
       if (!s.run([&] { return TOV_ModLoad("tov-absent.x", &module); })) {
         EXPECT_EQ(module, nullptr);
       }
     },
     TOV_ERR_MODULE_NOT_FOUND},
    {"ModGetTimeVersion", // the version record
     [](Step &s) {
       char version[32] = "x";
       if (!s.run([&] {
             return TOV_ModGetTimeVersion(GetModuleHandleA("kernel32.dll"), nullptr, version,
                                          sizeof version);
           })) {
         EXPECT_STREQ(version, "0.0.0");
       }
     }},
    {"ModValidateName",
     [](Step &s) {
       char description[64] = "x";
       if (!s.run([&] {
             return TOV_ModValidateName(kernelPath().c_str(), sizeof description, description);
           })) {
         EXPECT_STREQ(description, "");
       }
     }},
    {"SysAllocThreadCtx", // the record, under the caller's tag
     [](Step &s) {
       HANDLE go = CreateEventA(nullptr, TRUE, FALSE, nullptr);
       DWORD id;
       HANDLE thread = CreateThread(
           nullptr, 0, [](void *e) -> DWORD { return WaitForSingleObject(e, INFINITE); }, go, 0,
           &id);
       TOV_ThreadCtxHandle ctx = untouched<void>();
       if (s.run([&] { return TOV_SysAllocThreadCtx(&s, GetCurrentProcessId(), id, &ctx); })) {
         EXPECT_EQ(TOV_SysFreeThreadCtx(ctx), TOV_OK);
       } else {
         EXPECT_EQ(ctx, untouched<void>());
       }
       SetEvent(go);
       WaitForSingleObject(thread, INFINITE);
       CloseHandle(thread);
       CloseHandle(go);
     }},
    {"SysGetSymbolInfo", // the symbol record
     [](Step &s) {
       char name[64] = "x";
       if (!s.run([&] { return symbolInfo(name, sizeof name); })) {
         EXPECT_STREQ(name, "x");
       }
     },
     TOV_OK, [] { EXPECT_EQ(symbolInfo(nullptr, 0), TOV_OK); }}, // the symbol handler
    {"GetCPUUsageHandle",                                        // the variable is cleared first
     [](Step &s) {
       TOV_CPUUsage *usage = untouched<TOV_CPUUsage>();
       if (s.run([&] { return TOV_GetCPUUsageHandle(&usage); })) {
         EXPECT_EQ(TOV_FreeCPUUsageHandle(&usage), TOV_OK);
       } else {
         EXPECT_EQ(usage, nullptr);
       }
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
    const auto step = [&c](int n) {
      Step s;
      s.n = n;
      const int64_t blocks = liveBlocks();
      EXPECT_EQ(TOV_Startup(nullptr, 0, nullptr, nullptr), TOV_OK);
      c.prepare();
      s.handles = tovtest::handleFootprint();
      c.step(s);
      s.handlesLeft = tovtest::handleFootprint() != s.handles;
      TOV_Cleanup(nullptr);
      s.blocksLeft = liveBlocks() - blocks;
      return s;
    };
    step(INT32_MAX); // the platform's one-time allocations
    int n = 1;
    for (; n < 50; ++n) {
      const Step s = step(n);
      EXPECT_EQ(s.blocksLeft, 0) << "allocation " << n << " refused";
      EXPECT_FALSE(s.handlesLeft) << "allocation " << n << " refused";
      if (!s.refused) {
        EXPECT_EQ(s.status, c.done);
        break;
      }
      EXPECT_EQ(s.status, TOV_ERR_NO_MEMORY) << "allocation " << n << " refused";
    }
    EXPECT_GT(n, 1) << "nothing allocated";
    std::printf("%-26s %d allocation(s)\n", c.name, n - 1);
  }
}

} // namespace
