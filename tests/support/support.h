// Shared pieces of the test programs: capture of debug-output lines, a
// temporary folder per test, and child processes of the test program itself.
#pragma once

#include <windows.h>

#include <map>
#include <string>

namespace tovtest {

// Collects every line handed to the system debugger while it lives.
class DebugCapture {
public:
  DebugCapture();
  ~DebugCapture();
  DebugCapture(const DebugCapture &) = delete;
  DebugCapture &operator=(const DebugCapture &) = delete;
  std::string text() const;

private:
  void *handler_;
};

// A fresh, empty folder, removed with its contents at the end.
class TempDir {
public:
  TempDir();
  ~TempDir();
  TempDir(const TempDir &) = delete;
  TempDir &operator=(const TempDir &) = delete;
  const std::string &path() const { return path_; }
  std::string file(const std::string &name) const { return path_ + "\\" + name; }

private:
  std::string path_;
};

std::string readFile(const std::string &path);
// Whether Winsock is started in this process (a socket can be made). Test
// programs make no start of their own, so this tells whether the library
// holds one.
bool winsockStarted();
bool fileExists(const std::string &path);

struct ChildResult {
  DWORD exitCode = 0xFFFFFFFF;
  std::string out; // standard output, as bytes
  std::string err; // standard error, as bytes
};

// Runs this test program again as `--tov-child=<name>`: the function that
// TOV_TEST_CHILD registered under that name runs instead of the tests. env
// replaces (or, with an empty value, removes) variables of the environment.
ChildResult runChild(const std::string &name, const std::map<std::string, std::string> &env,
                     const std::string &cwd);

using ChildFn = int (*)();
bool registerChild(const char *name, ChildFn fn);

} // namespace tovtest

#define TOV_TEST_CHILD(name)                                                                       \
  static int child_##name();                                                                       \
  static const bool registered_##name = ::tovtest::registerChild(#name, child_##name);             \
  static int child_##name()
