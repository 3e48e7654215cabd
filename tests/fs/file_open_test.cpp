// Opening, sharing, attributes, closing, duplicating, committing and deleting.
#include "file_fixture.h"

#include <cstdio>

namespace {

TEST(FileNotStarted, CountedFunctionsRefuseBeforeStartup) {
  TOV_FileHandle h = kBadHandle;
  uint64_t u = 0;
  TOV_FileInfo info{};
  const TOV_Status results[] = {
      TOV_FileOpen(nullptr, 0, 0, 0, nullptr),
      TOV_FileOpen("x", TOV_FILE_CREATE, 0, 0, &h),
      TOV_FileClose(nullptr),
      TOV_FileClose(&h),
      TOV_FileRead(h, nullptr, nullptr, nullptr),
      TOV_FileWrite(h, &u, &u, &u),
      TOV_FileSeek(h, 0, 7, nullptr),
      TOV_FileTell(h, nullptr),
      TOV_FileSize(h, nullptr),
      TOV_FileSetSize(h, ~0ull),
      TOV_FileInfoByHandle(nullptr, nullptr),
      TOV_FileInfoByHandle(h, &info),
  };
  for (TOV_Status s : results) EXPECT_EQ(s, TOV_ERR_NOT_INITIALIZED);
  EXPECT_EQ(h, kBadHandle); // the close did not clear it
}

TEST(FileNotStarted, UncountedFunctionsWorkBeforeStartup) {
  tovtest::TempDir dir;
  const std::string name = dir.file("f");
  HANDLE raw =
      CreateFileA(name.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, CREATE_NEW, 0, nullptr);
  ASSERT_NE(raw, INVALID_HANDLE_VALUE);
  TOV_FileHandle copy = nullptr;
  EXPECT_EQ(TOV_FileDup(raw, &copy), TOV_OK);
  EXPECT_EQ(TOV_FileCommit(copy), TOV_OK);
  CloseHandle(copy);
  CloseHandle(raw);
  TOV_FileInfo info{};
  uint32_t attributes = 0;
  EXPECT_EQ(TOV_FileInfoByName(name.c_str(), &info), TOV_OK);
  EXPECT_EQ(TOV_FileGetAttrib(name.c_str(), &attributes), TOV_OK);
  EXPECT_EQ(TOV_FileDelete(name.c_str()), TOV_OK);
  EXPECT_FALSE(tovtest::fileExists(name));
}

using FileOpen = FileTest;

// The creation dispositions: what each combination of CREATE, TRUNCATE and
// EXCLUSIVE does to an existing 10-byte file and to a missing one.
TEST_F(FileOpen, DispositionTable) {
  struct Row {
    uint32_t flags;
    TOV_Status existing;
    size_t sizeAfter; // of the existing file
    TOV_Status missing;
  };
  const uint32_t C = TOV_FILE_CREATE, T = TOV_FILE_TRUNCATE, X = TOV_FILE_EXCLUSIVE;
  const Row rows[] = {
      {0, TOV_OK, 10, TOV_ERR_NOT_FOUND},    {C, TOV_OK, 10, TOV_OK},
      {T, TOV_OK, 0, TOV_ERR_NOT_FOUND},     {C | T, TOV_OK, 0, TOV_OK},
      {X, TOV_OK, 10, TOV_ERR_NOT_FOUND},    {C | X, TOV_ERR_ALREADY_EXISTS, 10, TOV_OK},
      {T | X, TOV_OK, 0, TOV_ERR_NOT_FOUND}, {C | T | X, TOV_ERR_ALREADY_EXISTS, 10, TOV_OK},
  };
  for (const Row &row : rows) {
    SCOPED_TRACE(testing::Message() << "flags 0x" << std::hex << row.flags);
    makeFile("old", "0123456789");
    TOV_FileHandle h = kBadHandle;
    ASSERT_EQ(TOV_FileOpen(path("old").c_str(), row.flags | TOV_FILE_READ, 0, 0, &h), row.existing);
    if (row.existing == TOV_OK) {
      EXPECT_NE(h, kBadHandle);
      EXPECT_EQ(TOV_FileClose(&h), TOV_OK);
    } else {
      EXPECT_EQ(h, kBadHandle);
    }
    EXPECT_EQ(contents("old"), std::string("0123456789").substr(0, row.sizeAfter));

    ASSERT_FALSE(exists("new"));
    h = kBadHandle;
    ASSERT_EQ(TOV_FileOpen(path("new").c_str(), row.flags | TOV_FILE_READ, 0, 0, &h), row.missing);
    if (row.missing == TOV_OK) {
      EXPECT_EQ(TOV_FileClose(&h), TOV_OK);
      EXPECT_TRUE(exists("new"));
      EXPECT_EQ(contents("new"), "");
      ASSERT_TRUE(DeleteFileA(path("new").c_str()));
    } else {
      EXPECT_EQ(h, kBadHandle);
      EXPECT_FALSE(exists("new"));
    }
  }
}

TEST_F(FileOpen, MissingFolderAndNullArguments) {
  TOV_FileHandle h = kBadHandle;
  EXPECT_EQ(TOV_FileOpen(path("no\\f").c_str(), TOV_FILE_CREATE, 0, 0, &h), TOV_ERR_NOT_FOUND);
  EXPECT_EQ(TOV_FileOpen(nullptr, TOV_FILE_CREATE, 0, 0, &h), TOV_ERR_INVALID_PARAMETER);
  EXPECT_EQ(h, kBadHandle);
  EXPECT_EQ(TOV_FileOpen(path("f").c_str(), TOV_FILE_CREATE, 0, 0, nullptr),
            TOV_ERR_INVALID_PARAMETER);
  EXPECT_FALSE(exists("f"));
  // A directory cannot be opened as a file.
  EXPECT_EQ(TOV_FileOpen(dir_.path().c_str(), TOV_FILE_READ, 0, 0, &h), TOV_ERR_ACCESS_DENIED);
}

// Which open flags give read and write access; unknown bits change nothing.
TEST_F(FileOpen, AccessTable) {
  struct Row {
    uint32_t flags;
    bool canRead, canWrite;
  };
  const Row rows[] = {
      {0, false, false},
      {TOV_FILE_READ, true, false},
      {TOV_FILE_WRITE, false, true},
      {TOV_FILE_READ | TOV_FILE_WRITE, true, true},
      {TOV_FILE_APPEND, false, true},
      {TOV_FILE_READ | TOV_FILE_TRUNCATE, true, true},
      {TOV_FILE_READ | 0x4 | 0x10 | 0x80 | 0x800 | 0x10000, true, false},
  };
  for (const Row &row : rows) {
    SCOPED_TRACE(testing::Message() << "flags 0x" << std::hex << row.flags);
    makeFile("f", "0123456789");
    ScopedFile f;
    open("f", row.flags, f);
    char byte = 'z';
    uint64_t at = 0, n = 1;
    // Reading on a handle without read access fails, and nothing read is
    // reported as the end of the data.
    EXPECT_EQ(TOV_FileWrite(f.h, &at, "W", &n), row.canWrite ? TOV_OK : TOV_ERR_ACCESS_DENIED);
    EXPECT_EQ(n, row.canWrite ? 1u : 0u);
    at = 0, n = 1;
    EXPECT_EQ(TOV_FileRead(f.h, &at, &byte, &n), row.canRead ? TOV_OK : TOV_ERR_END_OF_DATA);
    EXPECT_EQ(n, row.canRead ? 1u : 0u);
    if (row.canRead) {
      EXPECT_EQ(byte, row.canWrite ? 'W' : '0');
    }
  }
}

// A second open of a file against the first one's access and sharing.
TEST_F(FileOpen, ShareTable) {
  const uint32_t R = TOV_FILE_READ, W = TOV_FILE_WRITE;
  const uint32_t SR = TOV_FILE_SHARE_READ, SW = TOV_FILE_SHARE_WRITE;
  struct Row {
    uint32_t flags1, share1, flags2, share2;
    TOV_Status second;
  };
  const Row rows[] = {
      {R, 0, R, SR | SW, ERROR_SHARING_VIOLATION},
      {R, SR, R, SR, TOV_OK},
      {R, SR, W, SR | SW, ERROR_SHARING_VIOLATION},
      {W, SR | SW, R | W, SR | SW, TOV_OK},
      {W, SR | SW, R, SR, ERROR_SHARING_VIOLATION}, // the second must let the first write
      {R, SW, W, SR, TOV_OK},
      {R, SR | 0xFC, W, SR | SW, ERROR_SHARING_VIOLATION},
      {R, 0, 0, 0, TOV_OK}, // no data access needs no sharing
  };
  makeFile("f", "data");
  for (const Row &row : rows) {
    SCOPED_TRACE(testing::Message() << "first 0x" << std::hex << row.flags1 << "/" << row.share1
                                    << ", second 0x" << row.flags2 << "/" << row.share2);
    ScopedFile first, second;
    open("f", row.flags1, first, row.share1);
    EXPECT_EQ(TOV_FileOpen(path("f").c_str(), row.flags2, row.share2, 0, &second.h), row.second);
  }
}

// Attributes are given to a file that the open creates, and only then.
TEST_F(FileOpen, AttributeTable) {
  const struct {
    uint32_t flag;
    DWORD platform;
  } rows[] = {
      {TOV_FILE_ATTR_ARCHIVE, FILE_ATTRIBUTE_ARCHIVE},
      {TOV_FILE_ATTR_HIDDEN, FILE_ATTRIBUTE_HIDDEN},
      {TOV_FILE_ATTR_READONLY, FILE_ATTRIBUTE_READONLY},
      {TOV_FILE_ATTR_SYSTEM, FILE_ATTRIBUTE_SYSTEM},
  };
  const DWORD special = FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_SYSTEM;
  for (const auto &row : rows) {
    SCOPED_TRACE(testing::Message() << "flag " << row.flag);
    char leaf[16];
    std::snprintf(leaf, sizeof leaf, "f%u", row.flag);
    const std::string name = path(leaf);
    TOV_FileHandle h = nullptr;
    ASSERT_EQ(TOV_FileOpen(name.c_str(), TOV_FILE_CREATE | TOV_FILE_WRITE, 0, row.flag, &h),
              TOV_OK);
    EXPECT_EQ(TOV_FileClose(&h), TOV_OK);
    uint32_t word = 0;
    ASSERT_EQ(TOV_FileGetAttrib(name.c_str(), &word), TOV_OK);
    EXPECT_EQ(word & row.platform, row.platform);
    EXPECT_EQ(word & special & ~row.platform, 0u);
  }
  // No flag: no special attribute. An existing file keeps what it has.
  ScopedFile plain;
  open("plain", TOV_FILE_CREATE | TOV_FILE_WRITE, plain);
  ASSERT_EQ(TOV_FileClose(&plain.h), TOV_OK);
  ASSERT_EQ(
      TOV_FileOpen(path("plain").c_str(), TOV_FILE_CREATE, 0, TOV_FILE_ATTR_READONLY, &plain.h),
      TOV_OK);
  uint32_t word = 0;
  ASSERT_EQ(TOV_FileGetAttrib(path("plain").c_str(), &word), TOV_OK);
  EXPECT_EQ(word & special, 0u);
}

TEST_F(FileOpen, AppendMovesToTheEndOnce) {
  makeFile("f", "0123456789");
  ScopedFile f;
  open("f", TOV_FILE_APPEND, f);
  uint64_t pos = 0, n = 2;
  ASSERT_EQ(TOV_FileTell(f.h, &pos), TOV_OK);
  EXPECT_EQ(pos, 10u);
  ASSERT_EQ(TOV_FileWrite(f.h, nullptr, "ab", &n), TOV_OK);
  // Later writes go to the current position, as usual.
  ASSERT_EQ(TOV_FileSeek(f.h, 0, TOV_FILE_SEEK_BEGIN, nullptr), TOV_OK);
  n = 1;
  ASSERT_EQ(TOV_FileWrite(f.h, nullptr, "X", &n), TOV_OK);
  EXPECT_EQ(contents("f"), "X123456789ab");

  ScopedFile created;
  open("new", TOV_FILE_APPEND | TOV_FILE_CREATE, created);
  ASSERT_EQ(TOV_FileTell(created.h, &pos), TOV_OK);
  EXPECT_EQ(pos, 0u);
}

TEST_F(FileOpen, CloseClearsTheVariableAlsoOnFailure) {
  ScopedFile f;
  open("f", TOV_FILE_CREATE, f);
  EXPECT_EQ(TOV_FileClose(&f.h), TOV_OK);
  EXPECT_EQ(f.h, nullptr);
  TOV_FileHandle bad = kBadHandle;
  EXPECT_EQ(TOV_FileClose(&bad), TOV_ERR_INVALID_HANDLE);
  EXPECT_EQ(bad, nullptr);
  EXPECT_EQ(TOV_FileClose(nullptr), TOV_ERR_INVALID_PARAMETER);
}

TEST_F(FileOpen, DupSharesPositionAndAccess) {
  ScopedFile f, copy;
  open("f", TOV_FILE_CREATE | TOV_FILE_WRITE, f);
  ASSERT_EQ(TOV_FileDup(f.h, &copy.h), TOV_OK);
  ASSERT_NE(copy.h, f.h);
  DWORD flags = 0;
  ASSERT_TRUE(GetHandleInformation(copy.h, &flags));
  EXPECT_TRUE(flags & HANDLE_FLAG_INHERIT);

  uint64_t n = 5, pos = 0;
  ASSERT_EQ(TOV_FileWrite(f.h, nullptr, "hello", &n), TOV_OK);
  ASSERT_EQ(TOV_FileTell(copy.h, &pos), TOV_OK);
  EXPECT_EQ(pos, 5u);
  ASSERT_EQ(TOV_FileSeek(copy.h, 1, TOV_FILE_SEEK_BEGIN, nullptr), TOV_OK);
  ASSERT_EQ(TOV_FileTell(f.h, &pos), TOV_OK);
  EXPECT_EQ(pos, 1u);
  char c;
  n = 1;
  EXPECT_EQ(TOV_FileRead(copy.h, nullptr, &c, &n), TOV_ERR_END_OF_DATA); // write-only, as f

  TOV_FileHandle out = kBadHandle;
  EXPECT_EQ(TOV_FileDup(kBadHandle, &out), TOV_ERR_INVALID_HANDLE);
  EXPECT_EQ(out, kBadHandle);
}

TEST_F(FileOpen, Commit) {
  ScopedFile w, r;
  open("f", TOV_FILE_CREATE | TOV_FILE_WRITE, w, TOV_FILE_SHARE_READ | TOV_FILE_SHARE_WRITE);
  open("f", TOV_FILE_READ, r, TOV_FILE_SHARE_READ | TOV_FILE_SHARE_WRITE);
  uint64_t n = 3;
  ASSERT_EQ(TOV_FileWrite(w.h, nullptr, "abc", &n), TOV_OK);
  EXPECT_EQ(TOV_FileCommit(w.h), TOV_OK);
  EXPECT_EQ(TOV_FileCommit(r.h), TOV_ERR_ACCESS_DENIED);
  EXPECT_EQ(TOV_FileCommit(kBadHandle), TOV_ERR_INVALID_HANDLE);
}

TEST_F(FileOpen, Delete) {
  makeFile("f", "x");
  EXPECT_EQ(TOV_FileDelete(path("f").c_str()), TOV_OK);
  EXPECT_FALSE(exists("f"));
  EXPECT_EQ(TOV_FileDelete(path("f").c_str()), TOV_ERR_NOT_FOUND);
  EXPECT_EQ(TOV_FileDelete(path("no\\f").c_str()), TOV_ERR_NOT_FOUND);
  EXPECT_EQ(TOV_FileDelete(dir_.path().c_str()), TOV_ERR_ACCESS_DENIED);

  makeFile("ro", "x");
  ASSERT_TRUE(SetFileAttributesA(path("ro").c_str(), FILE_ATTRIBUTE_READONLY));
  EXPECT_EQ(TOV_FileDelete(path("ro").c_str()), TOV_ERR_ACCESS_DENIED);
  EXPECT_TRUE(exists("ro"));

  // Deletion is never shared, whatever bits the share word carries.
  ScopedFile open_;
  open("open", TOV_FILE_CREATE | TOV_FILE_READ, open_, 0xFFFFFFFF);
  EXPECT_EQ(TOV_FileDelete(path("open").c_str()), ERROR_SHARING_VIOLATION);
  EXPECT_TRUE(exists("open"));
}

TEST_F(FileOpen, GetAttrib) {
  uint32_t word = 0;
  ASSERT_EQ(TOV_FileGetAttrib(dir_.path().c_str(), &word), TOV_OK);
  EXPECT_TRUE(word & FILE_ATTRIBUTE_DIRECTORY);
  makeFile("ro", "x");
  ASSERT_TRUE(SetFileAttributesA(path("ro").c_str(), FILE_ATTRIBUTE_READONLY));
  ASSERT_EQ(TOV_FileGetAttrib(path("ro").c_str(), &word), TOV_OK);
  EXPECT_EQ(word & (FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_DIRECTORY), FILE_ATTRIBUTE_READONLY);
  word = 0xABCD;
  EXPECT_EQ(TOV_FileGetAttrib(path("none").c_str(), &word), TOV_ERR_NOT_FOUND);
  EXPECT_EQ(word, 0xABCDu);
}

} // namespace
