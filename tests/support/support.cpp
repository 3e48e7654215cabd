#include "support.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <sstream>
#include <vector>

namespace tovtest {
namespace {

CRITICAL_SECTION g_captureLock;
INIT_ONCE g_captureOnce = INIT_ONCE_STATIC_INIT;
std::string *g_captured;

BOOL CALLBACK initCapture(PINIT_ONCE, PVOID, PVOID *) {
  InitializeCriticalSection(&g_captureLock);
  return TRUE;
}

// Wine's OutputDebugStringA raises DBG_PRINTEXCEPTION_C with the text; the
// handler keeps the text and lets OutputDebugStringA return.
LONG CALLBACK captureDebugString(EXCEPTION_POINTERS *ep) {
  const EXCEPTION_RECORD *r = ep->ExceptionRecord;
  if (r->ExceptionCode != 0x40010006 || r->NumberParameters < 2) return EXCEPTION_CONTINUE_SEARCH;
  const auto n = static_cast<size_t>(r->ExceptionInformation[0]);
  const auto *s = reinterpret_cast<const char *>(r->ExceptionInformation[1]);
  EnterCriticalSection(&g_captureLock);
  if (g_captured && n > 0) g_captured->append(s, n - 1);
  LeaveCriticalSection(&g_captureLock);
  return EXCEPTION_CONTINUE_EXECUTION;
}

std::map<std::string, ChildFn> &children() {
  static std::map<std::string, ChildFn> registry;
  return registry;
}

void removeTree(const std::string &dir) {
  WIN32_FIND_DATAA fd;
  HANDLE h = FindFirstFileA((dir + "\\*").c_str(), &fd);
  if (h != INVALID_HANDLE_VALUE) {
    do {
      const std::string name = fd.cFileName;
      if (name == "." || name == "..") continue;
      const std::string full = dir + "\\" + name;
      if (fd.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) {
        removeTree(full);
      } else {
        SetFileAttributesA(full.c_str(), FILE_ATTRIBUTE_NORMAL);
        DeleteFileA(full.c_str());
      }
    } while (FindNextFileA(h, &fd));
    FindClose(h);
  }
  RemoveDirectoryA(dir.c_str());
}

std::string selfPath() {
  char path[MAX_PATH];
  const DWORD n = GetModuleFileNameA(nullptr, path, MAX_PATH);
  return std::string(path, n);
}

std::vector<char> environmentWith(const std::map<std::string, std::string> &env) {
  std::vector<char> block;
  char *strings = GetEnvironmentStringsA();
  for (const char *p = strings; *p; p += std::strlen(p) + 1) {
    const std::string entry = p;
    const std::string name = entry.substr(0, entry.find('=', 1));
    bool replaced = false;
    for (const auto &kv : env)
      if (_stricmp(kv.first.c_str(), name.c_str()) == 0) replaced = true;
    if (!replaced) block.insert(block.end(), entry.c_str(), entry.c_str() + entry.size() + 1);
  }
  FreeEnvironmentStringsA(strings);
  for (const auto &kv : env) {
    if (kv.second.empty()) continue;
    const std::string entry = kv.first + "=" + kv.second;
    block.insert(block.end(), entry.c_str(), entry.c_str() + entry.size() + 1);
  }
  block.push_back('\0');
  return block;
}

HANDLE inheritableFile(const std::string &path) {
  SECURITY_ATTRIBUTES sa{sizeof sa, nullptr, TRUE};
  return CreateFileA(path.c_str(), GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, &sa,
                     CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
}

} // namespace

DebugCapture::DebugCapture() {
  InitOnceExecuteOnce(&g_captureOnce, initCapture, nullptr, nullptr);
  EnterCriticalSection(&g_captureLock);
  g_captured = new std::string;
  LeaveCriticalSection(&g_captureLock);
  handler_ = AddVectoredExceptionHandler(1, captureDebugString);
}

DebugCapture::~DebugCapture() {
  RemoveVectoredExceptionHandler(handler_);
  EnterCriticalSection(&g_captureLock);
  delete g_captured;
  g_captured = nullptr;
  LeaveCriticalSection(&g_captureLock);
}

std::string DebugCapture::text() const {
  EnterCriticalSection(&g_captureLock);
  std::string copy = *g_captured;
  LeaveCriticalSection(&g_captureLock);
  return copy;
}

void DebugCapture::clear() {
  EnterCriticalSection(&g_captureLock);
  g_captured->clear();
  LeaveCriticalSection(&g_captureLock);
}

TempDir::TempDir() {
  char base[MAX_PATH];
  GetTempPathA(MAX_PATH, base);
  static LONG counter;
  for (;;) {
    char name[MAX_PATH];
    std::snprintf(name, sizeof name, "%stov-%lu-%ld", base, GetCurrentProcessId(),
                  InterlockedIncrement(&counter));
    if (CreateDirectoryA(name, nullptr)) {
      path_ = name;
      return;
    }
  }
}

TempDir::~TempDir() {
  removeTree(path_);
}

std::string readFile(const std::string &path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

bool fileExists(const std::string &path) {
  return GetFileAttributesA(path.c_str()) != INVALID_FILE_ATTRIBUTES;
}

bool registerChild(const char *name, ChildFn fn) {
  children()[name] = fn;
  return true;
}

ChildResult runChild(const std::string &name, const std::map<std::string, std::string> &env,
                     const std::string &cwd) {
  ChildResult result;
  TempDir io;
  const std::string outPath = io.file("out"), errPath = io.file("err");
  HANDLE out = inheritableFile(outPath), err = inheritableFile(errPath);
  STARTUPINFOA si{};
  si.cb = sizeof si;
  si.dwFlags = STARTF_USESTDHANDLES;
  si.hStdInput = GetStdHandle(STD_INPUT_HANDLE);
  si.hStdOutput = out;
  si.hStdError = err;
  std::string cmd = "\"" + selfPath() + "\" --tov-child=" + name;
  std::vector<char> cmdLine(cmd.begin(), cmd.end());
  cmdLine.push_back('\0');
  std::vector<char> block = environmentWith(env);
  PROCESS_INFORMATION pi{};
  if (CreateProcessA(nullptr, cmdLine.data(), nullptr, nullptr, TRUE, 0, block.data(), cwd.c_str(),
                     &si, &pi)) {
    WaitForSingleObject(pi.hProcess, 60000);
    GetExitCodeProcess(pi.hProcess, &result.exitCode);
    CloseHandle(pi.hThread);
    CloseHandle(pi.hProcess);
  }
  CloseHandle(out);
  CloseHandle(err);
  result.out = readFile(outPath);
  result.err = readFile(errPath);
  return result;
}

} // namespace tovtest

int main(int argc, char **argv) {
  setvbuf(stdout, nullptr, _IONBF, 0);
  const char *childFlag = "--tov-child=";
  if (argc > 1 && std::strncmp(argv[1], childFlag, std::strlen(childFlag)) == 0) {
    const auto &registry = tovtest::children();
    const auto it = registry.find(argv[1] + std::strlen(childFlag));
    return it == registry.end() ? 99 : it->second();
  }
  testing::InitGoogleTest(&argc, argv);
  const int rc = RUN_ALL_TESTS();
  // Wine may end a broken program with status 0: the line below is what says
  // every test ran and passed.
  if (rc == 0)
    std::printf("TOV-TESTS-OK %d\n", testing::UnitTest::GetInstance()->successful_test_count());
  return rc;
}
