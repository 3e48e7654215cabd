// Directory listings, one entry per read, over the platform's find functions;
// creating and removing directories; free space; TOV_PathBuild.
#include "fs/file.h"
#include "fs/path.h"

#include "frame/errors.h"
#include "frame/lifecycle.h"

#include <windows.h>

#include <direct.h>
#include <io.h>

#include <cstring>

namespace {

struct DirListing {
  HANDLE search; // null while no search is open
  char directory[TOV_PATH_MAX];
  char mask[TOV_PATH_MAX];
  WIN32_FIND_DATAA entry; // what the last successful read produced
};

bool isSeparator(char c) noexcept {
  return c == '\\' || c == '/';
}

// The search pattern: directory, backslash, mask; the mask alone for an
// empty directory, and no second separator after a directory ending in one.
TOV_Status searchPattern(const char *directory, const char *mask,
                         char (&pattern)[TOV_PATH_MAX]) noexcept {
  const char *parts[] = {directory[0] ? directory : nullptr, mask};
  return tov::joinPath(pattern, sizeof pattern, parts, 2);
}

uint32_t libraryAttributes(DWORD platform) noexcept {
  uint32_t attributes = 0;
  for (const tov::AttributeBit &bit : tov::kAttributeBits)
    if (platform & bit.platform) attributes |= bit.library;
  return attributes;
}

} // namespace

extern "C" TOV_Status TOV_DirOpen(const char *directory, const char *mask,
                                  TOV_DirHandle *listing) noexcept {
  TOV_FRAME(directory != nullptr && listing != nullptr);
  if (!mask) mask = "*";
  // The directory as it will be stored: one trailing separator dropped, a
  // lone one kept as the backslash of the current drive's root.
  size_t length = std::strlen(directory);
  const bool root = length == 1 && isSeparator(directory[0]);
  if (length > 1 && isSeparator(directory[length - 1])) --length;
  if (length >= TOV_PATH_MAX) return TOV_ERR_PATH_TOO_LONG;
  char stored[TOV_PATH_MAX];
  std::memcpy(stored, root ? "\\" : directory, length);
  stored[length] = '\0';
  char pattern[TOV_PATH_MAX];
  if (const TOV_Status status = searchPattern(stored, mask, pattern); status != TOV_OK)
    return status;

  if (_access(directory, 0) != 0) return tov::Map_errno();
  auto *record = static_cast<DirListing *>(TOV_malloc(tov::libTag(), sizeof(DirListing)));
  if (!record) return TOV_ERR_NO_MEMORY;
  record->search = nullptr;
  std::memcpy(record->directory, stored, length + 1);
  std::strcpy(record->mask, mask); // shorter than the pattern, which fits
  *listing = record;
  return TOV_OK;
}

extern "C" TOV_Status TOV_DirRead(TOV_DirHandle listing, const char **name, uint32_t *attributes,
                                  TOV_FileInfo *info) noexcept {
  auto *record = static_cast<DirListing *>(listing);
  if (!record->search) {
    char pattern[TOV_PATH_MAX];
    if (const TOV_Status status = searchPattern(record->directory, record->mask, pattern);
        status != TOV_OK)
      return status;
    HANDLE search = FindFirstFileA(pattern, &record->entry);
    if (search == INVALID_HANDLE_VALUE) {
      // Nothing matches, or the directory has gone: the listing is empty.
      const TOV_Status status = tov::MapLastSystemError();
      return status == TOV_ERR_NOT_FOUND ? TOV_ERR_END_OF_DATA : status;
    }
    record->search = search;
  } else if (!FindNextFileA(record->search, &record->entry)) {
    return tov::MapLastSystemError();
  }

  const WIN32_FIND_DATAA &entry = record->entry;
  if (name) *name = entry.cFileName;
  if (attributes) *attributes = libraryAttributes(entry.dwFileAttributes);
  if (info) {
    info->size = (static_cast<uint64_t>(entry.nFileSizeHigh) << 32) | entry.nFileSizeLow;
    info->created = tov::fileTimeToSeconds(entry.ftCreationTime);
    info->modified = tov::fileTimeToSeconds(entry.ftLastWriteTime);
  }
  return TOV_OK;
}

extern "C" TOV_Status TOV_DirClose(TOV_DirHandle *listing) noexcept {
  TOV_FRAME(listing != nullptr);
  auto *record = static_cast<DirListing *>(*listing);
  TOV_Status status = TOV_OK;
  if (record && record->search && !FindClose(record->search)) status = tov::MapLastSystemError();
  TOV_free(record);
  *listing = nullptr;
  return status;
}

extern "C" TOV_Status TOV_DirCreate(const char *path) noexcept {
  return _mkdir(path) == 0 ? TOV_OK : tov::Map_errno();
}

extern "C" TOV_Status TOV_DirDelete(const char *path) noexcept {
  return _rmdir(path) == 0 ? TOV_OK : tov::Map_errno();
}

extern "C" TOV_Status TOV_DirFreeSpace(const char *path, uint64_t *freeBytes) noexcept {
  ULARGE_INTEGER available;
  if (!GetDiskFreeSpaceExA(path, &available, nullptr, nullptr)) return tov::MapLastSystemError();
  *freeBytes = available.QuadPart;
  return TOV_OK;
}

extern "C" TOV_Status TOV_PathBuild(const char *c1, const char *c2, const char *c3, const char *c4,
                                    char *path) noexcept {
  TOV_FRAME(path != nullptr);
  const char *parts[] = {c1, c2, c3, c4};
  return tov::joinPath(path, TOV_PATH_MAX, parts, 4);
}
