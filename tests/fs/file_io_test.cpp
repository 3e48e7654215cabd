// Transfers, positions, sizes (also above 4 GiB) and file information.
#include "file_fixture.h"

#include <ctime>

namespace {

using FileIO = FileTest;

constexpr uint64_t kGiB = 1ull << 30;

TEST_F(FileIO, PositionedTransfersLeaveThePositionAfterTheBytes) {
  makePatternFile("f", 1000);
  ScopedFile f;
  open("f", TOV_FILE_READ | TOV_FILE_WRITE, f);
  unsigned char buf[8] = {};
  uint64_t at = 100, n = 4, pos = 0;
  ASSERT_EQ(TOV_FileRead(f.h, &at, buf, &n), TOV_OK);
  EXPECT_EQ(n, 4u);
  EXPECT_EQ(at, 104u);
  EXPECT_EQ(buf[0], 100);
  EXPECT_EQ(buf[3], 103);
  ASSERT_EQ(TOV_FileTell(f.h, &pos), TOV_OK);
  EXPECT_EQ(pos, 104u);

  at = 10, n = 4;
  ASSERT_EQ(TOV_FileWrite(f.h, &at, "WXYZ", &n), TOV_OK);
  EXPECT_EQ(at, 14u);
  ASSERT_EQ(TOV_FileTell(f.h, &pos), TOV_OK);
  EXPECT_EQ(pos, 14u);
  EXPECT_EQ(contents("f").substr(8, 8), std::string("\x08\x09WXYZ\x0e\x0f"));

  // Past the end: the file grows, the gap reads as zeros.
  at = 1200, n = 1;
  ASSERT_EQ(TOV_FileWrite(f.h, &at, "E", &n), TOV_OK);
  EXPECT_EQ(at, 1201u);
  const std::string grown = contents("f");
  ASSERT_EQ(grown.size(), 1201u);
  EXPECT_EQ(grown.substr(1000, 200), std::string(200, '\0'));

  // A short read succeeds with the count it got.
  at = 1150, n = 100;
  unsigned char big[100];
  ASSERT_EQ(TOV_FileRead(f.h, &at, big, &n), TOV_OK);
  EXPECT_EQ(n, 51u);
  EXPECT_EQ(at, 1201u);

  // Nothing to read past the end: the position argument stays as it was.
  at = 2000, n = 4;
  EXPECT_EQ(TOV_FileRead(f.h, &at, buf, &n), TOV_ERR_END_OF_DATA);
  EXPECT_EQ(n, 0u);
  EXPECT_EQ(at, 2000u);
}

TEST_F(FileIO, SequentialReadsEndWithEndOfData) {
  makePatternFile("f", 1000);
  ScopedFile f;
  open("f", TOV_FILE_READ, f);
  unsigned char buf[600];
  uint64_t n = sizeof buf;
  ASSERT_EQ(TOV_FileRead(f.h, nullptr, buf, &n), TOV_OK);
  EXPECT_EQ(n, 600u);
  n = sizeof buf;
  ASSERT_EQ(TOV_FileRead(f.h, nullptr, buf, &n), TOV_OK);
  EXPECT_EQ(n, 400u);
  EXPECT_EQ(buf[0], 600 % 251);
  n = sizeof buf;
  EXPECT_EQ(TOV_FileRead(f.h, nullptr, buf, &n), TOV_ERR_END_OF_DATA);
  EXPECT_EQ(n, 0u);
}

// Only the low 32 bits of a count reach the platform; nothing read is the
// end of the data, nothing written is a success.
TEST_F(FileIO, CountsAndZeroLengthTransfers) {
  makeFile("f", "0123456789");
  ScopedFile f;
  open("f", TOV_FILE_READ | TOV_FILE_WRITE, f);
  char buf[16] = {};
  uint64_t n = (1ull << 32) | 4;
  ASSERT_EQ(TOV_FileRead(f.h, nullptr, buf, &n), TOV_OK);
  EXPECT_EQ(n, 4u);
  EXPECT_STREQ(buf, "0123");
  n = 1ull << 32;
  EXPECT_EQ(TOV_FileRead(f.h, nullptr, buf, &n), TOV_ERR_END_OF_DATA);
  EXPECT_EQ(n, 0u);
  n = 0;
  EXPECT_EQ(TOV_FileRead(f.h, nullptr, buf, &n), TOV_ERR_END_OF_DATA);
  n = 1ull << 32;
  EXPECT_EQ(TOV_FileWrite(f.h, nullptr, "abc", &n), TOV_OK);
  EXPECT_EQ(n, 0u);
  EXPECT_EQ(contents("f"), "0123456789");
}

TEST_F(FileIO, TransferFailures) {
  makeFile("f", "0123456789");
  ScopedFile f;
  open("f", TOV_FILE_READ, f);
  char buf[4];
  uint64_t n = 4, at = 3;
  EXPECT_EQ(TOV_FileRead(f.h, &at, nullptr, &n), TOV_ERR_INVALID_PARAMETER);
  EXPECT_EQ(TOV_FileRead(f.h, &at, buf, nullptr), TOV_ERR_INVALID_PARAMETER);
  EXPECT_EQ(TOV_FileWrite(f.h, &at, nullptr, &n), TOV_ERR_INVALID_PARAMETER);
  EXPECT_EQ(TOV_FileWrite(f.h, &at, "x", nullptr), TOV_ERR_INVALID_PARAMETER);
  EXPECT_EQ(n, 4u);
  EXPECT_EQ(at, 3u);
  // The count is written even on failure; the position only on success.
  EXPECT_EQ(TOV_FileWrite(f.h, &at, "abcd", &n), TOV_ERR_ACCESS_DENIED);
  EXPECT_EQ(n, 0u);
  EXPECT_EQ(at, 3u);
  n = 4;
  EXPECT_EQ(TOV_FileWrite(kBadHandle, &at, "abcd", &n), TOV_ERR_INVALID_HANDLE);
  EXPECT_EQ(n, 0u);
  n = 4;
  EXPECT_EQ(TOV_FileRead(kBadHandle, &at, buf, &n), TOV_ERR_END_OF_DATA);
  EXPECT_EQ(n, 0u);
  EXPECT_EQ(at, 3u);
  EXPECT_EQ(contents("f"), "0123456789");
}

// A chain of seeks on a 1000-byte file, each from where the last one left.
TEST_F(FileIO, SeekTable) {
  makePatternFile("f", 1000);
  ScopedFile f;
  open("f", TOV_FILE_READ, f);
  const struct {
    int64_t offset;
    uint32_t origin;
    uint64_t expected;
  } steps[] = {
      {100, TOV_FILE_SEEK_BEGIN, 100}, {-40, TOV_FILE_SEEK_CURRENT, 60},
      {0, TOV_FILE_SEEK_END, 1000},    {-1, TOV_FILE_SEEK_END, 999},
      {24, TOV_FILE_SEEK_END, 1024},   {0, TOV_FILE_SEEK_CURRENT, 1024},
      {0, TOV_FILE_SEEK_BEGIN, 0},
  };
  for (const auto &step : steps) {
    SCOPED_TRACE(testing::Message() << step.offset << " from " << step.origin);
    uint64_t pos = ~0ull, told = ~0ull;
    ASSERT_EQ(TOV_FileSeek(f.h, step.offset, step.origin, &pos), TOV_OK);
    EXPECT_EQ(pos, step.expected);
    ASSERT_EQ(TOV_FileTell(f.h, &told), TOV_OK);
    EXPECT_EQ(told, step.expected);
  }
  EXPECT_EQ(TOV_FileSeek(f.h, 5, TOV_FILE_SEEK_BEGIN, nullptr), TOV_OK);
}

TEST_F(FileIO, PositionAndSizeFailuresWriteNothing) {
  makeFile("f", "0123456789");
  ScopedFile f;
  open("f", TOV_FILE_READ, f);
  ASSERT_EQ(TOV_FileSeek(f.h, 4, TOV_FILE_SEEK_BEGIN, nullptr), TOV_OK);
  uint64_t out = 77;
  EXPECT_EQ(TOV_FileSeek(f.h, 0, 3, &out), TOV_ERR_INVALID_PARAMETER);
  // A move before the start is refused by the platform with a number the
  // library has no code for.
  EXPECT_EQ(TOV_FileSeek(f.h, -5, TOV_FILE_SEEK_CURRENT, &out), ERROR_NEGATIVE_SEEK);
  EXPECT_EQ(TOV_FileSeek(kBadHandle, 0, TOV_FILE_SEEK_BEGIN, &out), TOV_ERR_INVALID_HANDLE);
  EXPECT_EQ(TOV_FileTell(kBadHandle, &out), TOV_ERR_INVALID_HANDLE);
  EXPECT_EQ(TOV_FileSize(kBadHandle, &out), TOV_ERR_INVALID_HANDLE);
  EXPECT_EQ(out, 77u);
  EXPECT_EQ(TOV_FileTell(f.h, nullptr), TOV_ERR_INVALID_PARAMETER);
  EXPECT_EQ(TOV_FileSize(f.h, nullptr), TOV_ERR_INVALID_PARAMETER);
  ASSERT_EQ(TOV_FileTell(f.h, &out), TOV_OK);
  EXPECT_EQ(out, 4u);

  EXPECT_EQ(TOV_FileSetSize(f.h, 0x8000000000000000ull), TOV_ERR_INVALID_PARAMETER);
  // Read-only handle: Windows says access denied, Wine invalid parameter.
  EXPECT_NE(TOV_FileSetSize(f.h, 3), TOV_OK);
  EXPECT_EQ(TOV_FileSetSize(kBadHandle, 3), TOV_ERR_INVALID_HANDLE);
  EXPECT_EQ(contents("f"), "0123456789");
}

TEST_F(FileIO, SetSizeCutsAndLeavesThePositionThere) {
  makeFile("f", "0123456789");
  ScopedFile f;
  open("f", TOV_FILE_WRITE, f);
  uint64_t size = 0, pos = 0;
  ASSERT_EQ(TOV_FileSetSize(f.h, 3), TOV_OK);
  ASSERT_EQ(TOV_FileSize(f.h, &size), TOV_OK);
  ASSERT_EQ(TOV_FileTell(f.h, &pos), TOV_OK);
  EXPECT_EQ(size, 3u);
  EXPECT_EQ(pos, 3u);
  EXPECT_EQ(contents("f"), "012");
}

// Sizes and positions past 4 GiB, on a sparse file made by set-size only.
TEST_F(FileIO, AboveFourGiB) {
  ScopedFile f;
  open("big", TOV_FILE_CREATE | TOV_FILE_READ | TOV_FILE_WRITE, f);
  const uint64_t big = 5 * kGiB + 3;
  uint64_t size = 0, pos = 0;
  ASSERT_EQ(TOV_FileSetSize(f.h, big), TOV_OK);
  ASSERT_EQ(TOV_FileSize(f.h, &size), TOV_OK);
  EXPECT_EQ(size, big);
  ASSERT_EQ(TOV_FileTell(f.h, &pos), TOV_OK);
  EXPECT_EQ(pos, big);

  ASSERT_EQ(TOV_FileSeek(f.h, 4 * kGiB + 1, TOV_FILE_SEEK_BEGIN, &pos), TOV_OK);
  EXPECT_EQ(pos, 4 * kGiB + 1);
  ASSERT_EQ(TOV_FileSeek(f.h, -(int64_t)(4 * kGiB), TOV_FILE_SEEK_CURRENT, &pos), TOV_OK);
  EXPECT_EQ(pos, 1u);
  ASSERT_EQ(TOV_FileSeek(f.h, -3, TOV_FILE_SEEK_END, &pos), TOV_OK);
  EXPECT_EQ(pos, 5 * kGiB);

  uint64_t at = 4 * kGiB + 16, n = 4;
  ASSERT_EQ(TOV_FileWrite(f.h, &at, "abcd", &n), TOV_OK);
  EXPECT_EQ(at, 4 * kGiB + 20);
  char buf[8] = {};
  at = 4 * kGiB + 15, n = 6;
  ASSERT_EQ(TOV_FileRead(f.h, &at, buf, &n), TOV_OK);
  EXPECT_EQ(std::string(buf, 6), std::string("\0abcd\0", 6));
  EXPECT_EQ(at, 4 * kGiB + 21);

  TOV_FileInfo byHandle{}, byName{};
  ASSERT_EQ(TOV_FileInfoByHandle(f.h, &byHandle), TOV_OK);
  ASSERT_EQ(TOV_FileInfoByName(path("big").c_str(), &byName), TOV_OK);
  EXPECT_EQ(byHandle.size, big);
  EXPECT_EQ(byName.size, big);
  ASSERT_EQ(TOV_FileSetSize(f.h, 0), TOV_OK);
}

// A position or size of exactly 0xFFFFFFFF is valid although its low half
// is the platform's failure value: only a non-zero last error is a failure.
TEST_F(FileIO, LowHalfAllOnesIsAValidPosition) {
  ScopedFile f;
  open("f", TOV_FILE_CREATE | TOV_FILE_READ | TOV_FILE_WRITE, f);
  const uint64_t edge = 0xFFFFFFFFull;
  uint64_t pos = 0, size = 0;
  SetLastError(ERROR_INVALID_DATA);
  ASSERT_EQ(TOV_FileSetSize(f.h, edge), TOV_OK);
  SetLastError(ERROR_INVALID_DATA);
  ASSERT_EQ(TOV_FileSize(f.h, &size), TOV_OK);
  EXPECT_EQ(size, edge);
  SetLastError(ERROR_INVALID_DATA);
  ASSERT_EQ(TOV_FileTell(f.h, &pos), TOV_OK);
  EXPECT_EQ(pos, edge);
  ASSERT_EQ(TOV_FileSeek(f.h, 0, TOV_FILE_SEEK_BEGIN, nullptr), TOV_OK);
  SetLastError(ERROR_INVALID_DATA);
  ASSERT_EQ(TOV_FileSeek(f.h, edge, TOV_FILE_SEEK_BEGIN, &pos), TOV_OK);
  EXPECT_EQ(pos, edge);
  uint64_t at = edge - 2, n = 2;
  char buf[2];
  SetLastError(ERROR_INVALID_DATA);
  ASSERT_EQ(TOV_FileRead(f.h, &at, buf, &n), TOV_OK);
  EXPECT_EQ(at, edge);
  ASSERT_EQ(TOV_FileSetSize(f.h, 0), TOV_OK);
}

FILETIME fileTimeOf(int64_t unixSeconds, uint32_t ticks) {
  const uint64_t t =
      static_cast<uint64_t>(unixSeconds) * 10000000ull + 116444736000000000ull + ticks;
  return FILETIME{static_cast<DWORD>(t), static_cast<DWORD>(t >> 32)};
}

TEST_F(FileIO, InfoByHandleAndByNameAgree) {
  ScopedFile f;
  open("f", TOV_FILE_CREATE | TOV_FILE_WRITE, f);
  uint64_t n = 5;
  ASSERT_EQ(TOV_FileWrite(f.h, nullptr, "hello", &n), TOV_OK);
  const int64_t now = static_cast<int64_t>(std::time(nullptr));
  TOV_FileInfo a{}, b{};
  ASSERT_EQ(TOV_FileInfoByHandle(f.h, &a), TOV_OK);
  ASSERT_EQ(TOV_FileInfoByName(path("f").c_str(), &b), TOV_OK);
  EXPECT_EQ(a.size, 5u);
  EXPECT_NEAR(static_cast<double>(a.modified), static_cast<double>(now), 5.0);
  EXPECT_LE(a.created, a.modified);

  // A known last-write time with a fraction: whole seconds, fraction dropped,
  // the same through both paths.
  const FILETIME written = fileTimeOf(1000000000, 6797530);
  ASSERT_TRUE(SetFileTime(f.h, nullptr, nullptr, &written));
  ASSERT_EQ(TOV_FileInfoByHandle(f.h, &a), TOV_OK);
  ASSERT_EQ(TOV_FileInfoByName(path("f").c_str(), &b), TOV_OK);
  EXPECT_EQ(a.modified, 1000000000);
  EXPECT_EQ(b.modified, a.modified);
  EXPECT_EQ(b.created, a.created);
  EXPECT_EQ(b.size, a.size);
}

TEST_F(FileIO, InfoFailuresWriteNothing) {
  const TOV_FileInfo marker{1, 2, 3};
  TOV_FileInfo info = marker;
  EXPECT_EQ(TOV_FileInfoByHandle(nullptr, &info), TOV_ERR_INVALID_PARAMETER);
  EXPECT_EQ(TOV_FileInfoByHandle(kBadHandle, nullptr), TOV_ERR_INVALID_PARAMETER);
  EXPECT_EQ(TOV_FileInfoByHandle(kBadHandle, &info), TOV_ERR_INVALID_HANDLE);
  EXPECT_EQ(TOV_FileInfoByName(path("none").c_str(), &info), TOV_ERR_NOT_FOUND);
  EXPECT_EQ(info.created, 1);
  EXPECT_EQ(info.modified, 2);
  EXPECT_EQ(info.size, 3u);
  // Directories have information by name too.
  EXPECT_EQ(TOV_FileInfoByName(dir_.path().c_str(), &info), TOV_OK);
}

} // namespace
