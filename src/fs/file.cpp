// Files through the platform's own file handle: open with a compact set of
// flags, transfers at the current or an explicit position, position and size,
// information by handle or by name. The library keeps no state per file.
#include "fs/file.h"

#include "frame/errors.h"
#include "frame/handle.h"
#include "frame/lifecycle.h"

#include <windows.h>

#include <sys/stat.h>

namespace {

constexpr uint32_t kWriteAccessFlags = TOV_FILE_WRITE | TOV_FILE_APPEND | TOV_FILE_TRUNCATE;
constexpr uint32_t kDispositionMask = TOV_FILE_CREATE | TOV_FILE_TRUNCATE | TOV_FILE_EXCLUSIVE;

// Creation disposition for each combination of CREATE (0x100), TRUNCATE
// (0x200) and EXCLUSIVE (0x400), indexed by the three bits shifted down.
constexpr DWORD kDisposition[8] = {
    OPEN_EXISTING,     // -
    OPEN_ALWAYS,       // CREATE
    TRUNCATE_EXISTING, // TRUNCATE
    CREATE_ALWAYS,     // CREATE | TRUNCATE
    OPEN_EXISTING,     // EXCLUSIVE (without CREATE it changes nothing)
    CREATE_NEW,        // CREATE | EXCLUSIVE
    TRUNCATE_EXISTING, // TRUNCATE | EXCLUSIVE
    CREATE_NEW,        // CREATE | TRUNCATE | EXCLUSIVE
};

DWORD accessFor(uint32_t openFlags) noexcept {
  DWORD access = 0;
  if (openFlags & TOV_FILE_READ) access |= GENERIC_READ;
  if (openFlags & kWriteAccessFlags) access |= GENERIC_WRITE;
  return access;
}

// Deletion is never shared.
DWORD shareFor(uint32_t shareFlags) noexcept {
  DWORD share = 0;
  if (shareFlags & TOV_FILE_SHARE_READ) share |= FILE_SHARE_READ;
  if (shareFlags & TOV_FILE_SHARE_WRITE) share |= FILE_SHARE_WRITE;
  return share;
}

// A file is never created as a directory: that flag is ignored here.
DWORD attributesFor(uint32_t attributes) noexcept {
  DWORD platform = 0;
  for (const tov::AttributeBit &bit : tov::kAttributeBits)
    if (attributes & bit.library & ~TOV_FILE_ATTR_DIRECTORY) platform |= bit.platform;
  return platform;
}

// SetFilePointer with a 64-bit move. A low half of 0xFFFFFFFF is a failure
// only when the thread's last error is not 0: the platform clears it when it
// lands on exactly that position. newPosition is written only on success.
TOV_Status movePointer(HANDLE h, int64_t offset, DWORD method, uint64_t *newPosition) noexcept {
  LONG high = static_cast<LONG>(offset >> 32);
  const DWORD low = SetFilePointer(h, static_cast<LONG>(offset & 0xFFFFFFFF), &high, method);
  if (low == INVALID_SET_FILE_POINTER) {
    const DWORD error = GetLastError();
    if (error != NO_ERROR) return tov::MapSystemError(error);
  }
  if (newPosition) *newPosition = (static_cast<uint64_t>(static_cast<DWORD>(high)) << 32) | low;
  return TOV_OK;
}

// Platform transfer operation: ReadFile or WriteFile with const data.
template <typename Buffer>
using TransferFn = BOOL(WINAPI *)(HANDLE, Buffer, DWORD, LPDWORD, LPOVERLAPPED);

// One read or write at the current position, or, with position not null, at
// *position through an OVERLAPPED on the synchronous handle; either way the
// handle's position ends just after the bytes moved.
template <typename Buffer>
TOV_Status transfer(TransferFn<Buffer> fn, bool reading, HANDLE h, uint64_t *position,
                    Buffer buffer, uint64_t *count) noexcept {
  OVERLAPPED at{};
  OVERLAPPED *overlapped = nullptr;
  if (position) {
    at.Offset = static_cast<DWORD>(*position);
    at.OffsetHigh = static_cast<DWORD>(*position >> 32);
    overlapped = &at;
  }
  DWORD moved = 0;
  TOV_Status status = TOV_OK;
  if (!fn(h, buffer, static_cast<DWORD>(*count), &moved, overlapped))
    status = tov::MapLastSystemError();
  *count = moved;
  if (reading && moved == 0) return TOV_ERR_END_OF_DATA;
  if (status == TOV_OK && position) status = movePointer(h, 0, FILE_CURRENT, position);
  return status;
}

} // namespace

extern "C" TOV_Status TOV_FileOpen(const char *path, uint32_t openFlags, uint32_t shareFlags,
                                   uint32_t attributes, TOV_FileHandle *file) noexcept {
  TOV_FRAME(path != nullptr && file != nullptr);
  const DWORD disposition = kDisposition[(openFlags & kDispositionMask) >> 8];
  HANDLE h = CreateFileA(path, accessFor(openFlags), shareFor(shareFlags), nullptr, disposition,
                         attributesFor(attributes), nullptr);
  if (h == INVALID_HANDLE_VALUE) return tov::MapLastSystemError();
  // A failure of this move is not reported: the file is open.
  if (openFlags & TOV_FILE_APPEND) SetFilePointer(h, 0, nullptr, FILE_END);
  *file = h;
  return TOV_OK;
}

extern "C" TOV_Status TOV_FileClose(TOV_FileHandle *file) noexcept {
  TOV_FRAME(file != nullptr);
  return tov::closeAndClear<tov::Holds::PlatformHandle>(file, tov::closeKernelHandle);
}

extern "C" TOV_Status TOV_FileCommit(TOV_FileHandle file) noexcept {
  return FlushFileBuffers(file) ? TOV_OK : tov::MapLastSystemError();
}

extern "C" TOV_Status TOV_FileDup(TOV_FileHandle file, TOV_FileHandle *copy) noexcept {
  HANDLE self = GetCurrentProcess();
  HANDLE h = nullptr;
  if (!DuplicateHandle(self, file, self, &h, 0, TRUE, DUPLICATE_SAME_ACCESS))
    return tov::MapLastSystemError();
  *copy = h;
  return TOV_OK;
}

extern "C" TOV_Status TOV_FileRead(TOV_FileHandle file, uint64_t *position, void *buffer,
                                   uint64_t *count) noexcept {
  TOV_FRAME(buffer != nullptr && count != nullptr);
  return transfer<void *>(ReadFile, true, file, position, buffer, count);
}

extern "C" TOV_Status TOV_FileWrite(TOV_FileHandle file, uint64_t *position, const void *data,
                                    uint64_t *count) noexcept {
  TOV_FRAME(data != nullptr && count != nullptr);
  return transfer<const void *>(WriteFile, false, file, position, data, count);
}

extern "C" TOV_Status TOV_FileSeek(TOV_FileHandle file, int64_t offset, uint32_t origin,
                                   uint64_t *newPosition) noexcept {
  static_assert(TOV_FILE_SEEK_BEGIN == FILE_BEGIN && TOV_FILE_SEEK_CURRENT == FILE_CURRENT &&
                TOV_FILE_SEEK_END == FILE_END);
  TOV_FRAME(origin <= TOV_FILE_SEEK_END);
  return movePointer(file, offset, origin, newPosition);
}

extern "C" TOV_Status TOV_FileTell(TOV_FileHandle file, uint64_t *position) noexcept {
  TOV_FRAME(position != nullptr);
  return movePointer(file, 0, FILE_CURRENT, position);
}

extern "C" TOV_Status TOV_FileSize(TOV_FileHandle file, uint64_t *size) noexcept {
  TOV_FRAME(size != nullptr);
  DWORD high = 0;
  const DWORD low = GetFileSize(file, &high);
  if (low == INVALID_FILE_SIZE) {
    const DWORD error = GetLastError();
    if (error != NO_ERROR) return tov::MapSystemError(error);
  }
  *size = (static_cast<uint64_t>(high) << 32) | low;
  return TOV_OK;
}

extern "C" TOV_Status TOV_FileSetSize(TOV_FileHandle file, uint64_t size) noexcept {
  TOV_FRAME(size <= 0x7FFFFFFFFFFFFFFFull);
  if (const TOV_Status status = movePointer(file, static_cast<int64_t>(size), FILE_BEGIN, nullptr);
      status != TOV_OK)
    return status;
  return SetEndOfFile(file) ? TOV_OK : tov::MapLastSystemError();
}

extern "C" TOV_Status TOV_FileInfoByHandle(TOV_FileHandle file, TOV_FileInfo *info) noexcept {
  TOV_FRAME(file != nullptr && info != nullptr);
  BY_HANDLE_FILE_INFORMATION data;
  if (!GetFileInformationByHandle(file, &data)) return tov::MapLastSystemError();
  info->size = (static_cast<uint64_t>(data.nFileSizeHigh) << 32) | data.nFileSizeLow;
  info->created = tov::fileTimeToSeconds(data.ftCreationTime);
  info->modified = tov::fileTimeToSeconds(data.ftLastWriteTime);
  return TOV_OK;
}

extern "C" TOV_Status TOV_FileInfoByName(const char *path, TOV_FileInfo *info) noexcept {
  struct _stat64 st;
  if (_stat64(path, &st) != 0) return tov::Map_errno();
  info->created = st.st_ctime;
  info->modified = st.st_mtime;
  info->size = static_cast<uint64_t>(st.st_size);
  return TOV_OK;
}

extern "C" TOV_Status TOV_FileGetAttrib(const char *path, uint32_t *attributes) noexcept {
  const DWORD word = GetFileAttributesA(path);
  if (word == INVALID_FILE_ATTRIBUTES) return tov::MapLastSystemError();
  *attributes = word;
  return TOV_OK;
}

extern "C" TOV_Status TOV_FileDelete(const char *path) noexcept {
  return DeleteFileA(path) ? TOV_OK : tov::MapLastSystemError();
}
