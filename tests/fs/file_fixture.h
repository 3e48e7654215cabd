// A started library and a fresh folder per test, with small helpers for
// making and inspecting files behind the library's back.
#pragma once

#include "support.h"
#include "tov.h"

#include <gtest/gtest.h>

#include <string>

// A handle value no open ever returns.
inline TOV_FileHandle const kBadHandle = reinterpret_cast<TOV_FileHandle>(0x7FFFFFF0);

// Closes a library file handle at the end of a test, whatever happened.
struct ScopedFile {
  TOV_FileHandle h = nullptr;
  ~ScopedFile() {
    if (h) TOV_FileClose(&h);
  }
};

class FileTest : public ::testing::Test {
protected:
  static void SetUpTestSuite() { ASSERT_EQ(TOV_Startup(nullptr, 0, nullptr, nullptr), TOV_OK); }
  static void TearDownTestSuite() { TOV_Cleanup(nullptr); }

  std::string path(const char *name) const { return dir_.file(name); }

  void makeFile(const char *name, const std::string &content) const {
    HANDLE h =
        CreateFileA(path(name).c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr);
    ASSERT_NE(h, INVALID_HANDLE_VALUE);
    DWORD n = 0;
    ASSERT_TRUE(WriteFile(h, content.data(), static_cast<DWORD>(content.size()), &n, nullptr));
    CloseHandle(h);
  }

  // A file of n bytes, byte i holding i % 251.
  void makePatternFile(const char *name, size_t n) const {
    std::string content(n, '\0');
    for (size_t i = 0; i < n; ++i) content[i] = static_cast<char>(i % 251);
    makeFile(name, content);
  }

  std::string contents(const char *name) const { return tovtest::readFile(path(name)); }
  bool exists(const char *name) const { return tovtest::fileExists(path(name)); }

  // Opens through the library; the test fails when the open does. Shared by
  // default, so that contents() can read the file while it is open.
  void open(const char *name, uint32_t flags, ScopedFile &f,
            uint32_t share = TOV_FILE_SHARE_READ | TOV_FILE_SHARE_WRITE) const {
    ASSERT_EQ(TOV_FileOpen(path(name).c_str(), flags, share, 0, &f.h), TOV_OK) << name;
  }

  tovtest::TempDir dir_;
};
