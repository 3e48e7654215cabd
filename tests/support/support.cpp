#include "support.h"

#include <winsock2.h>

#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <mutex>
#include <vector>

namespace tovtest {
namespace {

std::mutex g_captureLock;
std::string *g_captured; // the live capture's text, guarded by g_captureLock

// Wine's OutputDebugStringA raises DBG_PRINTEXCEPTION_C with the text; the
// handler keeps the text and lets OutputDebugStringA return.
LONG CALLBACK captureDebugString(EXCEPTION_POINTERS *ep) {
  const EXCEPTION_RECORD *r = ep->ExceptionRecord;
  if (r->ExceptionCode != 0x40010006 || r->NumberParameters < 2) return EXCEPTION_CONTINUE_SEARCH;
  std::lock_guard lock(g_captureLock);
  if (g_captured && r->ExceptionInformation[0] > 0)
    g_captured->append(reinterpret_cast<const char *>(r->ExceptionInformation[1]),
                       r->ExceptionInformation[0] - 1);
  return EXCEPTION_CONTINUE_EXECUTION;
}

std::map<std::string, ChildFn> &children() {
  static std::map<std::string, ChildFn> registry;
  return registry;
}

void removeTree(const std::string &dir) {
  WIN32_FIND_DATAA fd;
  HANDLE h = FindFirstFileA((dir + "\\*").c_str(), &fd);
  for (bool more = h != INVALID_HANDLE_VALUE; more; more = FindNextFileA(h, &fd)) {
    const std::string name = fd.cFileName, full = dir + "\\" + name;
    if (name == "." || name == "..") continue;
    if (fd.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) {
      removeTree(full);
    } else {
      SetFileAttributesA(full.c_str(), FILE_ATTRIBUTE_NORMAL);
      DeleteFileA(full.c_str());
    }
  }
  if (h != INVALID_HANDLE_VALUE) FindClose(h);
  RemoveDirectoryA(dir.c_str());
}

// This process's environment with env's names replaced (or, with an empty
// value, removed), as a CreateProcess environment block.
std::vector<char> environmentWith(const std::map<std::string, std::string> &env) {
  std::vector<char> block;
  auto add = [&](const std::string &entry) {
    block.insert(block.end(), entry.begin(), entry.end() + 1);
  };
  char *strings = GetEnvironmentStringsA();
  for (const char *p = strings; *p; p += std::strlen(p) + 1) {
    const std::string entry = p, name = entry.substr(0, entry.find('=', 1));
    bool replaced = false;
    for (const auto &kv : env) replaced |= _stricmp(kv.first.c_str(), name.c_str()) == 0;
    if (!replaced) add(entry);
  }
  FreeEnvironmentStringsA(strings);
  for (const auto &kv : env)
    if (!kv.second.empty()) add(kv.first + "=" + kv.second);
  block.push_back('\0');
  return block;
}

} // namespace

DebugCapture::DebugCapture() {
  std::lock_guard lock(g_captureLock);
  g_captured = new std::string;
  handler_ = AddVectoredExceptionHandler(1, captureDebugString);
}

DebugCapture::~DebugCapture() {
  RemoveVectoredExceptionHandler(handler_);
  std::lock_guard lock(g_captureLock);
  delete g_captured;
  g_captured = nullptr;
}

std::string DebugCapture::text() const {
  std::lock_guard lock(g_captureLock);
  return *g_captured;
}

TempDir::TempDir() {
  static LONG counter;
  char base[MAX_PATH], name[MAX_PATH];
  GetTempPathA(MAX_PATH, base);
  do {
    std::snprintf(name, sizeof name, "%stov-%lu-%ld", base, GetCurrentProcessId(),
                  InterlockedIncrement(&counter));
  } while (!CreateDirectoryA(name, nullptr));
  path_ = name;
}

TempDir::~TempDir() {
  removeTree(path_);
}

std::string readFile(const std::string &path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

bool winsockStarted() {
  const SOCKET s = socket(AF_INET, SOCK_DGRAM, IPPROTO_UDP);
  return s != INVALID_SOCKET && closesocket(s) == 0;
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
  TempDir io;
  SECURITY_ATTRIBUTES inherit{sizeof inherit, nullptr, TRUE};
  auto output = [&](const char *file) {
    return CreateFileA(io.file(file).c_str(), GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE,
                       &inherit, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
  };
  STARTUPINFOA si{};
  si.cb = sizeof si;
  si.dwFlags = STARTF_USESTDHANDLES;
  si.hStdInput = GetStdHandle(STD_INPUT_HANDLE);
  si.hStdOutput = output("out");
  si.hStdError = output("err");
  char self[MAX_PATH];
  GetModuleFileNameA(nullptr, self, MAX_PATH);
  std::string cmd = "\"" + std::string(self) + "\" --tov-child=" + name;
  std::vector<char> block = environmentWith(env);
  PROCESS_INFORMATION pi{};
  ChildResult result;
  if (CreateProcessA(nullptr, cmd.data(), nullptr, nullptr, TRUE, 0, block.data(), cwd.c_str(), &si,
                     &pi)) {
    WaitForSingleObject(pi.hProcess, 60000);
    GetExitCodeProcess(pi.hProcess, &result.exitCode);
    CloseHandle(pi.hThread);
    CloseHandle(pi.hProcess);
  }
  CloseHandle(si.hStdOutput);
  CloseHandle(si.hStdError);
  result.out = readFile(io.file("out"));
  result.err = readFile(io.file("err"));
  return result;
}

} // namespace tovtest

int main(int argc, char **argv) {
  setvbuf(stdout, nullptr, _IONBF, 0);
  const char *childFlag = "--tov-child=";
  if (argc > 1 && std::strncmp(argv[1], childFlag, std::strlen(childFlag)) == 0) {
    const auto it = tovtest::children().find(argv[1] + std::strlen(childFlag));
    return it == tovtest::children().end() ? 99 : it->second();
  }
  testing::InitGoogleTest(&argc, argv);
  const int rc = RUN_ALL_TESTS();
  // Wine may end a broken program with status 0: this line is what says that
  // every test ran and passed.
  if (rc == 0)
    std::printf("TOV-TESTS-OK %d\n", testing::UnitTest::GetInstance()->successful_test_count());
  return rc;
}
