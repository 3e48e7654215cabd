// Files through the library: dispositions, sharing, append, positioned
// transfers, sizes above 4 GiB and failures.
#include "support.h"
#include "tov.h"

#include <gtest/gtest.h>

#include <ctime>
#include <fstream>

// Short names for the tables. kBad is a handle value no open ever returns.
static TOV_FileHandle const kBad = reinterpret_cast<TOV_FileHandle>(0x7FFFFFF0);
static const uint32_t R = TOV_FILE_READ, W = TOV_FILE_WRITE, C = TOV_FILE_CREATE,
                      T = TOV_FILE_TRUNCATE, X = TOV_FILE_EXCLUSIVE, SR = TOV_FILE_SHARE_READ,
                      SW = TOV_FILE_SHARE_WRITE;
static const TOV_Status OK = TOV_OK, NF = TOV_ERR_NOT_FOUND, AE = TOV_ERR_ALREADY_EXISTS,
                        END = TOV_ERR_END_OF_DATA, SV = ERROR_SHARING_VIOLATION;
// The status codes of calls listed in braces, which run in the order written.
using Codes = std::vector<TOV_Status>;

// An open through the library that must give `expect`, closed at the end of
// its scope. A failed open leaves the handle variable as it was.
struct File {
  TOV_FileHandle h = kBad;
  File(const std::string &path, uint32_t flags, uint32_t share = SR | SW, TOV_Status expect = OK) {
    EXPECT_EQ(TOV_FileOpen(path.c_str(), flags, share, 0, &h), expect) << path;
    EXPECT_EQ(h == kBad, expect != OK);
  }
  ~File() { TOV_FileClose(h && h != kBad ? &h : nullptr); }
};

// A started library, and a fresh folder holding "f" = "0123456789".
struct FileTest : ::testing::Test {
  static void SetUpTestSuite() { ASSERT_EQ(TOV_Startup(nullptr, 0, nullptr, nullptr), OK); }
  static void TearDownTestSuite() { TOV_Cleanup(nullptr); }
  void SetUp() override { std::ofstream(dir_.file("f")) << "0123456789"; }
  tovtest::TempDir dir_;
};

// Every disposition (flags) against the existing "f" and a missing file: the
// open's status, whether "f" is cut, and whether the missing file now exists.
TEST_F(FileTest, DispositionTable) {
  const std::tuple<uint32_t, TOV_Status, bool, TOV_Status> rows[] = {
      {0, OK, 0, NF}, {C, OK, 0, OK},     {T, OK, 1, NF},     {C | T, OK, 1, OK},
      {X, OK, 0, NF}, {C | X, AE, 0, OK}, {T | X, OK, 1, NF}, {C | T | X, AE, 0, OK}};
  for (auto [flags, existing, cut, missing] : rows) {
    SCOPED_TRACE(flags);
    SetUp();
    File(dir_.file("f"), flags | R, 0, existing);
    EXPECT_EQ(tovtest::readFile(dir_.file("f")), cut ? "" : "0123456789");
    File(dir_.file("new"), flags | R, 0, missing);
    EXPECT_EQ(DeleteFileA(dir_.file("new").c_str()) != 0, missing == OK);
  }
}

// A second open of "f" against the first one's access and sharing; the
// second must also let the first do what it does. Unknown share bits are
// ignored.
TEST_F(FileTest, ShareTable) {
  const std::tuple<uint32_t, uint32_t, uint32_t, uint32_t, TOV_Status> rows[] = {
      {R, 0, R, SR | SW, SV},  {R, SR, R, SR, OK}, {R, SR, W, SR | SW, SV},
      {W, SR | SW, R, SR, SV}, {R, SW, W, SR, OK}, {R, SR | 0xFC, W, SR | SW, SV}};
  for (auto [flags1, share1, flags2, share2, second] : rows) {
    SCOPED_TRACE(testing::Message() << flags1 << "/" << share1 << ", " << flags2 << "/" << share2);
    File first(dir_.file("f"), flags1, share1), other(dir_.file("f"), flags2, share2, second);
  }
}

// Transfers in sequence on "f" opened to append and read: status, count,
// bytes, *position and the file position after each (~0ull: no position
// given). Append moves to the end once, at the open. Past the end a write
// grows the file with zeros and a read comes short; with nothing to read,
// *position stays as given. Only the low 32 bits of a count reach the platform.
TEST_F(FileTest, Transfers) {
  File f(dir_.file("f"), TOV_FILE_APPEND | R);
  const std::tuple<uint32_t, size_t, size_t, std::string, TOV_Status, size_t, size_t> steps[] = {
      {W, ~0ull, 2, "ab", OK, ~0ull, 12}, {R, 3, 4, "3456", OK, 7, 7},
      {W, 1, 2, "WX", OK, 3, 3},          {W, ~0ull, 1, "Y", OK, ~0ull, 4},
      {W, 14, 1, "E", OK, 15, 15},        {R, 13, 8, {"\0E", 2}, OK, 15, 15},
      {R, 20, 4, "", END, 20, 20},        {R, 0, (1ull << 32) | 4, "0WXY", OK, 4, 4}};
  for (auto [op, start, count, d, st, atAfter, posAfter] : steps) {
    SCOPED_TRACE(testing::Message() << (op == W ? "write at " : "read at ") << start);
    char buf[16] = "###############";
    uint64_t at = start, n = count, pos = 0, *p = ~start ? &at : nullptr;
    EXPECT_EQ(op == W ? TOV_FileWrite(f.h, p, d.data(), &n) : TOV_FileRead(f.h, p, buf, &n), st);
    EXPECT_EQ(TOV_FileTell(f.h, &pos), OK);
    const std::string seen = op == W ? d + '#' : std::string(buf, d.size() + 1);
    EXPECT_EQ(std::tie(n, at, pos, seen), std::make_tuple(d.size(), atAfter, posAfter, d + '#'));
  }
  EXPECT_EQ(tovtest::readFile(dir_.file("f")), std::string("0WXY456789ab\0\0E", 15));
}

// Each failure gives its own status and writes nothing: not the handle, the
// position, any other output or buffer, nor the file. Only a count is always
// written (0), a close clears the variable also when it fails (m's failed
// open left kBad in it), and deletion is never shared.
TEST_F(FileTest, FailuresWriteNothing) {
  File f(dir_.file("f"), R), m(dir_.file("no\\f"), C, 0, NF);
  uint64_t at = 3, n = 4, u = 77, pos = 9, c = 4;
  EXPECT_EQ(
      Codes({TOV_FileRead(f.h, &at, nullptr, &n), TOV_FileWrite(f.h, &at, "abcd", &c),
             TOV_FileRead(kBad, &at, &u, &c), TOV_FileSeek(f.h, 0, 3, &u),
             TOV_FileSeek(f.h, -5, TOV_FILE_SEEK_CURRENT, &u), TOV_FileSetSize(f.h, 1ull << 63),
             TOV_FileClose(&m.h), TOV_FileDelete(dir_.file("f").c_str()), TOV_FileTell(f.h, &pos)}),
      Codes({TOV_ERR_INVALID_PARAMETER, TOV_ERR_ACCESS_DENIED, END, TOV_ERR_INVALID_PARAMETER,
             ERROR_NEGATIVE_SEEK, TOV_ERR_INVALID_PARAMETER, TOV_ERR_INVALID_HANDLE, SV, OK}));
  EXPECT_EQ(std::tie(at, n, u, pos, c, m.h), std::make_tuple(3u, 4u, 77u, 0u, 0u, nullptr));
  EXPECT_EQ(tovtest::readFile(dir_.file("f")), "0123456789");
}

// A size or position whose low half is 0xFFFFFFFF is a success, whatever
// error the thread had before; times are whole seconds since 1970 UTC by both
// routes. Size and seek past 4 GiB on a file made sparse by set-size alone,
// which leaves the position at the new end (where the seek starts from).
TEST_F(FileTest, WideSizesPositionsAndTimes) {
  File f(dir_.file("f"), R | W);
  uint64_t pos = 0, size = 0, bigSize = 0, back = 0;
  TOV_FileInfo byHandle{}, byName{};
  FILETIME ft{0x25801687u, 0x01BF53EBu}; // 2000-01-01 00:00:00.1234567 UTC
  SetLastError(ERROR_ACCESS_DENIED);
  EXPECT_EQ(Codes({TOV_FileSetSize(f.h, 0xFFFFFFFFull), TOV_FileTell(f.h, &pos),
                   TOV_FileSize(f.h, &size)}),
            Codes(3, OK));
  ASSERT_TRUE(SetFileTime(f.h, nullptr, nullptr, &ft)); // after the size change, which sets it
  EXPECT_EQ(Codes({TOV_FileInfoByHandle(f.h, &byHandle),
                   TOV_FileInfoByName(dir_.file("f").c_str(), &byName),
                   TOV_FileSetSize(f.h, (5ull << 30) + 3), TOV_FileSize(f.h, &bigSize),
                   TOV_FileSeek(f.h, -(4ll << 30), TOV_FILE_SEEK_CURRENT, &back)}),
            Codes(5, OK));
  EXPECT_EQ(std::tie(pos, size, byName.size, byHandle.modified, byName.modified, bigSize, back),
            std::make_tuple(0xFFFFFFFFull, 0xFFFFFFFFull, 0xFFFFFFFFull, 946684800, 946684800,
                            (5ull << 30) + 3, (1ull << 30) + 3));
}

// A duplicate shares the position of the handle it copies; a commit needs a
// live handle. A directory answers by name: the platform's directory
// attribute, and its times (it was made just now).
TEST_F(FileTest, DuplicatesCommitsAndDirectories) {
  File f(dir_.file("f"), R | W);
  TOV_FileHandle dup = nullptr;
  uint64_t n = 3, one = 1, at = 0;
  uint32_t attributes = 0;
  TOV_FileInfo info{};
  EXPECT_EQ(
      Codes({TOV_FileDup(f.h, &dup), TOV_FileRead(f.h, nullptr, &at, &n), TOV_FileTell(dup, &at),
             TOV_FileWrite(dup, nullptr, "x", &one), TOV_FileCommit(dup), TOV_FileClose(&dup),
             TOV_FileCommit(kBad), TOV_FileGetAttrib(dir_.path().c_str(), &attributes),
             TOV_FileInfoByName(dir_.path().c_str(), &info)}),
      Codes({OK, OK, OK, OK, OK, OK, TOV_ERR_INVALID_HANDLE, OK, OK}));
  EXPECT_EQ(tovtest::readFile(dir_.file("f")), "012x456789");
  EXPECT_TRUE(at == 3 && (attributes & FILE_ATTRIBUTE_DIRECTORY)) << at << ", " << attributes;
  EXPECT_LT(std::abs(info.modified - std::time(nullptr)), 600) << info.modified;
}
