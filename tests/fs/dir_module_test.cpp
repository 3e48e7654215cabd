// Directory listings of real temporary folders, creating and removing
// directories, free space; loading modules, symbols, module paths and
// version texts (path joining is the fuzz target's, fuzz/path_fuzz.cpp). testmod_ver.dll (one
// export, a version record) and testmod_notrans.dll (a record without a
// translation table) are built beside this program.
#include "support.h"
#include "tov.h"

#include <gtest/gtest.h>

#include <cstring>
#include <deque>
#include <fstream>
#include <map>

static const TOV_Status OK = TOV_OK, NF = TOV_ERR_NOT_FOUND, END = TOV_ERR_END_OF_DATA,
                        LONG_PATH = TOV_ERR_PATH_TOO_LONG, BAD = TOV_ERR_INVALID_PARAMETER,
                        NOMOD = TOV_ERR_MODULE_NOT_FOUND, INVALID = TOV_ERR_INVALID_MODULE;
using Codes = std::vector<TOV_Status>;
// Entry name -> attributes, size, created, modified.
using Entries = std::map<std::string, std::tuple<uint32_t, uint64_t, int64_t, int64_t>>;
// A module handle that no load returns.
static TOV_ModHandle const kBogus = reinterpret_cast<TOV_ModHandle>(0x1000);

struct FsTest : ::testing::Test {
  static void SetUpTestSuite() { ASSERT_EQ(TOV_Startup(nullptr, 0, nullptr, nullptr), OK); }
  static void TearDownTestSuite() { TOV_Cleanup(nullptr); }
  // The path of name in the test's folder, valid until the test ends.
  const char *at(const std::string &name) { return names_.emplace_back(dir_.file(name)).c_str(); }
  tovtest::TempDir dir_;
  std::deque<std::string> names_;
};

// A whole listing. After the end, one more read reports it again and writes
// nothing; the close clears the variable.
static Entries list(const std::string &directory, const char *mask) {
  TOV_DirHandle h = nullptr;
  Entries seen;
  const char *name = nullptr;
  uint32_t attributes = 0;
  TOV_FileInfo i{};
  if (TOV_DirOpen(directory.c_str(), mask, &h) != OK) return {{"open failed", {}}};
  TOV_Status last;
  while ((last = TOV_DirRead(h, &name, &attributes, &i)) == OK)
    seen[name] = {attributes, i.size, i.created, i.modified};
  name = "kept";
  EXPECT_EQ(Codes({last, TOV_DirRead(h, &name, &attributes, nullptr), TOV_DirClose(&h)}),
            Codes({END, END, OK}));
  EXPECT_EQ(std::tie(name, h), std::make_tuple(std::string("kept"), nullptr));
  return seen;
}

// Each mask lists the matching entries ("." and ".." too) with the library's
// attribute word (the platform marks every file ARCHIVE) and the size and
// times that the file's own information gives. A trailing separator of
// either kind changes nothing; a listing may be closed before its end.
TEST_F(FsTest, ListingMatchesFolder) {
  // Name, attribute given, word listed. Files get sizes from their attribute.
  const DWORD A = FILE_ATTRIBUTE_ARCHIVE, H = FILE_ATTRIBUTE_HIDDEN, R = FILE_ATTRIBUTE_READONLY,
              S = FILE_ATTRIBUTE_SYSTEM;
  const std::tuple<std::string, DWORD, uint32_t> made[] = {
      {".", 0, 0x10},     {"..", 0, 0x10},    {"d", 0, 0x10},    {"a.txt", A, 0x01},
      {"h.txt", H, 0x03}, {"r.txt", R, 0x05}, {"s.dat", S, 0x09}};
  ASSERT_EQ(TOV_DirCreate(at("d")), OK);
  for (auto &[name, given, word] : made) {
    if (given) std::ofstream(at(name)) << std::string(given * 99, 'x');
    if (given) SetFileAttributesA(at(name), given);
  }
  // Each mask with the first characters of the names it matches.
  for (auto [mask, initials] : {std::pair<const char *, std::string>{nullptr, ".dahrs"},
                                {"*.txt", "ahr"},
                                {"*.none", ""}}) {
    Entries expected;
    for (auto &[name, given, word] : made) {
      TOV_FileInfo i{};
      if (initials.find(name[0]) == std::string::npos) continue;
      EXPECT_EQ(TOV_FileInfoByName(at(name), &i), OK);
      expected[name] = {word, i.size, i.created, i.modified};
    }
    for (const char *end : {"", "\\", "/"}) EXPECT_EQ(list(dir_.path() + end, mask), expected);
  }
  TOV_DirHandle h = nullptr;
  EXPECT_EQ(Codes({TOV_DirOpen(dir_.path().c_str(), "*", &h),
                   TOV_DirRead(h, nullptr, nullptr, nullptr), TOV_DirClose(&h)}),
            Codes(3, OK));
}

// A lone separator of either kind lists the root of the current drive (whose
// times change meanwhile: compared by count). The pattern directory\mask may
// hold 259 characters, a trailing separator of the directory not counted; a
// longer one is refused before the directory is looked at. Refused opens
// write nothing.
TEST_F(FsTest, RootAndRefusedOpens) {
  char root[MAX_PATH];
  root[GetCurrentDirectoryA(MAX_PATH, root) > 3 ? 3 : 0] = '\0'; // "X:\"
  for (const char *separator : {"\\", "/"})
    EXPECT_EQ(list(separator, nullptr).size(), list(root, "*").size());
  const std::string fits(TOV_PATH_MAX - 2 - dir_.path().size(), 'm'), over = fits + "m";
  EXPECT_EQ(list(dir_.path() + "/", fits.c_str()), Entries());
  TOV_DirHandle h = &h;
  EXPECT_EQ(
      Codes({TOV_DirOpen(at("none"), "*", &h), TOV_DirOpen(dir_.path().c_str(), over.c_str(), &h),
             TOV_DirOpen((dir_.path() + "\\").c_str(), over.c_str(), &h),
             TOV_DirOpen(std::string(300, 'y').c_str(), "*", &h), TOV_DirOpen(nullptr, "*", &h),
             TOV_DirOpen(".", "*", nullptr)}),
      Codes({NF, LONG_PATH, LONG_PATH, LONG_PATH, BAD, BAD}));
  EXPECT_EQ(h, &h);
}

// Creation needs the parent and a new name; removal an empty directory
// (else the C runtime's unmapped 41). Free space is the platform's figure
// for the caller (within what others write meanwhile); a file or a missing
// path is refused.
TEST_F(FsTest, CreateDeleteAndFreeSpace) {
  std::ofstream(at("f")) << "f";
  ULARGE_INTEGER platform;
  uint64_t bytes = 0, kept = 5;
  EXPECT_EQ(Codes({TOV_DirCreate(at("n")), TOV_DirCreate(at("n")), TOV_DirCreate(at("x\\n")),
                   TOV_DirCreate(at("n\\m")), TOV_DirDelete(at("n")), TOV_DirDelete(at("n\\m")),
                   TOV_DirDelete(at("n")), TOV_DirDelete(at("n")), TOV_DirFreeSpace(at("f"), &kept),
                   TOV_DirFreeSpace(at("n"), &kept), TOV_DirFreeSpace(".", &bytes)}),
            Codes({OK, TOV_ERR_ALREADY_EXISTS, NF, OK, 41, OK, OK, NF, ERROR_DIRECTORY, NF, OK}));
  ASSERT_TRUE(GetDiskFreeSpaceExA(".", &platform, nullptr, nullptr));
  EXPECT_NEAR(double(bytes), double(platform.QuadPart), 256e6);
  EXPECT_EQ(kept, 5u);
}

// The path of module m's file ("" when it has none).
static std::string fileOf(TOV_ModHandle m) {
  char path[MAX_PATH];
  return GetModuleFileNameA(static_cast<HMODULE>(m), path, MAX_PATH) ? path : "";
}

// Names that load (plain, with suffix, full path, and one whose own extension
// fails until ".dll" is added) give the module with its export, one reference
// each. Failed loads leave a null handle and report the last attempt: a file
// that is not a module gives the platform's 193, unless the suffixed name is
// missing. A module not loaded has no handle; a full path needs a buffer
// before the handle is looked at.
TEST_F(FsTest, ModulesLoadAndResolve) {
  const std::string here = fileOf(nullptr).substr(0, fileOf(nullptr).rfind('\\') + 1);
  ASSERT_TRUE(CopyFileA((here + "testmod_ver.dll").c_str(), at("copy.x.dll"), 0));
  std::ofstream(at("bad.dll")) << "MZ not a module";
  for (const std::string &name : std::vector<std::string>{
           "testmod_ver", "testmod_ver.dll", here + "testmod_ver.dll", dir_.file("copy.x")}) {
    TOV_ModHandle m = nullptr;
    void *answer = nullptr, *missing = &m;
    ASSERT_EQ(TOV_ModLoad(name.c_str(), &m), OK) << name;
    const std::string path = fileOf(m);
    EXPECT_EQ(Codes({TOV_ModResolveSym(m, "testmod_answer", &answer),
                     TOV_ModResolveSym(m, "testmod_none", &missing), TOV_ModUnResolveSym(m, m)}),
              Codes({OK, TOV_ERR_SYMBOL_NOT_FOUND, OK}));
    EXPECT_EQ(std::make_tuple(answer ? reinterpret_cast<int (*)()>(answer)() : 0, missing),
              std::make_tuple(42, nullptr));
    EXPECT_EQ(Codes({TOV_ModUnload(m), TOV_ModGetHandle(path.c_str(), &m)}), Codes({OK, NOMOD}));
  }
  TOV_ModHandle m = kBogus, k = kBogus;
  char path[8] = "#";
  EXPECT_EQ(Codes({TOV_ModLoad("testmod_none", &m), TOV_ModLoad(at("bad"), &m),
                   TOV_ModLoad(at("bad.dll"), &m), TOV_ModUnload(kBogus),
                   TOV_ModGetHandle("testmod_none", &k), TOV_ModGetHandle(nullptr, &k),
                   TOV_ModGetFullPath(k, nullptr, 8), TOV_ModGetFullPath(k, path, 0)}),
            Codes({NOMOD, ERROR_BAD_EXE_FORMAT, NOMOD, NOMOD, NOMOD, BAD, BAD, BAD}));
  EXPECT_EQ(std::tie(m, k, path[0]), std::make_tuple(nullptr, kBogus, '#'));
}

// For tov.dll (the library's own version), the test modules, the program
// (module null: no version record, no full path) and a handle without a
// file: file version with the file's time, file description, full path and
// validity, each cut to the buffer and never written past it, untouched on
// failure.
TEST_F(FsTest, ModuleTexts) {
  TOV_ModHandle tov = nullptr, ver = nullptr, notrans = nullptr;
  ASSERT_EQ(Codes({TOV_ModGetHandle("tov.dll", &tov), TOV_ModLoad("testmod_ver", &ver),
                   TOV_ModLoad("testmod_notrans", &notrans)}),
            Codes(3, OK));
  const uint32_t v = TOV_GetVersion();
  char own[16];
  std::snprintf(own, sizeof own, "%u.%u.%u.%u", v >> 24, v >> 16 & 0xFF, v >> 8 & 0xFF, v & 0xFF);
  const std::string none(47, '#');
  // Module, buffer size, then status and text of the version, the description
  // and the full path (whose module is valid when the path is found).
  const std::tuple<TOV_ModHandle, uint32_t, TOV_Status, std::string, TOV_Status, std::string,
                   TOV_Status>
      rows[] = {{tov, 40, OK, own, OK, "tov operating system services library", OK},
                {ver, 5, OK, "4.0.", OK, "Test", OK},
                {notrans, 40, INVALID, "0.0.0", INVALID, "", OK},
                {nullptr, 3, OK, "0.", OK, "", BAD},
                {kBogus, 40, NOMOD, none, OK, "", NOMOD}};
  for (auto &[m, size, versionStatus, version, descriptionStatus, description, pathStatus] : rows) {
    std::string text = none, described = none, path = none;
    int64_t modified = -1;
    TOV_FileInfo info{-1, -1, 0};
    TOV_FileInfoByName(fileOf(m).c_str(), &info);
    EXPECT_EQ(Codes({TOV_ModGetTimeVersion(m, &modified, text.data(), size),
                     TOV_ModValidateName(fileOf(m).c_str(), size, described.data()),
                     TOV_ModGetFullPath(m, path.data(), size), TOV_ModValidateHandle(m)}),
              Codes({versionStatus, descriptionStatus, pathStatus, pathStatus ? BAD : OK}));
    EXPECT_EQ(std::make_tuple(text.c_str(), described.c_str(), path.c_str(), modified),
              std::make_tuple(version, description,
                              pathStatus ? none : fileOf(m).substr(0, size - 1), info.modified));
    EXPECT_EQ(text[size] + described[size] + path[size], 3 * '#');
  }
  EXPECT_EQ(Codes({TOV_ModUnload(ver), TOV_ModUnload(notrans)}), Codes(2, OK));
}
